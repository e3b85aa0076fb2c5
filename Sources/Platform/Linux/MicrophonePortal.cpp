#include "Platform/Linux/MicrophonePortal.h"

#include "Platform/Linux/BusSignOfLife.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QLocalSocket>
#include <QMap>
#include <QMetaObject>
#include <QThread>
#include <QTimer>
#include <QUuid>
#include <QVariantMap>

#include <unistd.h>

#include <thread>
#include <utility>

namespace quenda {

namespace {

using Permissions = QMap<QString, QStringList>; // of each application

const QString kPortal = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kStore = QStringLiteral("org.freedesktop.impl.portal.PermissionStore");
const QString kStorePath = QStringLiteral("/org/freedesktop/impl/portal/PermissionStore");
const QString kTable = QStringLiteral("devices");
const QString kMicrophone = QStringLiteral("microphone");
constexpr char kNotAllowed[] = "org.freedesktop.portal.Error.NotAllowed";

// "ask", nothing, or a word from the future: the user has not said.
AuthorizationStatus statusOf(const QStringList &record) {
    if (record == QStringList(QStringLiteral("yes")))
        return AuthorizationStatus::Authorized;
    if (record == QStringList(QStringLiteral("no")))
        return AuthorizationStatus::Denied;
    return AuthorizationStatus::NotDetermined;
}

} // namespace

std::shared_ptr<MicrophonePortal> MicrophonePortal::create(const Options &options) {
    // The other thread may hold the last reference.
    const std::shared_ptr<MicrophonePortal> portal(
        new MicrophonePortal(options), [](MicrophonePortal *last) {
            if (last->thread() == QThread::currentThread())
                delete last;
            else
                last->deleteLater();
        });
    QTimer::singleShot(options.busLimit, portal.get(), [self = portal.get()] {
        if (self->m_stage == Stage::connecting)
            self->connected(false);
    });
    const std::weak_ptr<MicrophonePortal> weak(portal);
    const auto absent = [weak] {
        if (const auto self = weak.lock())
            self->connected(false);
    };
    portal->m_signOfLife = askForSignOfLife(
        options.busAddress,
        [weak] {
            if (const auto self = weak.lock())
                connectToBus(self);
        },
        absent);
    if (!portal->m_signOfLife)
        QMetaObject::invokeMethod(portal.get(), absent, Qt::QueuedConnection);
    return portal;
}

MicrophonePortal::MicrophonePortal(const Options &options)
    : m_options(options),
      m_connectionName(QStringLiteral("quenda-microphone-portal-") +
                       QUuid::createUuid().toString(QUuid::Id128)) {}

MicrophonePortal::~MicrophonePortal() {
    QDBusConnection::disconnectFromBus(m_connectionName);
}

void MicrophonePortal::stop() {
    m_waiting.clear();
}

// Detached: nobody waits for it. Connecting to a signal asks the bus who its sender is, and waits
// for the answer; the senders are checked, since any program of the user can send any signal.
void MicrophonePortal::connectToBus(const std::shared_ptr<MicrophonePortal> &portal) {
    std::thread([portal] {
        MicrophonePortal *self = portal.get();
        QDBusConnection bus = QDBusConnection::connectToBus(
            QString::fromLocal8Bit(self->m_options.busAddress), self->m_connectionName);
        const bool succeeded =
            bus.isConnected() &&
            bus.connect(kPortal, {}, QStringLiteral("org.freedesktop.portal.Request"),
                        QStringLiteral("Response"), self, SLOT(userAnswered(QDBusMessage))) &&
            bus.connect(kStore, kStorePath, kStore, QStringLiteral("Changed"), self,
                        SLOT(storeChanged(QDBusMessage))) &&
            bus.connect(QStringLiteral("org.freedesktop.DBus"), {},
                        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"),
                        {kPortal}, QStringLiteral("sss"), self,
                        SLOT(portalChangedHands(QString, QString, QString))) &&
            bus.connect({}, QStringLiteral("/org/freedesktop/DBus/Local"),
                        QStringLiteral("org.freedesktop.DBus.Local"),
                        QStringLiteral("Disconnected"), self, SLOT(busGone()));
        QMetaObject::invokeMethod(
            self,
            [weak = std::weak_ptr(portal), succeeded] {
                if (const auto alive = weak.lock())
                    alive->connected(succeeded);
            },
            Qt::QueuedConnection);
    }).detach();
}

// May come twice, late after the limit: then what the portals say counts after all.
void MicrophonePortal::connected(bool succeeded) {
    if (succeeded)
        lookUp();
    else if (m_stage == Stage::connecting)
        conclude(std::nullopt);
}

void MicrophonePortal::send(const QDBusMessage &call, std::chrono::milliseconds limit,
                            std::function<void(const QDBusMessage &)> handler) {
    auto *answer = new QDBusPendingCallWatcher(
        QDBusConnection(m_connectionName).asyncCall(call, int(limit.count())), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this,
            [answer, handler = std::move(handler)] {
                answer->deleteLater();
                handler(answer->reply());
            });
}

void MicrophonePortal::lookUp() {
    m_stage = Stage::lookingUp;
    QDBusMessage call =
        QDBusMessage::createMethodCall(kStore, kStorePath, kStore, QStringLiteral("Lookup"));
    call << kTable << kMicrophone;
    send(call, m_options.storeLimit, [this](const QDBusMessage &reply) { lookedUp(reply); });
}

void MicrophonePortal::lookedUp(const QDBusMessage &reply) {
    if (m_stage != Stage::lookingUp)
        return; // a change came first, and is newer
    m_stage = Stage::known;
    // Many sandboxes do not let one read the store: then only the question tells.
    if (reply.type() == QDBusMessage::ReplyMessage && reply.signature() == QLatin1String("a{sas}v"))
        m_record =
            qdbus_cast<Permissions>(reply.arguments().constFirst()).value(m_options.application);
    m_status = statusOf(m_record);
    proceed();
}

std::optional<AuthorizationStatus> MicrophonePortal::status() const {
    return m_status;
}

void MicrophonePortal::request(std::function<void()> settled) {
    m_waiting.push_back(std::move(settled));
    if (m_stage == Stage::known)
        QMetaObject::invokeMethod(this, &MicrophonePortal::proceed, Qt::QueuedConnection);
}

void MicrophonePortal::proceed() {
    if (m_stage != Stage::known || m_waiting.empty())
        return;
    if (m_status == AuthorizationStatus::NotDetermined)
        ask();
    else
        conclude(m_status);
}

void MicrophonePortal::ask() {
    m_stage = Stage::asking;
    const QDBusConnection bus(m_connectionName);
    const QString token = QStringLiteral("quenda%1").arg(++m_questions);
    QString sender = bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    m_question = kPortalPath + QStringLiteral("/request/") + sender + QLatin1Char('/') + token;
    QDBusMessage call = QDBusMessage::createMethodCall(
        kPortal, kPortalPath, QStringLiteral("org.freedesktop.portal.Device"),
        QStringLiteral("AccessDevice"));
    call << quint32(getpid()) << QStringList(kMicrophone)
         << QVariantMap{{QStringLiteral("handle_token"), token}};
    send(call, m_options.questionLimit, [this, asked = m_question](const QDBusMessage &reply) {
        if (m_stage == Stage::asking && m_question == asked) // not answered already
            questionTaken(reply);
    });
}

void MicrophonePortal::questionTaken(const QDBusMessage &reply) {
    const bool isHandle =
        reply.type() == QDBusMessage::ReplyMessage && reply.signature() == QLatin1String("o") &&
        reply.arguments().constFirst().value<QDBusObjectPath>().path() == m_question;
    if (isHandle)
        return; // the user is being asked
    // The one code means two things: the administrator has locked the microphone, or this portal
    // takes the question only from the sound server, on behalf of programs in a sandbox.
    const bool isLocked =
        reply.errorName() == QLatin1String(kNotAllowed) &&
        !reply.errorMessage().contains(QLatin1String("sandbox"), Qt::CaseInsensitive);
    if (isLocked)
        conclude(AuthorizationStatus::Restricted);
    else
        conclude(std::nullopt);
}

void MicrophonePortal::userAnswered(const QDBusMessage &signal) {
    if (m_question.isEmpty() || signal.path() != m_question)
        return;
    const bool isAnswer = signal.signature() == QLatin1String("ua{sv}");
    const uint code = isAnswer ? signal.arguments().constFirst().toUInt() : 2;
    m_question.clear();
    if (code == 0)
        conclude(AuthorizationStatus::Authorized);
    else if (code == 1)
        conclude(AuthorizationStatus::Denied);
    else // closed without an answer
        conclude(AuthorizationStatus::NotDetermined);
}

void MicrophonePortal::storeChanged(const QDBusMessage &signal) {
    if (signal.signature() != QLatin1String("ssbva{sas}"))
        return;
    const QVariantList arguments = signal.arguments();
    if (arguments.at(0).toString() != kTable || arguments.at(1).toString() != kMicrophone)
        return;
    QStringList record;
    if (const bool deleted = arguments.at(2).toBool(); !deleted)
        record = qdbus_cast<Permissions>(arguments.at(4)).value(m_options.application);
    if (record == m_record)
        return; // news of another program
    m_record = record;
    if (m_stage == Stage::asking)
        conclude(statusOf(record));
    else
        m_status = statusOf(record);
    if (m_stage == Stage::lookingUp) {
        m_stage = Stage::known;
        proceed();
    }
}

void MicrophonePortal::portalChangedHands(const QString &, const QString &before, const QString &) {
    if (m_stage == Stage::asking && !before.isEmpty()) // the question went with it
        conclude(AuthorizationStatus::NotDetermined);
}

void MicrophonePortal::busGone() {
    conclude(std::nullopt);
}

void MicrophonePortal::conclude(std::optional<AuthorizationStatus> status) {
    m_stage = Stage::known;
    m_status = status;
    for (const auto &settled : std::exchange(m_waiting, {}))
        settled();
}

} // namespace quenda
