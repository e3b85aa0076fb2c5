#include "Quenda/HotkeyMonitor.h"

#include "Quenda/Log.h"

#include <utility>

namespace quenda {

namespace {

constexpr std::chrono::milliseconds kWatchdogInterval{30000};

struct WatchedKey {
    int keyCode;
    std::uint64_t flag;
};

WatchedKey watchedKey(HotkeyChoice choice) {
    switch (choice) {
    case HotkeyChoice::rightOption:
        return {keys::kRightOption, keys::kFlagAlternate};
    case HotkeyChoice::rightCommand:
        return {keys::kRightCommand, keys::kFlagCommand};
    case HotkeyChoice::rightControl:
        return {keys::kRightControl, keys::kFlagControl};
    case HotkeyChoice::fnGlobe:
        return {keys::kFnGlobe, keys::kFlagSecondaryFn};
    }
    Q_UNREACHABLE();
}

} // namespace

HotkeyMonitor::HotkeyMonitor(KeyTapFactory &taps, Scheduler &scheduler, QObject *parent)
    : QObject(parent),
      m_taps(taps),
      m_scheduler(scheduler) {}

HotkeyMonitor::~HotkeyMonitor() = default;

bool HotkeyMonitor::start() {
    std::unique_ptr<KeyTap> tap =
        m_taps.createTap([this](const KeyEvent &event) { handle(event); });
    if (!tap)
        return false;
    m_eventTap = std::move(tap);
    m_eventTap->setEnabled(true);
    m_watchdog = m_scheduler.every(kWatchdogInterval, [this] { checkTap(); });
    return true;
}

void HotkeyMonitor::stop() {
    m_watchdog.reset();
    if (m_eventTap)
        m_eventTap->setEnabled(false);
    m_eventTap.reset();
}

// Runs for every key press of the session: integer tests and at most one posted call.
void HotkeyMonitor::handle(const KeyEvent &event) {
    switch (event.type) {
    case KeyEvent::Type::TapDisabledByTimeout:
    case KeyEvent::Type::TapDisabledByUserInput:
        if (m_eventTap)
            m_eventTap->setEnabled(true);
        return;
    case KeyEvent::Type::KeyDown:
        if (escapeEnabled && event.keyCode == keys::kEscape)
            callLater(&HotkeyMonitor::onEscape);
        return;
    case KeyEvent::Type::FlagsChanged:
        break;
    default:
        return;
    }

    const WatchedKey watched = watchedKey(key);
    if (event.keyCode != watched.keyCode)
        return;
    // The flag does not tell the sides apart; the key code has done that.
    const bool down = (event.flags & watched.flag) != 0;
    if (down == m_keyIsDown)
        return;
    m_keyIsDown = down;
    callLater(down ? &HotkeyMonitor::onPress : &HotkeyMonitor::onRelease);
}

// Never from inside the tap's call, so that a callback may stop or restart the monitor.
void HotkeyMonitor::callLater(std::function<void()> HotkeyMonitor::*callback) {
    m_scheduler.after(std::chrono::milliseconds(0), this, [this, callback] {
        const std::function<void()> current = this->*callback;
        if (current)
            current();
    });
}

void HotkeyMonitor::checkTap() {
    if (!m_eventTap || m_eventTap->isEnabled())
        return;
    m_eventTap->setEnabled(true);
    if (m_eventTap->isEnabled()) {
        Log::log(u"hotkey: event tap was disabled \u2014 re-enabled"_qs);
        return;
    }
    Log::log(u"hotkey: event tap dead \u2014 recreating"_qs);
    stop();
    start();
}

} // namespace quenda
