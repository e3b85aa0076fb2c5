#pragma once
// Records what would have been started, and lets tests end it.

#include "Platform/ProcessRunner.h"

#include <QPair>

#include <memory>
#include <vector>

namespace quenda::fakes {

class FakeProcessRunner final : public ProcessRunner {
public:
    struct Child {
        LaunchRequest request;
        qint64 processId = 0;
        bool terminated = false;     ///< terminate() was called
        bool handlerCleared = false; ///< clearTerminationHandler() was called
        bool running = true;
        ExitHandler onExit;

        /// The child ends; the exit handler is called unless it was cleared.
        void exit(int status);
    };

    Result<std::unique_ptr<ChildProcess>> launch(const LaunchRequest &request,
                                                 ExitHandler onExit) override;
    bool runAndWait(const QString &executable, const QStringList &arguments) override;

    std::optional<Error> launchError;
    bool cannotRun = false; ///< runAndWait answers false
    std::vector<std::shared_ptr<Child>> children;
    QList<QPair<QString, QStringList>> commands; ///< of runAndWait

private:
    class Handle;
};

} // namespace quenda::fakes
