#pragma once
// Wake from sleep, and the two signals that end the program. Main thread only.

#include <functional>
#include <memory>

namespace quenda::mac {

/// SIGTERM, then SIGINT, as dispatch sources on the main queue, with the signals' process
/// disposition set to "ignore".
class SignalSources {
public:
    explicit SignalSources(std::function<void()> handler);
    SignalSources(const SignalSources &) = delete;
    SignalSources &operator=(const SignalSources &) = delete;
    ~SignalSources();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// The workspace's wake notification, on the main operation queue.
class WakeObserver {
public:
    explicit WakeObserver(std::function<void()> handler);
    WakeObserver(const WakeObserver &) = delete;
    WakeObserver &operator=(const WakeObserver &) = delete;
    ~WakeObserver();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace quenda::mac
