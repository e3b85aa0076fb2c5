// The three windows, the permission that the dictation key needs, the first model, and updates.

#include "Quenda/AboutView.h"
#include "Quenda/Alerts.h"
#include "Quenda/AppDelegate.h"
#include "Quenda/Log.h"
#include "Quenda/MenuText.h"
#include "Quenda/ModelCatalog.h"
#include "Quenda/ModelDownloader.h"
#include "Quenda/ProductSite.h"
#include "Quenda/SettingsView.h"
#include "Quenda/Trace.h"
#include "Quenda/UpdateChecker.h"
#include "Quenda/WelcomeView.h"
#include "Quenda/WindowFrame.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QPointer>
#include <QSettings>

namespace quenda {

namespace {
constexpr std::chrono::milliseconds kTrustPoll{3000};
constexpr int kStaleEntryCheck = 15; // failed checks until a stale permission entry is suspected
constexpr std::chrono::milliseconds kUpdateAnswer{2500};
const QString kSeenWelcomeKey = QStringLiteral("hasSeenWelcome");
const QString kToldKeyReachKey = QStringLiteral("toldWhereToBindTheKey");
} // namespace

void AppDelegate::ensureAccessibilityAndStartHotkey() {
    const TrustPrompt prompt = m_axPollCount == 0 ? TrustPrompt::Ask : TrustPrompt::Silent;
    if (m_env.platform.accessibility->isTrusted(prompt)) {
        startHotkey();
        return;
    }
    if (keyReach() == KeyReach::Nowhere)
        return; // no permission will ever change that
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

KeyReach AppDelegate::keyReach() {
    if (!m_keyReach)
        m_keyReach = m_env.platform.keyTaps->reach();
    return *m_keyReach;
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
    } else {
        Trace::mark("armed");
    }
    refreshStatus();
}

void AppDelegate::runFirstLaunchFlowIfNeeded() {
    const Config &config = m_store->config();
    if (config.provider != TranscriptionProvider::local)
        return;
    const bool modelExists = QFile::exists(config.modelPath);
    const QStringList files = QDir(Config::modelsDir()).entryList(QDir::Files | QDir::Hidden);
    for (const QString &file : files) {
        if (file.endsWith(QStringLiteral(".bin")))
            return;
    }
    if (!modelExists)
        m_downloader->download(WhisperModel::compact());
}

void AppDelegate::chooseFirstWindow() {
    if (!m_env.defaults.value(kSeenWelcomeKey).toBool()) {
        m_env.defaults.setValue(kSeenWelcomeKey, true);
        m_env.defaults.sync(); // a crash from here on must not show it again
        openWelcome();
        tellOnceWhereToBind();
        return;
    }
    tellOnceWhereToBind();
    const bool microphone =
        m_env.platform.microphonePermission->status() == AuthorizationStatus::Authorized;
    const bool listening =
        keyReach() == KeyReach::Nowhere || m_env.platform.accessibility->isTrusted();
    if (!microphone || !listening)
        openSettings();
}

// Where no program hears keys in the background, the desktop can still start one for a key.
void AppDelegate::tellOnceWhereToBind() {
    if (keyReach() == KeyReach::Everywhere)
        return;
    Log::log(QStringLiteral("hotkey: this session lets no program hear the key everywhere"));
    if (m_env.defaults.value(kToldKeyReachKey).toBool())
        return;
    m_env.defaults.setValue(kToldKeyReachKey, true);
    m_env.defaults.sync();
    QString text =
        tr("This session does not let programs listen for a key in the background. Bind "
           "a key to “quenda toggle” in the keyboard settings of the desktop instead: it "
           "begins a dictation, and ends it when pressed again.");
    const QString advice = m_env.platform.workspace->keyBindingAdvice();
    if (!advice.isEmpty())
        text += QStringLiteral("\n\n") + advice;
    showAlert(*m_env.platform.workspace, tr("The dictation key cannot be heard here"), text);
}

void AppDelegate::openWelcome() {
    if (!m_welcomeWindow) {
        m_welcomeWindow = std::make_unique<WelcomeView>(
            WelcomeView::Environment{*m_store, *m_downloader, *m_fixer, m_env.platform,
                                     m_env.scheduler, [self = QPointer<AppDelegate>(this)] {
                                         if (self)
                                             self->m_welcomeWindow->close();
                                     }});
        frameWindow(*m_welcomeWindow, tr("Welcome to Quenda"));
    }
    presentWindow(*m_welcomeWindow);
}

void AppDelegate::openSettings() {
    if (!m_settingsWindow) {
        m_settingsWindow = std::make_unique<SettingsView>(
            SettingsView::Environment{*m_store, engine(), *m_downloader, *m_fixer, m_env.platform,
                                      m_env.scheduler, [self = QPointer<AppDelegate>(this)] {
                                          if (self)
                                              self->restartEngine();
                                      }});
        frameWindow(*m_settingsWindow, tr("Quenda Settings"),
                    QSize(SettingsView::kContentWidth, SettingsView::kContentHeight));
    }
    presentWindow(*m_settingsWindow);
}

void AppDelegate::openAbout() {
    if (!m_aboutWindow) {
        m_aboutWindow =
            std::make_unique<AboutView>(*m_env.platform.bundle, *m_env.platform.workspace);
        frameWindow(*m_aboutWindow, tr("About Quenda"));
    }
    presentWindow(*m_aboutWindow);
}

void AppDelegate::installUpdateCallback() {
    m_updateChecker->onUpdateFound =
        [self = QPointer<AppDelegate>(this)](const UpdateChecker::Available &available) {
            if (self)
                self->showUpdate(available);
        };
}

void AppDelegate::showUpdate(const UpdateChecker::Available &available) {
    m_updateMenuItem->setText(tr("Update to %1 →").arg(menuText(available.version)));
    m_updateMenuItem->setVisible(true);
    m_updateSeparator->setVisible(true);
}

void AppDelegate::openUpdate() {
    if (const auto &available = m_updateChecker->available())
        m_env.platform.workspace->open(available->url);
}

void AppDelegate::checkForUpdatesNow() {
    if (!m_store->config().checkForUpdates) {
        showAlert(*m_env.platform.workspace, tr("Update checks are turned off"),
                  tr("Enable “Check for updates automatically” in Settings, or download the latest "
                     "version from %1.")
                      .arg(kProductSiteHost));
        return;
    }
    if (m_updateChecker->available()) {
        showUpdate(*m_updateChecker->available());
        openUpdate();
        return;
    }
    installUpdateCallback();
    m_updateChecker->markChecked();
    m_updateChecker->fetch();
    // The check does not wait for the network: a later answer still shows the menu's entry.
    m_env.scheduler.after(kUpdateAnswer, this, [this] {
        if (m_updateChecker->available())
            return;
        showAlert(
            *m_env.platform.workspace, tr("You're up to date"),
            tr("Quenda %1 is the latest version.").arg(AboutView::version(*m_env.platform.bundle)));
    });
}

} // namespace quenda
