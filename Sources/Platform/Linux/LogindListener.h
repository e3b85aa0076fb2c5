#pragma once
// Hears from logind, over the system bus, that the machine woke from sleep. Lives on the main
// thread; the bus is met on another one, because a bus that hangs makes its callers wait.

#include <QObject>

#include <functional>
#include <memory>

namespace quenda {

class LogindListener final : public QObject {
    Q_OBJECT
public:
    /// `onWake` is called on the main thread, after each waking up, until stop().
    static std::shared_ptr<LogindListener> create(std::function<void()> onWake);

    /// Connects to the bus and subscribes; returns at once.
    static void listen(const std::shared_ptr<LogindListener> &listener);
    void stop() { m_onWake = nullptr; }

public Q_SLOTS:
    /// The signal of org.freedesktop.login1.Manager: true before sleep, false after it.
    // NOLINTNEXTLINE(readability-identifier-naming)
    void PrepareForSleep(bool start);

private:
    explicit LogindListener(std::function<void()> onWake);

    std::function<void()> m_onWake;
};

} // namespace quenda
