#include "Quenda/TimerScheduler.h"

#include <QTimer>

#include <utility>

namespace quenda {

namespace {

// Coarse timers let the kernel group wake-ups; short ones are felt by the user and stay precise.
Qt::TimerType timerType(std::chrono::milliseconds interval) {
    return interval < std::chrono::milliseconds(2000) ? Qt::PreciseTimer : Qt::CoarseTimer;
}

class QtTimer final : public Scheduler::Timer {
public:
    QtTimer(std::chrono::milliseconds interval, bool repeats, Scheduler::Task task) {
        m_timer.setTimerType(timerType(interval));
        m_timer.setInterval(interval);
        m_timer.setSingleShot(!repeats);
        // The task is copied before it runs because it may destroy this timer and itself with it.
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [task = std::move(task)] {
            const Scheduler::Task running = task;
            running();
        });
        m_timer.start();
    }

private:
    QTimer m_timer;
};

} // namespace

TimerScheduler::TimerScheduler() {
    m_started.start();
}

QDateTime TimerScheduler::now() const {
    return QDateTime::currentDateTime();
}

std::chrono::milliseconds TimerScheduler::uptime() const {
    return std::chrono::milliseconds(m_started.elapsed());
}

void TimerScheduler::after(std::chrono::milliseconds delay, const QObject *context, Task task) {
    if (!context)
        return; // like one that is gone by then
    if (delay <= std::chrono::milliseconds(0)) {
        QMetaObject::invokeMethod(const_cast<QObject *>(context), std::move(task),
                                  Qt::QueuedConnection);
        return;
    }
    QTimer::singleShot(delay, timerType(delay), context, std::move(task));
}

Scheduler::TimerHandle TimerScheduler::once(std::chrono::milliseconds delay, Task task) {
    return std::make_unique<QtTimer>(delay, false, std::move(task));
}

Scheduler::TimerHandle TimerScheduler::every(std::chrono::milliseconds interval, Task task) {
    return std::make_unique<QtTimer>(interval, true, std::move(task));
}

} // namespace quenda
