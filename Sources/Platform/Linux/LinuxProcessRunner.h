#pragma once
// Child processes on Linux. One instance, in the platform; main thread only. A child is tied to
// this process by the kernel (PR_SET_PDEATHSIG), which watches the *thread* that started it: that
// is the main thread, which lives as long as the process.

#include "Platform/ProcessRunner.h"

#include <QObject>

#include <chrono>

namespace quenda {

class LinuxProcessRunner final : public ProcessRunner {
public:
    struct Limits {
        /// From SIGTERM to SIGKILL.
        std::chrono::milliseconds terminationGrace{3000};
        /// How long runAndWait() lets a program run.
        std::chrono::milliseconds run{5000};
    };

    LinuxProcessRunner();
    explicit LinuxProcessRunner(Limits limits);
    /// Waits at most two seconds for the killed children; the kernel may keep one that hangs in a
    /// dead file system, and then its entry is left to it.
    ~LinuxProcessRunner() override;

    Result<std::unique_ptr<ChildProcess>> launch(const LaunchRequest &request,
                                                 ExitHandler onExit) override;
    /// As the interface says, but a program that is still running after the limit is killed: the
    /// caller is the main thread.
    bool runAndWait(const QString &executable, const QStringList &arguments) override;

private:
    Limits m_limits;
    QObject m_children; // parent of every child that has not been reaped
};

} // namespace quenda
