#include "Fakes/FakeProcessRunner.h"

#include <utility>

namespace quenda::fakes {

class FakeProcessRunner::Handle final : public ChildProcess {
public:
    explicit Handle(std::shared_ptr<Child> child) : m_child(std::move(child)) {}
    qint64 processId() const override { return m_child->processId; }
    void clearTerminationHandler() override { m_child->handlerCleared = true; }
    void terminate() override { m_child->terminated = true; }

private:
    std::shared_ptr<Child> m_child;
};

void FakeProcessRunner::Child::exit(int status) {
    running = false;
    const ExitHandler handler = std::exchange(onExit, {});
    if (handler && !handlerCleared)
        handler(status);
}

Result<std::unique_ptr<ChildProcess>> FakeProcessRunner::launch(const LaunchRequest &request,
                                                                ExitHandler onExit) {
    if (launchError)
        return *launchError;
    auto child = std::make_shared<Child>();
    child->request = request;
    child->processId = 1000 + qint64(children.size());
    child->onExit = std::move(onExit);
    children.push_back(child);
    return std::unique_ptr<ChildProcess>(std::make_unique<Handle>(child));
}

bool FakeProcessRunner::runAndWait(const QString &executable, const QStringList &arguments) {
    commands.append({executable, arguments});
    return !cannotRun;
}

} // namespace quenda::fakes
