// The settings file: whatever it holds, the settings are usable and are what the file says from
// then on.
#include "FuzzTarget.h"
#include "Quenda/Config.h"
#include "Quenda/ConfigStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>

using quenda::Config;

namespace {

template <typename Choices, typename Choice>
bool isAmong(const Choices &choices, Choice choice) {
    return std::find(choices.begin(), choices.end(), choice) != choices.end();
}

void expectUsable(const Config &config) {
    PROMISE(isAmong(quenda::kHotkeyChoices, config.hotkey));
    PROMISE(isAmong(quenda::kActivationModes, config.activationMode));
    PROMISE(isAmong(quenda::kTranscriptionProviders, config.provider));
    PROMISE(std::isfinite(config.minHoldSeconds));
    PROMISE(std::isfinite(config.maxDictationSeconds));
    for (const QString &text :
         {config.modelPath, config.whisperServerPath, config.language, config.apiModelOverride,
          config.customBaseURL, config.customVocabulary, config.apiKey()})
        PROMISE(text.isValidUtf16());
    for (auto key = config.apiKeys.begin(); key != config.apiKeys.end(); ++key)
        PROMISE(key.key().isValidUtf16() && key.value().isValidUtf16());
    PROMISE(config.provider == quenda::TranscriptionProvider::local ||
            !config.effectiveRemoteModel().isEmpty());
}

// What is written reads back as the same, and is written the same again.
void expectRoundTrip(const Config &config) {
    const QByteArray written = config.encode();
    PROMISE(!written.isEmpty());
    const quenda::Result<Config> again = Config::decode(written);
    PROMISE(again.ok());
    PROMISE_SHOWING(again.value() == config, QString::fromUtf8(written));
    PROMISE(again.value().encode() == written);
}

} // namespace

QUENDA_FUZZ_TARGET(settings) {
    const quenda::Result<Config> decoded = Config::decode(input.toByteArray());
    if (decoded) {
        expectUsable(decoded.value());
        expectRoundTrip(decoded.value());
    } else {
        PROMISE(!decoded.error().localizedDescription.isEmpty());
    }

    // The way through the file is a hundred times slower; one length in sixteen takes it.
    if (input.size() % 16 != 0)
        return;
    PROMISE(QDir().mkpath(Config::dataFolder()));
    QFile file(Config::configURL());
    PROMISE(file.open(QIODevice::WriteOnly) && file.write(input.data(), input.size()) >= 0);
    file.close();
    const quenda::ConfigStore store;
    PROMISE(store.config() == (decoded ? decoded.value() : Config::defaults()));
    const quenda::Result<Config> loaded = Config::load();
    PROMISE(loaded.ok() && loaded.value() == store.config());
}
