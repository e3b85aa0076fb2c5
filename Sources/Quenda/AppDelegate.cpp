// Construction, launch and end.

#include "Quenda/AppDelegate.h"

#include "Quenda/Log.h"
#include "Quenda/StatusItem.h"

#include <QMenu>
#include <QPointer>

#include <utility>

namespace quenda {

AppDelegate::AppDelegate(Environment environment, QObject *parent)
    : QObject(parent),
      m_env(std::move(environment)) {
    Platform &platform = m_env.platform;
    m_store = std::make_unique<ConfigStore>();
    m_hotkey = std::make_unique<HotkeyMonitor>(*platform.keyTaps, m_env.scheduler);
    m_recorder = std::make_unique<AudioRecorder>(*platform.audioInput);
    m_indicator = std::make_unique<RecordingIndicator>(m_env.scheduler, *platform.workspace);
    m_injector = std::make_unique<TextInjector>(TextInjector::Environment{
        *platform.pasteboard, *platform.keyPoster, *platform.accessibility, m_env.scheduler});
}

AppDelegate::~AppDelegate() {
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
    requestMicrophoneIfUndetermined();
    observeWake();
    observeInputDevice();
    ensureAccessibilityAndStartHotkey();
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
