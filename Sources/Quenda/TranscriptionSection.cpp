#include "Quenda/TranscriptionSection.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>

namespace quenda {

TranscriptionSection::TranscriptionSection(ConfigStore &store, QWidget *parent)
    : SettingsSection(tr("Transcription"), store, parent) {
    std::vector<Choice> services;
    for (const TranscriptionProvider provider : kTranscriptionProviders)
        services.push_back({title(provider), rawValue(provider)});
    addPicker(
        tr("Service"), services, [](const Config &config) { return rawValue(config.provider); },
        [](Config &config, const QString &identity) {
            for (const TranscriptionProvider provider : kTranscriptionProviders) {
                if (rawValue(provider) == identity)
                    config.provider = provider;
            }
        });

    QLineEdit *key = addText(
        tr("API key"), [](const Config &config) { return config.apiKey(); },
        [](Config &config, const QString &text) {
            config.apiKeys.insert(rawValue(config.provider), text);
        });
    key->setEchoMode(QLineEdit::Password);
    key->setPlaceholderText(QStringLiteral("sk-…"));
    QLineEdit *model = addText(
        tr("Model"), [](const Config &config) { return config.apiModelOverride; },
        [](Config &config, const QString &text) { config.apiModelOverride = text; });
    QLineEdit *base = addText(
        tr("Base URL"), [](const Config &config) { return config.customBaseURL; },
        [](Config &config, const QString &text) { config.customBaseURL = text; });
    base->setPlaceholderText(QStringLiteral("https://your-host/v1"));
    QLabel *privacy = addNote({});

    onRefresh([this, key, model, base, privacy](const Config &config) {
        const bool cloud = config.provider != TranscriptionProvider::local;
        setRowVisible(key, cloud);
        setRowVisible(model, cloud);
        setRowVisible(base, config.provider == TranscriptionProvider::custom);
        model->setPlaceholderText(config.provider == TranscriptionProvider::openai
                                      ? QStringLiteral("whisper-1")
                                      : QStringLiteral("whisper-large-v3-turbo"));
        privacy->setText(
            cloud ? tr("Your audio is sent to %1 for transcription. Keys are stored in Quenda's "
                       "config file, readable only by your user account.")
                        .arg(title(config.provider))
                  : tr("Everything runs on this Mac — no audio or text ever leaves the machine."));
    });
}

} // namespace quenda
