// Construction, launch and end.

#include "Quenda/AppDelegate.h"

#include "Quenda/AboutView.h"
#include "Quenda/Log.h"
#include "Quenda/ModelDownloader.h"
#include "Quenda/PermissionFixer.h"
#include "Quenda/SettingsView.h"
#include "Quenda/StatusItem.h"
#include "Quenda/WelcomeView.h"

#include <QFile>
#include <QMenu>
#include <QPointer>

#include <utility>

namespace quenda {

namespace {
constexpr std::chrono::milliseconds kUpdateCheckDelay{4000};
constexpr std::chrono::milliseconds kFirstWindowDelay{1000};
} // namespace

AppDelegate::AppDelegate(Environment environment, QObject *parent)
    : QObject(parent),
      m_env(std::move(environment)) {
    Platform &platform = m_env.platform;
    m_store = std::make_unique<ConfigStore>();
    m_hotkey = std::make_unique<HotkeyMonitor>(*platform.keyTaps, m_env.scheduler);
    m_recorder = std::make_unique<AudioRecorder>(*platform.audioInput);
    m_downloader = std::make_unique<ModelDownloader>(m_env.http, m_env.modelBaseUrl);
    m_indicator = std::make_unique<RecordingIndicator>(m_env.scheduler, *platform.workspace);
    m_updateChecker = std::make_unique<UpdateChecker>(
        UpdateChecker::Environment{m_env.http, m_env.scheduler, m_env.defaults, *platform.bundle});
    m_fixer = std::make_unique<PermissionFixer>(
        PermissionFixer::Environment{platform, m_env.scheduler, m_env.defaults, m_env.terminate});
    m_injector = std::make_unique<TextInjector>(TextInjector::Environment{
        *platform.pasteboard, *platform.keyPoster, *platform.accessibility, m_env.scheduler});
}

AppDelegate::~AppDelegate() {
    m_env.platform.remoteControl->setHandler({});
    m_env.platform.sessionEvents->setTerminateHandler({});
    m_env.platform.sessionEvents->setWakeHandler({});
}

WhisperEngine &AppDelegate::engine() {
    if (!m_engine)
        m_engine = std::make_unique<WhisperEngine>(
            WhisperEngine::Environment{*m_store, m_env.scheduler, *m_env.platform.processes,
                                       m_env.http, *m_env.platform.bundle});
    return *m_engine;
}

void AppDelegate::applicationDidFinishLaunching() {
    observeSignals();
    setupStatusItem();
    observeConfigChanges();
    installEngineCallback();
    m_hotkey->key = m_store->config().hotkey;
    installComponentCallbacks();
    startEngine();
    Log::log(QStringLiteral("app: launched Quenda ") +
             m_env.platform.bundle->shortVersion().value_or(QStringLiteral("dev")));
    m_fixer->completePendingFixIfNeeded();
    requestMicrophoneIfUndetermined();
    observeWake();
    observeInputDevice();
    ensureAccessibilityAndStartHotkey();
    runFirstLaunchFlowIfNeeded();
    installUpdateCallback();
    scheduleUpdateCheck();
    scheduleFirstWindow();
    takeRequests();
}

void AppDelegate::applicationWillTerminate() {
    engine().stop();
    m_hotkey->stop();
}

void AppDelegate::observeSignals() {
    m_env.platform.sessionEvents->setTerminateHandler([self = QPointer<AppDelegate>(this)] {
        if (self)
            self->m_env.terminate();
    });
}

void AppDelegate::installEngineCallback() {
    engine().onStateChange = [self = QPointer<AppDelegate>(this)](const WhisperEngine::State &) {
        if (self)
            self->refreshStatus();
    };
}

void AppDelegate::installComponentCallbacks() {
    m_indicator->onCancel = [self = QPointer<AppDelegate>(this)] {
        if (self)
            self->cancelDictation();
    };
    m_downloader->onModelInstalled = [self =
                                          QPointer<AppDelegate>(this)](const WhisperModel &model) {
        if (!self || QFile::exists(self->m_store->config().modelPath))
            return;
        self->m_store->update([&](Config &config) {
            config.modelPath = Config::modelsDir() + QLatin1Char('/') + model.fileName;
        });
    };
}

void AppDelegate::scheduleUpdateCheck() {
    m_env.scheduler.after(kUpdateCheckDelay, this, [this] {
        m_updateChecker->checkIfDue(m_store->config().checkForUpdates, false);
    });
}

void AppDelegate::scheduleFirstWindow() {
    m_env.scheduler.after(kFirstWindowDelay, this, [this] { chooseFirstWindow(); });
}

void AppDelegate::requestMicrophoneIfUndetermined() {
    AudioRecorder::requestPermission(*m_env.platform.microphonePermission, {});
}

void AppDelegate::observeWake() {
    m_env.platform.sessionEvents->setWakeHandler([self = QPointer<AppDelegate>(this)] {
        if (!self)
            return;
        Log::log(QStringLiteral("app: system woke from sleep"));
        self->cancelWithNotice(tr("Cancelled — Mac went to sleep"));
    });
}

void AppDelegate::observeInputDevice() {
    m_recorder->onInputDeviceChanged = [self = QPointer<AppDelegate>(this)] {
        if (!self)
            return;
        const std::optional<QString> device =
            AudioRecorder::defaultInputDeviceName(*self->m_env.platform.audioInput);
        Log::log(QStringLiteral("audio: default input device changed to ") +
                 device.value_or(QStringLiteral("none")));
        self->cancelWithNotice(tr("Cancelled — microphone changed"));
    };
    m_recorder->startDeviceChangeMonitoring();
}

} // namespace quenda
