#pragma once
// A scheduler whose clock only moves when a test says so. Tasks run inside advance() and
// runPending(), in the order of their due times, equal ones in the order of the calls.

#include "Platform/Scheduler.h"

#include <QPointer>

#include <vector>

namespace quenda::fakes {

class VirtualScheduler final : public Scheduler {
public:
    VirtualScheduler();
    ~VirtualScheduler() override;

    QDateTime now() const override {
        return m_wallStart.addMSecs(m_wallShift.count() + m_uptime.count());
    }
    std::chrono::milliseconds uptime() const override { return m_uptime; }
    void after(std::chrono::milliseconds delay, const QObject *context, Task task) override;
    TimerHandle once(std::chrono::milliseconds delay, Task task) override;
    TimerHandle every(std::chrono::milliseconds interval, Task task) override;

    /// Moves the clock on by `span`, running what falls due on the way.
    void advance(std::chrono::milliseconds span);
    /// Runs what is due now, and what that makes due now.
    void runPending() { advance(std::chrono::milliseconds(0)); }
    /// Makes the wall clock jump without time passing.
    void jumpWallClock(std::chrono::milliseconds by) { m_wallShift += by; }
    /// Repeating timers that are alive.
    int repeatingTimers() const;
    /// Their intervals, the shortest first.
    std::vector<std::chrono::milliseconds> repeatingIntervals() const;
    /// One-shot tasks and timers that have not run yet.
    int pendingOneShots() const;

private:
    struct Entry;
    class Handle;
    std::shared_ptr<Entry> add(std::chrono::milliseconds delay, Task task);
    std::shared_ptr<Entry> nextDue(std::chrono::milliseconds until) const;

    QDateTime m_wallStart;
    std::chrono::milliseconds m_wallShift{0};
    std::chrono::milliseconds m_uptime{1000};
    long long m_order = 0;
    std::vector<std::shared_ptr<Entry>> m_entries;
};

} // namespace quenda::fakes
