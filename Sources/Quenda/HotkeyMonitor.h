#pragma once
// Watches, session-wide, the one modifier key that dictates and, on demand, Escape. It only
// observes. Owned by the controller for the life of the program. Main thread only.

#include "Platform/KeyTap.h"
#include "Platform/Scheduler.h"
#include "Quenda/Config.h"

#include <QObject>

#include <functional>
#include <memory>

namespace quenda {

class HotkeyMonitor : public QObject {
    Q_OBJECT
public:
    HotkeyMonitor(KeyTapFactory &taps, Scheduler &scheduler, QObject *parent = nullptr);
    ~HotkeyMonitor() override;

    HotkeyChoice key = HotkeyChoice::rightOption; ///< a change holds from the next event on
    bool escapeEnabled = false;                   ///< whether Escape presses are reported
    std::function<void()> onPress;
    std::function<void()> onRelease;
    std::function<void()> onEscape;

    /// Installs the tap and its watchdog. False where the system refuses the tap; nothing has
    /// changed then. Stop a running monitor before starting it again.
    bool start();
    /// Removes the tap and the watchdog; safe when not started.
    void stop();

    /// Whether a tap is installed and the system has not switched it off.
    bool isListening() const { return m_eventTap && m_eventTap->isEnabled(); }
    bool keyIsDown() const { return m_keyIsDown; }

private:
    void handle(const KeyEvent &event);
    void callLater(std::function<void()> HotkeyMonitor::*callback);
    void checkTap();

    KeyTapFactory &m_taps;
    Scheduler &m_scheduler;
    std::unique_ptr<KeyTap> m_eventTap;
    Scheduler::TimerHandle m_watchdog;
    bool m_keyIsDown = false;
};

} // namespace quenda
