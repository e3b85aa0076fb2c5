// Windows, and the permission that the dictation key needs.

#include "Quenda/Alerts.h"
#include "Quenda/AppDelegate.h"

#include <QPointer>

namespace quenda {

namespace {
constexpr std::chrono::milliseconds kTrustPoll{3000};
constexpr int kStaleEntryCheck = 15; // failed checks until a stale permission entry is suspected
} // namespace

void AppDelegate::ensureAccessibilityAndStartHotkey() {
    const TrustPrompt prompt = m_axPollCount == 0 ? TrustPrompt::Ask : TrustPrompt::Silent;
    if (m_env.platform.accessibility->isTrusted(prompt)) {
        startHotkey();
        return;
    }
    ++m_axPollCount;
    if (m_axPollCount == kStaleEntryCheck) {
        showAlert(*m_env.platform.workspace, tr("Accessibility permission needs a reset"),
                  tr("If Quenda already shows as enabled in System Settings → Privacy & Security → "
                     "Accessibility, that entry belongs to an older build. Select Quenda in the "
                     "list, remove it with the − button, then relaunch Quenda and enable the fresh "
                     "entry it creates."));
    }
    m_env.scheduler.after(kTrustPoll, this, [this] { ensureAccessibilityAndStartHotkey(); });
}

void AppDelegate::startHotkey() {
    const QPointer<AppDelegate> self(this);
    const auto weakly = [self](void (AppDelegate::*handler)()) {
        return [self, handler] {
            if (self)
                (self->*handler)();
        };
    };
    m_hotkey->onPress = weakly(&AppDelegate::hotkeyPressed);
    m_hotkey->onRelease = weakly(&AppDelegate::hotkeyReleased);
    m_hotkey->onEscape = weakly(&AppDelegate::escapePressed);
    if (!m_hotkey->start()) {
        showAlert(*m_env.platform.workspace, tr("Could not listen for the hotkey"),
                  tr("Quenda could not create its keyboard listener. Make sure it is enabled in "
                     "System Settings → Privacy & Security → Accessibility, then relaunch."));
    }
    refreshStatus();
}

} // namespace quenda
