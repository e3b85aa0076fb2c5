// Choice of the engine, and what changed settings set off.

#include "Quenda/AppDelegate.h"

#include <QAction>

#include <utility>

namespace quenda {

namespace {
constexpr std::chrono::milliseconds kEngineKeyQuiet{1000}; // a key must stand this long
}

AppDelegate::EngineKey AppDelegate::EngineKey::of(const Config &config) {
    return {config.modelPath, config.whisperServerPath, config.serverPort, config.provider};
}

void AppDelegate::observeConfigChanges() {
    Observable<Config> &settings = m_store->observable();

    const auto keyAndMode = [](const Config &config) {
        return std::pair(config.hotkey, config.activationMode);
    };
    m_cancellables.push_back(
        settings.subscribe(distinct<Config>(keyAndMode, [this](const auto &pair) {
            m_hotkey->key = pair.first;
            if (m_hintMenuItem)
                m_hintMenuItem->setText(hintText(pair.first, pair.second));
        })));

    m_cancellables.push_back(
        settings.subscribe(distinct<Config>(EngineKey::of, [this](const EngineKey &key) {
            m_engineKeyDebounce =
                m_env.scheduler.once(kEngineKeyQuiet, [this, key] { engineKeySettled(key); });
        })));

    const auto whole = [](const Config &config) { return config; };
    m_cancellables.push_back(
        settings.subscribe(distinct<Config>(whole, [this](const Config &) { refreshStatus(); })));
}

void AppDelegate::engineKeySettled(const EngineKey &key) {
    if (m_runningEngineKey && *m_runningEngineKey == key)
        return;
    restartEngine();
}

void AppDelegate::startEngine() {
    const Config &config = m_store->config();
    m_runningEngineKey = EngineKey::of(config);
    if (config.provider == TranscriptionProvider::local)
        engine().start();
    else
        engine().stop();
    refreshStatus();
}

void AppDelegate::restartEngine() {
    engine().stop();
    startEngine();
}

} // namespace quenda
