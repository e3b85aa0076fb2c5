#pragma once
// News of the session: the wish to end the program (SIGTERM, SIGINT), and that the machine woke
// from sleep (logind, where there is one). One instance. Main thread only; neither signals nor the
// system bus ever make it wait.

#include "Platform/Desktop.h"

#include <QObject>

#include <memory>

class QSocketNotifier;

namespace quenda {

class LogindListener;

class LinuxSessionEvents final : public QObject, public SessionEvents {
public:
    LinuxSessionEvents();
    /// Gives both signals back the effect that they had before.
    ~LinuxSessionEvents() override;

    /// The first call begins listening to logind, a moment later and on a thread of its own until
    /// the bus has answered. Without a bus or logind the handler is never called.
    void setWakeHandler(std::function<void()> handler) override;
    void setTerminateHandler(std::function<void()> handler) override;

private:
    void readSignals();

    std::function<void()> m_onWake;
    std::function<void()> m_onTerminate;
    std::unique_ptr<QSocketNotifier> m_signals;
    std::shared_ptr<LogindListener> m_logind;
};

} // namespace quenda
