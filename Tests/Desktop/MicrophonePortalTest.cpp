// The microphone's permission inside a sandbox, with a portal and a permission store of our own on
// a real bus. Run it by with-x-server, whose session bus is nobody else's.

#include "Platform/Linux/MicrophonePortal.h"

#include "EventLoopWait.h"
#include "Platform/Linux/PulseConnection.h"
#include "Platform/Linux/PulseMicrophonePermission.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QMap>
#include <QProcess>

#include <gtest/gtest.h>

#include <csignal>

using namespace quenda;
using namespace std::chrono_literals;

namespace {

const QString kPortal = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kStore = QStringLiteral("org.freedesktop.impl.portal.PermissionStore");
const QString kStorePath = QStringLiteral("/org/freedesktop/impl/portal/PermissionStore");
const QString kMe = QStringLiteral("org.quenda.Quenda");
using Permissions = QMap<QString, QStringList>;

/// A program on the bus that answers calls as the test says, or not at all.
class Service : public QDBusVirtualObject {
public:
    using Answer = std::function<QDBusMessage(const QDBusMessage &call)>;

    Service(const QString &name, const QString &path, Answer answer,
            const QString &bus = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"))
        : m_answer(std::move(answer)),
          m_bus(QDBusConnection::connectToBus(bus, name + QStringLiteral("-test"))) {
        EXPECT_TRUE(m_bus.registerVirtualObject(path, this, QDBusConnection::SubPath));
        EXPECT_TRUE(m_bus.registerService(name));
    }
    ~Service() override { die(); }

    void die() {
        QDBusConnection::disconnectFromBus(m_bus.name());
        m_bus = QDBusConnection(QString()); // the last reference closes it
    }
    void send(const QDBusMessage &message) { m_bus.send(message); }
    bool handleMessage(const QDBusMessage &call, const QDBusConnection &bus) override {
        calls.append(call);
        const QDBusMessage reply = m_answer(call);
        if (reply.type() != QDBusMessage::InvalidMessage)
            bus.send(reply);
        return true;
    }
    QString introspect(const QString &) const override { return {}; }

    QList<QDBusMessage> calls;

private:
    Answer m_answer;
    QDBusConnection m_bus;
};

QDBusMessage nothing(const QDBusMessage &) {
    return {};
}

/// What a store does that has `record` for this program, and another program's refusal.
Service::Answer record(const QStringList &record) {
    return [record](const QDBusMessage &call) {
        EXPECT_EQ(call.member(), QStringLiteral("Lookup"));
        EXPECT_EQ(call.arguments(),
                  (QVariantList{QStringLiteral("devices"), QStringLiteral("microphone")}));
        Permissions all{{QStringLiteral("org.example.Other"), {QStringLiteral("no")}}};
        if (!record.isEmpty())
            all.insert(kMe, record);
        return call.createReply(
            {QVariant::fromValue(all), QVariant::fromValue(QDBusVariant(QVariant(quint8(0))))});
    };
}

QDBusMessage noEntry(const QDBusMessage &call) {
    return call.createErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotFound"),
                                 QStringLiteral("No entry for microphone"));
}

/// Where the answer to a question is to be signalled.
QString handleFor(const QDBusMessage &call) {
    QString sender = call.service().mid(1);
    const auto options = qdbus_cast<QVariantMap>(call.arguments().at(2));
    return QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2")
        .arg(sender.replace(QLatin1Char('.'), QLatin1Char('_')),
             options.value(QStringLiteral("handle_token")).toString());
}

QDBusMessage takeQuestion(const QDBusMessage &call) {
    EXPECT_EQ(call.interface(), QStringLiteral("org.freedesktop.portal.Device"));
    EXPECT_EQ(call.member(), QStringLiteral("AccessDevice"));
    EXPECT_EQ(call.signature(), QStringLiteral("uasa{sv}"));
    EXPECT_EQ(call.arguments().at(0).toUInt(), uint(QCoreApplication::applicationPid()));
    EXPECT_EQ(call.arguments().at(1).toStringList(), QStringList(QStringLiteral("microphone")));
    return call.createReply(QVariant::fromValue(QDBusObjectPath(handleFor(call))));
}

class MicrophonePortalTest : public testing::Test {
protected:
    MicrophonePortalTest() {
        qRegisterMetaType<Permissions>();
        qDBusRegisterMetaType<Permissions>();
        qputenv("PULSE_SERVER", "unix:/nonexistent/pulse"); // which denies nothing
        options.application = kMe;
        options.busAddress = qgetenv("DBUS_SESSION_BUS_ADDRESS");
        options.busLimit = options.storeLimit = options.questionLimit = 400ms;
    }

    void startStore(Service::Answer answer) {
        store = std::make_unique<Service>(kStore, kStorePath, std::move(answer));
    }
    void startPortal(Service::Answer answer) {
        portal = std::make_unique<Service>(kPortal, QStringLiteral("/org/freedesktop/portal"),
                                           std::move(answer));
    }
    void begin() {
        permission = std::make_unique<PulseMicrophonePermission>(
            std::make_shared<PulseConnection>(), MicrophonePortal::create(options));
    }
    AuthorizationStatus status() const { return permission->status(); }
    bool becomes(AuthorizationStatus wanted) {
        return waitUntil([&] { return status() == wanted; });
    }
    void ask() {
        permission->requestAccess([this](bool granted) { answers.push_back(granted); });
    }
    /// Begins, asks the user, and waits until the portal has taken the question.
    void askThePortal(const QStringList &onRecord = {}) {
        startStore(onRecord.isEmpty() ? Service::Answer(noEntry) : record(onRecord));
        startPortal(takeQuestion);
        begin();
        ask();
        ASSERT_TRUE(waitUntil([&] { return portal->calls.size() == 1; }));
        pass(50);
        EXPECT_EQ(status(), AuthorizationStatus::NotDetermined);
        EXPECT_TRUE(answers.empty());
    }
    QDBusMessage response(const QVariantList &arguments) {
        QDBusMessage signal = QDBusMessage::createTargetedSignal(
            portal->calls.constLast().service(), handleFor(portal->calls.constLast()),
            QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
        signal.setArguments(arguments);
        return signal;
    }
    void change(const QString &table, const QString &id, bool deleted, const Permissions &all) {
        QDBusMessage signal =
            QDBusMessage::createSignal(kStorePath, kStore, QStringLiteral("Changed"));
        signal << table << id << deleted << QVariant::fromValue(QDBusVariant(QVariant(quint8(0))))
               << QVariant::fromValue(all);
        store->send(signal);
    }
    void changeMine(const QStringList &words) {
        change(QStringLiteral("devices"), QStringLiteral("microphone"), false, {{kMe, words}});
    }

    MicrophonePortal::Options options;
    std::unique_ptr<Service> store;
    std::unique_ptr<Service> portal;
    std::unique_ptr<PulseMicrophonePermission> permission;
    std::vector<bool> answers;
};

TEST_F(MicrophonePortalTest, WhatIsOnRecordIsTheStatusAndNobodyIsAsked) {
    struct Row {
        QStringList onRecord;
        AuthorizationStatus expected;
    };
    for (const Row &row : {Row{{QStringLiteral("yes")}, AuthorizationStatus::Authorized},
                           Row{{QStringLiteral("no")}, AuthorizationStatus::Denied}}) {
        store.reset();
        portal.reset();
        answers.clear();
        startStore(record(row.onRecord));
        startPortal(takeQuestion);
        begin();
        EXPECT_EQ(status(), AuthorizationStatus::NotDetermined) << "not known yet";
        ask();
        EXPECT_TRUE(answers.empty()) << "later, never from inside the call";
        ASSERT_TRUE(waitUntil([&] { return answers.size() == 1; }));
        EXPECT_EQ(status(), row.expected);
        EXPECT_EQ(answers.front(), row.expected == AuthorizationStatus::Authorized);
        ask();
        ASSERT_TRUE(waitUntil([&] { return answers.size() == 2; }));
        EXPECT_TRUE(portal->calls.isEmpty());
        permission.reset();
    }
}

TEST_F(MicrophonePortalTest, WordsThatDecideNothingLeaveTheQuestionOpen) {
    for (const QStringList &words :
         {QStringList(), QStringList(QStringLiteral("ask")), QStringList(QStringLiteral("YES")),
          QStringList{QStringLiteral("yes"), QStringLiteral("no")}}) {
        store.reset();
        startStore(record(words));
        begin();
        ASSERT_TRUE(waitUntil([&] { return store->calls.size() == 1; }));
        pass(50);
        EXPECT_EQ(status(), AuthorizationStatus::NotDetermined);
        permission.reset();
    }
}

TEST_F(MicrophonePortalTest, TheUserAllows) {
    askThePortal();
    portal->send(response({quint32(0), QVariantMap()}));
    ASSERT_TRUE(becomes(AuthorizationStatus::Authorized));
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_EQ(answers, std::vector<bool>{true});
}

TEST_F(MicrophonePortalTest, TheUserRefuses) {
    askThePortal({QStringLiteral("ask")});
    portal->send(response({quint32(1), QVariantMap()}));
    ASSERT_TRUE(becomes(AuthorizationStatus::Denied));
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_EQ(answers, std::vector<bool>{false});
}

TEST_F(MicrophonePortalTest, AQuestionClosedWithoutAnAnswerCanBeAskedAgain) {
    askThePortal();
    portal->send(response({quint32(2), QVariantMap()}));
    ASSERT_TRUE(waitUntil([&] { return answers.size() == 1; }));
    EXPECT_FALSE(answers.front());
    EXPECT_EQ(status(), AuthorizationStatus::NotDetermined);
    ask();
    ask();
    ASSERT_TRUE(waitUntil([&] { return portal->calls.size() == 2; }));
    pass(50);
    EXPECT_EQ(portal->calls.size(), 2) << "one question for both";
    portal->send(response({quint32(0), QVariantMap()}));
    ASSERT_TRUE(waitUntil([&] { return answers.size() == 3; }));
    EXPECT_TRUE(answers.at(1) && answers.at(2));
}

TEST_F(MicrophonePortalTest, AnAdministratorsLockIsARestriction) {
    startStore(noEntry);
    startPortal([](const QDBusMessage &call) {
        return call.createErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotAllowed"),
                                     QStringLiteral("Microphone access disabled"));
    });
    begin();
    ask();
    ASSERT_TRUE(becomes(AuthorizationStatus::Restricted));
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_FALSE(answers.front());
}

TEST_F(MicrophonePortalTest, APortalThatLeavesItToTheSoundServerDoesNotGovern) {
    startStore(noEntry);
    startPortal([](const QDBusMessage &call) {
        return call.createErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotAllowed"),
                                     QStringLiteral("This call is not available inside the "
                                                    "sandbox"));
    });
    begin();
    ask();
    ASSERT_TRUE(becomes(AuthorizationStatus::Authorized));
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_TRUE(answers.front());
    change(QStringLiteral("devices"), QStringLiteral("microphone"), false,
           {{QStringLiteral("org.example.Other"), {QStringLiteral("yes")}}});
    pass(100);
    EXPECT_EQ(status(), AuthorizationStatus::Authorized) << "news of another program";
}

TEST_F(MicrophonePortalTest, ChangesOfTheRecordShowByThemselves) {
    startStore(record({QStringLiteral("yes")}));
    begin();
    ASSERT_TRUE(becomes(AuthorizationStatus::Authorized));
    changeMine({QStringLiteral("no")});
    ASSERT_TRUE(becomes(AuthorizationStatus::Denied));
    change(QStringLiteral("devices"), QStringLiteral("camera"), false,
           {{kMe, {QStringLiteral("yes")}}});
    change(QStringLiteral("location"), QStringLiteral("microphone"), false,
           {{kMe, {QStringLiteral("yes")}}});
    pass(100);
    EXPECT_EQ(status(), AuthorizationStatus::Denied) << "another device, another table";
    change(QStringLiteral("devices"), QStringLiteral("microphone"), true, {});
    EXPECT_TRUE(becomes(AuthorizationStatus::NotDetermined));
}

TEST_F(MicrophonePortalTest, ARecordMadeWhileTheUserIsAskedIsTheAnswer) {
    askThePortal();
    changeMine({QStringLiteral("yes")});
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_TRUE(answers.front());
    portal->send(response({quint32(0), QVariantMap()}));
    pass(100);
    EXPECT_EQ(answers.size(), 1U);
    EXPECT_EQ(status(), AuthorizationStatus::Authorized);
}

TEST_F(MicrophonePortalTest, APortalThatNeverAnswersIsDoneWithout) {
    startStore(nothing);
    startPortal(nothing);
    begin();
    QElapsedTimer timer;
    timer.start();
    ask();
    EXPECT_LT(timer.elapsed(), 50);
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_EQ(store->calls.size(), 1);
    EXPECT_EQ(portal->calls.size(), 1);
    EXPECT_TRUE(answers.front()) << "the sound server decides";
    portal->send(response({quint32(1), QVariantMap()}));
    EXPECT_TRUE(becomes(AuthorizationStatus::Denied)) << "a late answer is one";
}

TEST_F(MicrophonePortalTest, APortalThatDiesWhileAskingLeavesTheQuestionOpen) {
    askThePortal();
    portal->die();
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_FALSE(answers.front());
    EXPECT_EQ(status(), AuthorizationStatus::NotDetermined);
}

TEST_F(MicrophonePortalTest, APortalThatDiesBeforeItAnswersIsNoticed) {
    options.questionLimit = 60s;
    startStore(noEntry);
    startPortal(nothing);
    begin();
    ask();
    ASSERT_TRUE(waitUntil([&] { return portal->calls.size() == 1; }));
    portal->die();
    EXPECT_TRUE(waitUntil([&] { return !answers.empty(); }));
}

TEST_F(MicrophonePortalTest, GarbageIsNoAnswer) {
    startStore([](const QDBusMessage &call) {
        return call.createReply({QStringLiteral("yes"), 7});
    });
    startPortal([](const QDBusMessage &call) { return call.createReply(QStringLiteral("/yes")); });
    begin();
    ask();
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_EQ(portal->calls.size(), 1) << "the store said nothing";
    EXPECT_TRUE(answers.front()) << "nor did the portal: the sound server decides";
}

TEST_F(MicrophonePortalTest, AGarbledAnswerOfTheUserIsNone) {
    for (const QVariantList &arguments :
         {QVariantList{QStringLiteral("0")}, QVariantList{}, QVariantList{quint32(0)},
          QVariantList{quint32(99), QVariantMap()}}) {
        answers.clear();
        store.reset();
        portal.reset();
        askThePortal();
        portal->send(response(arguments));
        ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
        EXPECT_FALSE(answers.front());
        EXPECT_EQ(status(), AuthorizationStatus::NotDetermined);
        permission.reset();
    }
}

TEST_F(MicrophonePortalTest, GarbledNewsOfTheStoreAreNone) {
    startStore(record({QStringLiteral("no")}));
    begin();
    ASSERT_TRUE(becomes(AuthorizationStatus::Denied));
    QDBusMessage signal = QDBusMessage::createSignal(kStorePath, kStore, QStringLiteral("Changed"));
    signal << QStringLiteral("devices") << QStringLiteral("microphone") << QStringLiteral("no");
    store->send(signal);
    pass(100);
    EXPECT_EQ(status(), AuthorizationStatus::Denied);
}

TEST_F(MicrophonePortalTest, OthersCannotAnswerInThePortalsPlace) {
    askThePortal();
    Service impostor(QStringLiteral("org.example.Impostor"), QStringLiteral("/impostor"), nothing);
    impostor.send(response({quint32(0), QVariantMap()}));
    QDBusMessage news = QDBusMessage::createSignal(kStorePath, kStore, QStringLiteral("Changed"));
    news << QStringLiteral("devices") << QStringLiteral("microphone") << false
         << QVariant::fromValue(QDBusVariant(QVariant(quint8(0))))
         << QVariant::fromValue(Permissions{{kMe, {QStringLiteral("yes")}}});
    impostor.send(news);
    pass(150);
    EXPECT_EQ(status(), AuthorizationStatus::NotDetermined);
    EXPECT_TRUE(answers.empty());
}

TEST_F(MicrophonePortalTest, WithoutABusTheSoundServerDecides) {
    for (const char *address : {"unix:path=/nonexistent/bus", "tcp:host=localhost,port=1", ""}) {
        answers.clear();
        options.busAddress = address;
        options.busLimit = 60s;
        begin();
        ask();
        EXPECT_TRUE(waitUntil([&] { return !answers.empty(); })) << address;
        EXPECT_EQ(status(), AuthorizationStatus::Authorized);
    }
}

TEST_F(MicrophonePortalTest, ABusThatHangsHoldsNobodyUp) {
    QProcess bus;
    bus.start(QStringLiteral("dbus-daemon"),
              {QStringLiteral("--session"), QStringLiteral("--nofork"),
               QStringLiteral("--print-address=1")});
    ASSERT_TRUE(bus.waitForReadyRead(5000));
    options.busAddress = bus.readAllStandardOutput().trimmed();
    kill(pid_t(bus.processId()), SIGSTOP);
    QElapsedTimer timer;
    timer.start();
    begin();
    ask();
    EXPECT_LT(timer.elapsed(), 100);
    EXPECT_EQ(status(), AuthorizationStatus::NotDetermined);
    EXPECT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_EQ(status(), AuthorizationStatus::Authorized);
    // Qt's bus thread is one for the whole program: were it stuck, this would never return.
    Service other(kStore, kStorePath, nothing);
    bus.kill();
    bus.waitForFinished(5000);
}

TEST_F(MicrophonePortalTest, ABusThatGoesWhileTheUserIsAskedEndsTheWaiting) {
    QProcess bus;
    bus.start(QStringLiteral("dbus-daemon"),
              {QStringLiteral("--session"), QStringLiteral("--nofork"),
               QStringLiteral("--print-address=1")});
    ASSERT_TRUE(bus.waitForReadyRead(5000));
    options.busAddress = bus.readAllStandardOutput().trimmed();
    options.questionLimit = 60s;
    portal = std::make_unique<Service>(kPortal, QStringLiteral("/org/freedesktop/portal"),
                                       takeQuestion, QString::fromLocal8Bit(options.busAddress));
    begin();
    ask();
    EXPECT_TRUE(waitUntil([&] { return portal->calls.size() == 1; }));
    pass(100);
    EXPECT_TRUE(answers.empty());
    bus.kill();
    bus.waitForFinished(5000);
    EXPECT_TRUE(waitUntil([&] { return !answers.empty(); }));
}

TEST_F(MicrophonePortalTest, NobodyIsCalledOnceThePermissionIsGone) {
    askThePortal();
    permission.reset();
    portal->send(response({quint32(0), QVariantMap()}));
    pass(100);
    EXPECT_TRUE(answers.empty());
}

} // namespace
