#pragma once
// Time as a dependency: what time it is, and what to do later. One real scheduler lives as long as
// the program; tests use one whose clock jumps. Main thread only.

#include <QDateTime>

#include <chrono>
#include <functional>
#include <memory>

class QObject;

namespace quenda {

class Scheduler {
public:
    using Task = std::function<void()>;

    /// Owns one pending or repeating task. Destroying it cancels the task.
    class Timer {
    public:
        Timer() = default;
        Timer(const Timer &) = delete;
        Timer &operator=(const Timer &) = delete;
        virtual ~Timer() = default;
    };
    using TimerHandle = std::unique_ptr<Timer>;

    Scheduler() = default;
    Scheduler(const Scheduler &) = delete;
    Scheduler &operator=(const Scheduler &) = delete;
    virtual ~Scheduler() = default;

    /// The wall clock. It may jump; use it only for what is shown or stored.
    virtual QDateTime now() const = 0;

    /// Time since an arbitrary fixed point; never goes back. Use it to measure durations.
    virtual std::chrono::milliseconds uptime() const = 0;

    /// Runs `task` once, `delay` from now (0: in the next round of the event loop), unless
    /// `context` is gone by then. Tasks with equal due times run in the order of the calls.
    virtual void after(std::chrono::milliseconds delay, const QObject *context, Task task) = 0;

    /// Runs `task` once, `delay` from now, unless the handle is destroyed before.
    [[nodiscard]] virtual TimerHandle once(std::chrono::milliseconds delay, Task task) = 0;

    /// Runs `task` every `interval` until the handle is destroyed. The task may destroy its handle.
    [[nodiscard]] virtual TimerHandle every(std::chrono::milliseconds interval, Task task) = 0;
};

} // namespace quenda
