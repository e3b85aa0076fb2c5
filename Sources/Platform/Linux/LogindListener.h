#pragma once
// Hears from logind, over the system bus, that the machine woke from sleep. Main thread, which
// never waits for the bus: it is first asked for a sign of life and then met on another thread.

#include <QObject>

#include <functional>
#include <memory>

class QLocalSocket;

namespace quenda {

class LogindListener final : public QObject {
    Q_OBJECT
public:
    /// `onWake` is called on the main thread, after each waking up, until stop().
    static std::shared_ptr<LogindListener> create(std::function<void()> onWake);
    ~LogindListener() override;

    /// Connects to the bus and subscribes; returns at once. Where there is no bus, or one that does
    /// not answer, nothing more happens.
    static void listen(const std::shared_ptr<LogindListener> &listener);
    void stop() { m_onWake = nullptr; }

public Q_SLOTS:
    /// The signal of org.freedesktop.login1.Manager: true before sleep, false after it.
    void PrepareForSleep(bool start);

private:
    explicit LogindListener(std::function<void()> onWake);
    static void subscribe(const std::shared_ptr<LogindListener> &listener);

    std::function<void()> m_onWake;
    std::unique_ptr<QLocalSocket> m_signOfLife;
};

} // namespace quenda
