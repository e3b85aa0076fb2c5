#pragma once
// The real scheduler: the event loop's timers. One instance, built by the entry point.
// Main thread only.

#include "Platform/Scheduler.h"

#include <QElapsedTimer>

namespace quenda {

class TimerScheduler final : public Scheduler {
public:
    TimerScheduler();

    QDateTime now() const override;
    std::chrono::milliseconds uptime() const override;
    void after(std::chrono::milliseconds delay, const QObject *context, Task task) override;
    TimerHandle once(std::chrono::milliseconds delay, Task task) override;
    TimerHandle every(std::chrono::milliseconds interval, Task task) override;

private:
    QElapsedTimer m_started;
};

} // namespace quenda
