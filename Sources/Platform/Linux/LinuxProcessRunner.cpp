#include "Platform/Linux/LinuxProcessRunner.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QTimer>

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <initializer_list>
#include <utility>
#include <vector>

namespace quenda {

using namespace std::chrono_literals;

namespace {

constexpr auto kStartTimeout = 5s;
constexpr auto kReapTimeout = 2s;

int milliseconds(std::chrono::milliseconds span) {
    return int(span.count());
}

/// A file descriptor, closed with its owner. -1: none.
class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (m_number >= 0)
            ::close(m_number);
    }
    int number() const { return m_number; }

private:
    int m_number;
};

// A new file in place of an existing one, so that an earlier child which is still ending keeps
// writing into its own; this also never follows a link or waits on a pipe that lies there.
int createOutputFile(const QString &path) {
    if (path.isEmpty())
        return -1;
    const QByteArray name = QFile::encodeName(path);
    ::unlink(name.constData());
    return ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC | O_NOFOLLOW,
                  0600);
}

// Runs in the child between fork and exec: system calls only.
void prepareChild(pid_t parent, int output) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) // it died before the kernel knew of our wish
        ::_exit(127);
    // Ctrl-C in a terminal is meant for the program, which ends its children itself.
    ::setpgid(0, 0);
    for (const int signal : {SIGTERM, SIGINT, SIGPIPE})
        ::signal(signal, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (output >= 0) {
        ::dup2(output, STDOUT_FILENO);
        ::dup2(output, STDERR_FILENO);
    }
    // Whatever a library has opened without O_CLOEXEC; older kernels refuse this, harmlessly.
    ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

void prepare(QProcess &process, const QString &executable, const QStringList &arguments,
             int output) {
    // An absolute path: a bare name would be looked up in PATH.
    process.setProgram(QFileInfo(executable).absoluteFilePath());
    process.setArguments(arguments);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setChildProcessModifier(
        [parent = ::getpid(), output] { prepareChild(parent, output); });
}

// What the system would say to executing `path`. Asked beforehand because Qt 6.4 keeps a pipe open
// for every program that it could not execute.
int executionObstacle(const QString &path) {
    const QByteArray name = QFile::encodeName(path);
    struct stat information {};
    if (::stat(name.constData(), &information) != 0 || ::access(name.constData(), X_OK) != 0)
        return errno;
    return S_ISREG(information.st_mode) ? 0 : EACCES;
}

Error startError(const QProcess &process) {
    // Qt puts the name of the failed call before the system's description.
    QString description = process.errorString();
    const qsizetype call = description.indexOf(QLatin1String(": "));
    if (description.startsWith(QLatin1String("exec")) && call > 0)
        description.remove(0, call + 2);
    return {QStringLiteral("QProcess"), int(process.error()), description};
}

/// One child until it is reaped. Deletes itself then.
class RunningChild final : public QObject {
public:
    RunningChild(ProcessRunner::ExitHandler onExit, std::chrono::milliseconds grace,
                 QObject *parent)
        : QObject(parent),
          m_onExit(std::move(onExit)),
          m_grace(grace) {}

    Failure start(const LaunchRequest &request) {
        if (const int obstacle = executionObstacle(request.executable))
            return Error{QStringLiteral("POSIX"), obstacle, qt_error_string(obstacle)};
        const Descriptor output(createOutputFile(request.outputFile));
        prepare(m_process, request.executable, request.arguments, output.number());
        m_process.start();
        if (!m_process.waitForStarted(milliseconds(kStartTimeout)))
            return startError(m_process);
        connect(&m_process, &QProcess::finished, this, [this](int status) { reap(status); });
        return std::nullopt;
    }

    qint64 processId() const { return m_process.processId(); }

    void clearHandler() { m_onExit = {}; }

    void terminate() {
        if (m_killTimer || m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        m_killTimer = new QTimer(this); // a stopped or stubborn child does not heed SIGTERM
        m_killTimer->setSingleShot(true);
        connect(m_killTimer, &QTimer::timeout, &m_process, &QProcess::kill);
        m_killTimer->start(m_grace);
    }

    void kill() { m_process.kill(); }

    bool waitForExit(int timeout) {
        return m_process.state() == QProcess::NotRunning || m_process.waitForFinished(timeout);
    }

private:
    void reap(int status) {
        delete std::exchange(m_killTimer, nullptr);
        setParent(nullptr); // the handler may destroy the runner, and this is inside a signal
        deleteLater();
        if (const auto handler = std::exchange(m_onExit, {}))
            handler(status);
    }

    QProcess m_process;
    ProcessRunner::ExitHandler m_onExit;
    std::chrono::milliseconds m_grace; ///< from SIGTERM to SIGKILL
    QTimer *m_killTimer = nullptr;
};

class Handle final : public ChildProcess {
public:
    explicit Handle(RunningChild *child) : m_child(child), m_processId(child->processId()) {}

    qint64 processId() const override { return m_processId; }
    void clearTerminationHandler() override {
        if (m_child)
            m_child->clearHandler();
    }
    void terminate() override {
        if (m_child)
            m_child->terminate();
    }

private:
    QPointer<RunningChild> m_child;
    qint64 m_processId;
};

// A QProcess must not be destroyed before its child is reaped: it would wait for it, without end
// where the kernel does not let go of the child. Such a one is left behind.
void killAndReap(std::unique_ptr<RunningChild> child, const QDeadlineTimer &deadline) {
    child->clearHandler();
    child->kill();
    if (!child->waitForExit(int(deadline.remainingTime()))) {
        child->setParent(nullptr);
        [[maybe_unused]] const RunningChild *left = child.release();
    }
}

} // namespace

LinuxProcessRunner::LinuxProcessRunner() : LinuxProcessRunner(Limits()) {}

LinuxProcessRunner::LinuxProcessRunner(Limits limits) : m_limits(limits) {}

LinuxProcessRunner::~LinuxProcessRunner() {
    const QDeadlineTimer deadline(kReapTimeout);
    std::vector<std::unique_ptr<RunningChild>> children;
    for (QObject *child : m_children.children())
        children.emplace_back(static_cast<RunningChild *>(child));
    for (const auto &child : children)
        child->kill(); // all first, so that they end side by side
    for (auto &child : children)
        killAndReap(std::move(child), deadline);
}

Result<std::unique_ptr<ChildProcess>> LinuxProcessRunner::launch(const LaunchRequest &request,
                                                                 ExitHandler onExit) {
    auto child =
        std::make_unique<RunningChild>(std::move(onExit), m_limits.terminationGrace, &m_children);
    if (const Failure failure = child->start(request)) {
        killAndReap(std::move(child), QDeadlineTimer(kReapTimeout));
        return *failure;
    }
    return std::unique_ptr<ChildProcess>(std::make_unique<Handle>(child.release()));
}

bool LinuxProcessRunner::runAndWait(const QString &executable, const QStringList &arguments) {
    auto child = std::make_unique<RunningChild>(ExitHandler(), m_limits.terminationGrace, nullptr);
    if (child->start({executable, arguments, {}}))
        return false;
    if (!child->waitForExit(milliseconds(m_limits.run)))
        killAndReap(std::move(child), QDeadlineTimer(kReapTimeout));
    return true;
}

} // namespace quenda
