// With real children. Each is ended through its handle, the runner, or its own process id.
#include "Platform/Linux/LinuxProcessRunner.h"

#include "Fakes/TestMain.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace quenda;
using namespace std::chrono_literals;

namespace {

const auto kShell = QStringLiteral("/bin/sh");
const auto kSleep = QStringLiteral("/bin/sleep");

QStringList script(const QString &commands) {
    return {QStringLiteral("-c"), commands};
}

QByteArray contents(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Lets the event loop run until `done`; false after ten seconds.
bool waitUntil(const std::function<bool()> &done) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > 10000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        ::usleep(1000);
    }
    return true;
}

/// Gone, or a zombie that only its parent can still see.
bool hasEnded(qint64 pid) {
    const QByteArray status = contents(QStringLiteral("/proc/%1/status").arg(pid));
    return status.isEmpty() || status.contains("State:\tZ");
}

/// Reaped as well: no entry is left.
bool isReaped(qint64 pid) {
    return !QFileInfo::exists(QStringLiteral("/proc/%1").arg(pid));
}

bool isStopped(qint64 pid) {
    return contents(QStringLiteral("/proc/%1/status").arg(pid)).contains("State:\tT");
}

qsizetype openDescriptors() {
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::System | QDir::Files).size();
}

class LinuxProcessRunnerTest : public testing::Test {
protected:
    std::unique_ptr<ChildProcess> launch(const QString &executable, const QStringList &arguments,
                                         const QString &outputFile = QString()) {
        Result<std::unique_ptr<ChildProcess>> result = runner->launch(
            {executable, arguments, outputFile}, [this](int status) { exits.push_back(status); });
        if (!result) {
            ADD_FAILURE() << qPrintable(result.error().localizedDescription);
            return nullptr;
        }
        return std::move(result).value();
    }
    bool waitForExits(size_t number) {
        return waitUntil([&] { return exits.size() >= number; });
    }
    /// Runs a child to its end and returns what it wrote.
    QByteArray outputOf(const QString &executable, const QStringList &arguments) {
        const QString file = fakes::testHome() + QStringLiteral("/output");
        const auto child = launch(executable, arguments, file);
        EXPECT_TRUE(waitForExits(exits.size() + 1));
        return contents(file);
    }

    std::unique_ptr<LinuxProcessRunner> runner =
        std::make_unique<LinuxProcessRunner>(LinuxProcessRunner::Limits{500ms, 1s});
    std::vector<int> exits;
};

TEST_F(LinuxProcessRunnerTest, reportsTheExitCodeLater) {
    const auto child = launch(kShell, script(QStringLiteral("exit 7")));
    ::usleep(50000);
    EXPECT_TRUE(exits.empty()); // never from inside launch()
    ASSERT_TRUE(waitForExits(1));
    EXPECT_EQ(exits, std::vector{7});
    EXPECT_TRUE(isReaped(child->processId()));
    child->terminate(); // of no effect any more
    child->clearTerminationHandler();
}

TEST_F(LinuxProcessRunnerTest, reportsTheSignalThatEndedTheChild) {
    const auto child = launch(kSleep, {QStringLiteral("600")});
    ASSERT_GT(child->processId(), 0);
    ::kill(pid_t(child->processId()), SIGKILL);
    ASSERT_TRUE(waitForExits(1));
    const auto other = launch(kShell, script(QStringLiteral("kill -SEGV $$")));
    ASSERT_TRUE(waitForExits(2));
    EXPECT_EQ(exits, (std::vector{SIGKILL, SIGSEGV}));
}

TEST_F(LinuxProcessRunnerTest, terminatesWithSigterm) {
    const auto child = launch(kSleep, {QStringLiteral("600")});
    QElapsedTimer timer;
    timer.start();
    child->terminate();
    child->terminate();
    EXPECT_LT(timer.elapsed(), 400); // it returns at once
    ASSERT_TRUE(waitForExits(1));
    EXPECT_EQ(exits, std::vector{SIGTERM});
}

TEST_F(LinuxProcessRunnerTest, killsAChildThatDoesNotHeedSigterm) {
    const QString file = fakes::testHome() + QStringLiteral("/ready");
    const auto stubborn =
        launch(kShell, script(QStringLiteral("trap '' TERM; echo ready; exec sleep 600")), file);
    const auto stopped = launch(kSleep, {QStringLiteral("600")});
    ASSERT_TRUE(waitUntil([&] { return contents(file) == "ready\n"; }));
    ::kill(pid_t(stopped->processId()), SIGSTOP);
    ASSERT_TRUE(waitUntil([&] { return isStopped(stopped->processId()); }));
    QElapsedTimer timer;
    timer.start();
    stubborn->terminate();
    stopped->terminate();
    ASSERT_TRUE(waitForExits(2));
    EXPECT_GE(timer.elapsed(), 450);
    EXPECT_LT(timer.elapsed(), 3000);
    EXPECT_EQ(LinuxProcessRunner::Limits().terminationGrace, 3s);
    EXPECT_EQ(exits, (std::vector{SIGKILL, SIGKILL}));
}

TEST_F(LinuxProcessRunnerTest, aClearedHandlerIsNotCalled) {
    const auto cleared = launch(kSleep, {QStringLiteral("600")});
    const qint64 pid = cleared->processId();
    cleared->clearTerminationHandler();
    cleared->terminate();
    EXPECT_TRUE(waitUntil([&] { return isReaped(pid); }));
    EXPECT_TRUE(exits.empty());
}

TEST_F(LinuxProcessRunnerTest, aDestroyedHandleLetsTheChildRunOn) {
    const QString leave = fakes::testHome() + QStringLiteral("/leave");
    auto child =
        launch(kShell,
               script(QStringLiteral("until [ -e '%1' ]; do sleep 0.01; done; exit 3").arg(leave)));
    auto terminated = launch(kSleep, {QStringLiteral("600")});
    terminated->terminate();
    terminated.reset();
    const qint64 pid = child->processId();
    child.reset();
    ASSERT_TRUE(waitForExits(1));
    EXPECT_FALSE(hasEnded(pid));
    QFile file(leave);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_TRUE(waitForExits(2));
    EXPECT_EQ(exits, (std::vector{SIGTERM, 3}));
}

TEST_F(LinuxProcessRunnerTest, theHandlerMayStartAnotherAndMayDestroyTheRunner) {
    std::unique_ptr<ChildProcess> second;
    qint64 secondPid = 0;
    bool destroyed = false;
    auto first = runner->launch({kShell, script(QStringLiteral("exit 1")), {}}, [&](int) {
        second = launch(kSleep, {QStringLiteral("600")});
        secondPid = second->processId();
        runner.reset();
        destroyed = true;
    });
    ASSERT_TRUE(first.ok());
    ASSERT_TRUE(waitUntil([&] { return destroyed; }));
    EXPECT_TRUE(isReaped(secondPid));
    second->terminate(); // a handle may outlive the runner
    EXPECT_TRUE(exits.empty());
}

TEST_F(LinuxProcessRunnerTest, itsEndKillsAndReapsEveryChild) {
    std::vector<std::unique_ptr<ChildProcess>> children;
    children.push_back(launch(kSleep, {QStringLiteral("600")}));
    children.push_back(launch(kSleep, {QStringLiteral("600")}));
    children.push_back(
        launch(kShell, script(QStringLiteral("trap '' TERM; sleep 0.2; exec sleep 600"))));
    ::kill(pid_t(children[0]->processId()), SIGSTOP);
    children[1]->terminate();
    const qint64 abandoned = children[1]->processId();
    children.erase(children.begin() + 1);
    QElapsedTimer timer;
    timer.start();
    runner.reset();
    EXPECT_LT(timer.elapsed(), 1500);
    EXPECT_TRUE(isReaped(abandoned));
    for (const auto &child : children)
        EXPECT_TRUE(isReaped(child->processId()));
    QCoreApplication::processEvents();
    EXPECT_TRUE(exits.empty());
}

TEST_F(LinuxProcessRunnerTest, aChildDoesNotOutliveAKilledParent) {
    QProcess parent;
    parent.start(QStringLiteral(PARENT_PROGRAM), {});
    ASSERT_TRUE(parent.waitForReadyRead(10000)) << qPrintable(parent.errorString());
    const qint64 pid = parent.readLine().trimmed().toLongLong();
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(contents(QStringLiteral("/proc/%1/cmdline").arg(pid)).startsWith("/bin/sleep"));
    EXPECT_FALSE(hasEnded(pid));
    parent.kill(); // SIGKILL: the parent gets no chance to tidy up
    ASSERT_TRUE(parent.waitForFinished(10000));
    EXPECT_TRUE(waitUntil([&] { return hasEnded(pid); }));
}

TEST_F(LinuxProcessRunnerTest, aChildStartsWithDefaultSignalsAndAnEmptyMask) {
    for (const int number : {SIGTERM, SIGINT, SIGPIPE})
        ::signal(number, SIG_IGN);
    sigset_t blocked;
    sigset_t previous;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::sigaddset(&blocked, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    const QByteArray output =
        outputOf(QStringLiteral("/bin/grep"),
                 {QStringLiteral("^Sig[BI]"), QStringLiteral("/proc/self/status")});
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    for (const int number : {SIGTERM, SIGINT})
        ::signal(number, SIG_DFL); // SIGPIPE stays ignored: so Qt wants it

    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("SigBlk:\\s*(\\w+)\\nSigIgn:\\s*(\\w+)\\n"))
            .match(QString::fromLatin1(output));
    ASSERT_TRUE(match.hasMatch()) << output.constData();
    EXPECT_EQ(match.captured(1).toULongLong(nullptr, 16), 0u);
    const quint64 ignored = match.captured(2).toULongLong(nullptr, 16);
    for (const int number : {SIGTERM, SIGINT, SIGPIPE})
        EXPECT_EQ(ignored >> (number - 1) & 1, 0u) << number;
}

TEST_F(LinuxProcessRunnerTest, aChildInheritsNoDescriptorAndReadsNothing) {
    const int leaky = ::open("/dev/null", O_RDONLY); // without O_CLOEXEC, as some libraries do
    ASSERT_GE(leaky, 0);
    const QByteArray listing = outputOf(QStringLiteral("/bin/ls"),
                                        {QStringLiteral("-l"), QStringLiteral("/proc/self/fd")});
    ::close(leaky);
    EXPECT_EQ(listing.count(" -> "), 4) << listing.constData(); // the fourth is the folder itself
    EXPECT_TRUE(listing.contains(" 0 -> /dev/null\n")) << listing.constData();
    EXPECT_EQ(outputOf(QStringLiteral("/usr/bin/wc"), {QStringLiteral("-c")}), "0\n");
}

TEST_F(LinuxProcessRunnerTest, aChildHasAProcessGroupOfItsOwn) {
    const QByteArray group =
        outputOf(QStringLiteral("/usr/bin/cut"),
                 {QStringLiteral("-d "), QStringLiteral("-f5"), QStringLiteral("/proc/self/stat")});
    EXPECT_GT(group.trimmed().toLongLong(), 0);
    EXPECT_NE(group.trimmed().toLongLong(), ::getpgrp()); // Ctrl-C in our terminal is not for it
}

TEST_F(LinuxProcessRunnerTest, bothOutputsGoToANewPrivateFile) {
    const QString file = fakes::testHome() + QStringLiteral("/server.log");
    QFile old(file);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write("something longer that an earlier server has written\n");
    old.flush();
    old.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);

    const auto child =
        launch(kShell, script(QStringLiteral("echo one; echo two >&2; echo three")), file);
    struct stat information {};
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &information), 0);
    EXPECT_EQ(information.st_mode & 07777, 0600u);
    ASSERT_TRUE(waitForExits(1));
    EXPECT_EQ(contents(file), "one\ntwo\nthree\n");
    old.write("late words of the earlier server\n");
    old.close();
    EXPECT_EQ(contents(file), "one\ntwo\nthree\n");
}

TEST_F(LinuxProcessRunnerTest, anOutputFileThatCannotBeOpenedIsTheNullDevice) {
    for (const QString &file : {fakes::testHome() + QStringLiteral("/no such folder/log"),
                                fakes::testHome() /* a folder */, QString()}) {
        const QString told = fakes::testHome() + QStringLiteral("/told");
        const auto child = launch(
            kShell,
            script(QStringLiteral(
                       "names=$(readlink /proc/$$/fd/1 /proc/$$/fd/2); echo \"$names\" > '%1'")
                       .arg(told)),
            file);
        ASSERT_TRUE(waitForExits(1));
        EXPECT_EQ(contents(told), "/dev/null\n/dev/null\n");
        EXPECT_EQ(exits, std::vector{0});
        exits.clear();
    }
}

TEST_F(LinuxProcessRunnerTest, anOutputFileThatIsALinkIsReplacedNotFollowed) {
    const QString target = fakes::testHome() + QStringLiteral("/precious");
    const QString link = fakes::testHome() + QStringLiteral("/log");
    QFile precious(target);
    ASSERT_TRUE(precious.open(QIODevice::WriteOnly));
    precious.write("precious");
    precious.close();
    ASSERT_TRUE(QFile::link(target, link));
    const auto child = launch(kShell, script(QStringLiteral("echo new")), link);
    ASSERT_TRUE(waitForExits(1));
    EXPECT_EQ(contents(target), "precious");
    EXPECT_EQ(contents(link), "new\n");
}

TEST_F(LinuxProcessRunnerTest, argumentsAreNotInterpreted) {
    EXPECT_EQ(outputOf(QStringLiteral("/usr/bin/printf"),
                       {QStringLiteral("%s|"), QStringLiteral("a b"), QStringLiteral("$(id);'\""),
                        QString(), QStringLiteral("ü")}),
              QStringLiteral("a b|$(id);'\"||ü|").toUtf8());
}

TEST_F(LinuxProcessRunnerTest, saysWhyAProgramCannotBeStarted) {
    const QString plain = fakes::testHome() + QStringLiteral("/plain");
    const QString broken = fakes::testHome() + QStringLiteral("/broken");
    for (const QString &path : {plain, broken}) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("neither a program nor a script");
        file.setPermissions(path == broken ? QFile::ReadOwner | QFile::ExeOwner : QFile::ReadOwner);
    }
    const auto reasonOf = [this](const QString &executable) {
        const auto result =
            runner->launch({executable, {}, fakes::testHome() + QStringLiteral("/log")},
                           [this](int status) { exits.push_back(status); });
        return result.ok() ? std::string("none")
                           : result.error().localizedDescription.toStdString();
    };
    EXPECT_EQ(reasonOf(broken), "Exec format error");
    const qsizetype descriptors = openDescriptors();
    EXPECT_EQ(reasonOf(fakes::testHome() + QStringLiteral("/missing")),
              "No such file or directory");
    EXPECT_EQ(reasonOf(plain), "Permission denied");
    EXPECT_EQ(reasonOf(fakes::testHome()), "Permission denied");
    EXPECT_EQ(reasonOf(QStringLiteral("sleep")), "No such file or directory"); // no search in PATH
    QCoreApplication::processEvents();
    EXPECT_TRUE(exits.empty());
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(LinuxProcessRunnerTest, manyLaunchesLeaveNothingBehind) {
    const QString log = fakes::testHome() + QStringLiteral("/log");
    launch(QStringLiteral("/bin/true"), {}, log); // what Qt sets up once is set up now
    ASSERT_TRUE(waitForExits(1));
    const qsizetype descriptors = openDescriptors();
    std::vector<qint64> pids;
    for (int i = 0; i < 100; ++i)
        pids.push_back(launch(QStringLiteral("/bin/true"), {}, log)->processId());
    ASSERT_TRUE(waitForExits(101));
    EXPECT_EQ(exits, std::vector<int>(101, 0));
    for (const qint64 pid : pids)
        EXPECT_TRUE(isReaped(pid));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(LinuxProcessRunnerTest, runAndWaitReturnsWhenTheProgramHasEnded) {
    const QString file = fakes::testHome() + QStringLiteral("/done");
    EXPECT_TRUE(runner->runAndWait(
        kShell, script(QStringLiteral("sleep 0.2; echo done > '%1'; exit 1").arg(file))));
    EXPECT_EQ(contents(file), "done\n");
    EXPECT_FALSE(runner->runAndWait(fakes::testHome() + QStringLiteral("/missing"), {}));
}

TEST_F(LinuxProcessRunnerTest, runAndWaitDoesNotWaitForEver) {
    const QString file = fakes::testHome() + QStringLiteral("/pid");
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(runner->runAndWait(
        kShell, script(QStringLiteral("trap '' TERM; echo $$ > '%1'; exec sleep 600").arg(file))));
    EXPECT_GE(timer.elapsed(), 950);
    EXPECT_LT(timer.elapsed(), 4000);
    EXPECT_EQ(LinuxProcessRunner::Limits().run, 5s);
    const qint64 pid = contents(file).trimmed().toLongLong();
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(isReaped(pid));
}

// What the loop has in store for other children does not reach them from inside a blocking run.
TEST_F(LinuxProcessRunnerTest, runAndWaitDeliversNoOtherExit) {
    const auto child = launch(kShell, script(QStringLiteral("exit 4")));
    EXPECT_TRUE(runner->runAndWait(kSleep, {QStringLiteral("0.2")}));
    EXPECT_TRUE(exits.empty());
    ASSERT_TRUE(waitForExits(1));
    EXPECT_EQ(exits, std::vector{4});
}

} // namespace
