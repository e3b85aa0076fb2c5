// Signals and the wake-up of the machine, with a bus of one's own in place of the system's. Run it
// by with-x-server.

#include "Platform/Linux/LinuxSessionEvents.h"

#include "EventLoopWait.h"
#include "Platform/Linux/BusSignOfLife.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QProcess>

#include <gtest/gtest.h>

#include <csignal>

namespace quenda {

namespace {

const QString kLogind = QStringLiteral("org.freedesktop.login1");

TEST(LinuxSessionEventsTest, ReportsEachSignalOutsideTheSignalHandler) {
    LinuxSessionEvents session;
    int ended = 0;
    session.setTerminateHandler([&ended] { ++ended; });
    raise(SIGTERM);
    EXPECT_EQ(ended, 0);
    EXPECT_TRUE(waitUntil([&] { return ended == 1; }));
    raise(SIGINT);
    raise(SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return ended == 3; }));
    pass(20);
    EXPECT_EQ(ended, 3);
}

TEST(LinuxSessionEventsTest, ALaterHandlerReplacesTheEarlierAndAnEmptyOneIgnores) {
    LinuxSessionEvents session;
    int first = 0;
    int second = 0;
    session.setTerminateHandler([&first] { ++first; });
    session.setTerminateHandler([&second] { ++second; });
    raise(SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return second == 1; }));
    EXPECT_EQ(first, 0);
    session.setTerminateHandler({});
    raise(SIGTERM);
    pass(20);
    EXPECT_EQ(second, 1);
}

TEST(LinuxSessionEventsTest, TheHandlerMayReplaceItself) {
    LinuxSessionEvents session;
    int ended = 0;
    session.setTerminateHandler([&] {
        ++ended;
        session.setTerminateHandler([&ended] { ended += 10; });
    });
    raise(SIGTERM);
    raise(SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return ended == 11; }));
}

TEST(LinuxSessionEventsTest, SignalsHaveTheirFormerEffectAfterwards) {
    struct sigaction before {};
    sigaction(SIGTERM, nullptr, &before);
    {
        LinuxSessionEvents session;
        session.setTerminateHandler([] {});
    }
    struct sigaction after {};
    sigaction(SIGTERM, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}

TEST(LinuxSessionEventsTest, ChildrenStartWithBothSignalsAtTheirDefaults) {
    LinuxSessionEvents session;
    int ended = 0;
    session.setTerminateHandler([&ended] { ++ended; });
    for (const int signal : {SIGTERM, SIGINT}) {
        QProcess child;
        child.start(QStringLiteral("sleep"), {QStringLiteral("30")});
        ASSERT_TRUE(child.waitForStarted());
        kill(pid_t(child.processId()), signal);
        ASSERT_TRUE(child.waitForFinished(3000)) << "signal " << signal << " had no effect";
        EXPECT_EQ(child.exitStatus(), QProcess::CrashExit);
        EXPECT_EQ(child.exitCode(), signal);
    }
    pass(20);
    EXPECT_EQ(ended, 0);
}

// Stands for logind on the bus.
class Logind {
public:
    explicit Logind(const QString &name)
        : m_bus(QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"),
                                              name)) {}
    ~Logind() { QDBusConnection::disconnectFromBus(m_bus.name()); }
    bool takeName() { return m_bus.registerService(kLogind); }
    bool prepareForSleep(bool start) {
        QDBusMessage signal = QDBusMessage::createSignal(
            QStringLiteral("/org/freedesktop/login1"),
            QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"));
        signal << start;
        return m_bus.send(signal);
    }

private:
    QDBusConnection m_bus;
};

TEST(LinuxSessionEventsTest, HearsTheMachineWakeUp) {
    ASSERT_FALSE(qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"));
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", qgetenv("DBUS_SESSION_BUS_ADDRESS"));
    Logind logind(QStringLiteral("logind"));
    ASSERT_TRUE(logind.takeName());
    Logind impostor(QStringLiteral("impostor"));

    LinuxSessionEvents session;
    int woken = 0;
    session.setWakeHandler([&woken] { ++woken; });
    ASSERT_TRUE(waitUntil([&] { // it connects a moment later
        logind.prepareForSleep(false);
        pass(50);
        return woken > 0;
    }));
    pass(100);
    woken = 0;
    logind.prepareForSleep(true);
    pass(100);
    EXPECT_EQ(woken, 0) << "going to sleep is not waking up";
    logind.prepareForSleep(false);
    EXPECT_TRUE(waitUntil([&] { return woken == 1; }));
    impostor.prepareForSleep(false);
    pass(100);
    EXPECT_EQ(woken, 1) << "not from logind";

    int other = 0;
    session.setWakeHandler([&other] { ++other; });
    logind.prepareForSleep(false);
    EXPECT_TRUE(waitUntil([&] { return other == 1; }));
    EXPECT_EQ(woken, 1);
}

TEST(LinuxSessionEventsTest, WithoutABusItNeitherWaitsNorComplains) {
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    LinuxSessionEvents session;
    QElapsedTimer timer;
    timer.start();
    session.setWakeHandler([] {});
    EXPECT_LT(timer.elapsed(), 50);
    pass(700);
}

TEST(LinuxSessionEventsTest, ABusThatHangsIsLeftAlone) {
    QProcess bus;
    bus.start(QStringLiteral("dbus-daemon"),
              {QStringLiteral("--session"), QStringLiteral("--nofork"),
               QStringLiteral("--print-address=1")});
    ASSERT_TRUE(bus.waitForReadyRead(5000));
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus.readAllStandardOutput().trimmed());
    kill(pid_t(bus.processId()), SIGSTOP);
    LinuxSessionEvents session;
    session.setWakeHandler([] {});
    pass(1000);
    // Qt's bus thread serves all connections of the program, one after the other; the end of the
    // program waits for it as well. Were it busy with the bus that hangs, this would never return.
    Logind other(QStringLiteral("other"));
    EXPECT_TRUE(other.prepareForSleep(false));
    bus.kill();
    bus.waitForFinished(5000);
}

TEST(BusSocketTest, IsFoundInTheAddress) {
    bool abstract = true;
    EXPECT_EQ(busSocket("unix:path=/run/bus", abstract), QStringLiteral("/run/bus"));
    EXPECT_FALSE(abstract);
    EXPECT_EQ(busSocket("unix:abstract=/tmp/dbus-x,guid=01", abstract),
              QStringLiteral("/tmp/dbus-x"));
    EXPECT_TRUE(abstract);
    EXPECT_EQ(busSocket("tcp:host=h,port=1;unix:guid=0,path=/a%20b", abstract),
              QStringLiteral("/a b"));
    EXPECT_FALSE(abstract);
    for (const auto *none : {"", "unix:", "unix:path", "tcp:host=h", ";;", "unix:=/x"})
        EXPECT_EQ(busSocket(none, abstract), QString()) << none;
}

} // namespace

} // namespace quenda
