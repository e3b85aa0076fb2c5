#pragma once
// A supervised child process. Main thread only; the exit handler comes on the main queue. UTF-8.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quenda::mac {

class MacProcess {
public:
    MacProcess();
    MacProcess(const MacProcess &) = delete;
    MacProcess &operator=(const MacProcess &) = delete;
    /// Kills a child that is still running.
    ~MacProcess();

    /// Starts the child with standard output and standard error in `outputFile` (created empty,
    /// readable by the owner only; the null device where it cannot be opened). False with the
    /// system's words in `failure` where it cannot be launched. `onExit` gets the exit code or the
    /// signal's number, once, unless cleared.
    bool launch(const std::string &executable, const std::vector<std::string> &arguments,
                const std::string &outputFile, std::function<void(int)> onExit,
                std::string &failure);

    std::int64_t processId() const;
    bool isRunning() const;
    /// Whether the child has ended and the exit handler, unless cleared, has been called.
    bool hasEnded() const;
    void clearTerminationHandler();
    void terminate(); ///< SIGTERM
    void kill();      ///< SIGKILL

private:
    struct State;
    std::shared_ptr<State> m_state;
};

} // namespace quenda::mac
