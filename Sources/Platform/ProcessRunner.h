#pragma once
// Child processes. Main thread only; handlers are called on the main thread.

#include "Platform/Error.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

namespace quenda {

/// A running child. Destroying the handle lets the child run on and keeps its exit handler unless
/// that was cleared; the runner still ends it with the program.
class ChildProcess {
public:
    ChildProcess() = default;
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;
    virtual ~ChildProcess() = default;

    virtual qint64 processId() const = 0;
    /// The exit handler will not be called any more.
    virtual void clearTerminationHandler() = 0;
    /// Asks the child to end (SIGTERM) and returns at once; a child that does not follow within
    /// a few seconds is killed.
    virtual void terminate() = 0;
};

struct LaunchRequest {
    QString executable;
    QStringList arguments;
    /// File that takes the child's standard output and standard error, created empty, readable by
    /// the owner only. Where it cannot be opened, or is empty, both go to the null device.
    QString outputFile;
};

class ProcessRunner {
public:
    /// `status`: the exit code, or the number of the signal that ended the child.
    using ExitHandler = std::function<void(int status)>;

    ProcessRunner() = default;
    ProcessRunner(const ProcessRunner &) = delete;
    ProcessRunner &operator=(const ProcessRunner &) = delete;
    /// Kills and reaps every child that is still running.
    virtual ~ProcessRunner() = default;

    /// Starts a child that cannot outlive this process, however this process ends, as far as the
    /// system can promise that. `onExit` is called once, later, unless cleared or the runner is
    /// gone. Fails with the system's description where the program cannot be executed.
    virtual Result<std::unique_ptr<ChildProcess>> launch(const LaunchRequest &request,
                                                         ExitHandler onExit) = 0;

    /// Runs a program and blocks until it has ended. False where it could not be started.
    virtual bool runAndWait(const QString &executable, const QStringList &arguments) = 0;
};

} // namespace quenda
