#include "Quenda/DictationSection.h"

#include "Quenda/DecimalText.h"
#include "Quenda/Languages.h"
#include "Quenda/Note.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>

#include <cmath>

namespace quenda {

namespace {
const QColor kWarning(230, 145, 20);
}

DictationSection::DictationSection(ConfigStore &store, QWidget *parent)
    : SettingsSection(tr("Dictation"), store, parent) {
    addKeyAndMode();
    addLimits();
    addLanguage();
    addToggle(tr("Remove filler words (um, uh, erm)"), &Config::removeFillerWords);
    addText(
        tr("Custom words & names"), [](const Config &config) { return config.customVocabulary; },
        [](Config &config, const QString &text) { config.customVocabulary = text; });
    addNote(tr("Names and jargon Whisper should recognize, e.g. “Alvero, Quenda, QMX”. "
               "Comma-separated."));
}

void DictationSection::addKeyAndMode() {
    std::vector<Choice> keys;
    for (const HotkeyChoice choice : kHotkeyChoices)
        keys.push_back({title(choice), rawValue(choice)});
    addPicker(
        tr("Dictation key"), keys, [](const Config &config) { return rawValue(config.hotkey); },
        [](Config &config, const QString &identity) {
            for (const HotkeyChoice choice : kHotkeyChoices) {
                if (rawValue(choice) == identity)
                    config.hotkey = choice;
            }
        });
    QLabel *tip = addNote(tr("Tip: set System Settings → Keyboard → “Press 🌐 key to” = Do Nothing, "
                             "or macOS will also trigger its own action."));
    onRefresh([this, tip](const Config &config) {
        setRowVisible(tip, config.hotkey == HotkeyChoice::fnGlobe);
    });

    std::vector<Choice> modes;
    for (const ActivationMode mode : kActivationModes)
        modes.push_back({title(mode), rawValue(mode)});
    addPicker(
        tr("Activation"), modes,
        [](const Config &config) { return rawValue(config.activationMode); },
        [](Config &config, const QString &identity) {
            for (const ActivationMode mode : kActivationModes) {
                if (rawValue(mode) == identity)
                    config.activationMode = mode;
            }
        });
    QLabel *explanation = addNote({});
    onRefresh([explanation](const Config &config) {
        explanation->setText(
            config.activationMode == ActivationMode::hold
                ? tr("Keep the key held while you speak; release to insert the text.")
                : tr("Press once to start, speak as long as you like, press again to finish. "
                     "Click ✕ on the pill to discard."));
    });
}

void DictationSection::addLimits() {
    addSlider(tr("Ignore taps shorter than"), &Config::minHoldSeconds, {0.0, 1.0, 0.05}, 48,
              [](double seconds) { return decimalText(seconds, 2) + QLatin1Char('s'); });
    addSlider(tr("Auto-stop after"), &Config::maxDictationSeconds, {60, 300, 30}, 58,
              [](double seconds) {
                  const auto whole = qint64(std::clamp(seconds, 0.0, 1e9));
                  return QStringLiteral("%1m %2s").arg(whole / 60).arg(whole % 60);
              });
}

bool DictationSection::englishOnlyModelMismatch(const Config &config) {
    return config.provider == TranscriptionProvider::local &&
           config.language != QStringLiteral("en") &&
           QFileInfo(config.modelPath).fileName().contains(QStringLiteral(".en"));
}

void DictationSection::addLanguage() {
    std::vector<Choice> languages;
    for (const Language &language : Languages::all())
        languages.push_back({language.title(), language.codeText()});
    addPicker(
        tr("Language"), languages, [](const Config &config) { return config.language; },
        [](Config &config, const QString &identity) { config.language = identity; });

    auto *warning = new QWidget;
    auto *row = new QHBoxLayout(warning);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(makeSymbol(QStringLiteral("exclamationmark.triangle.fill"), kWarning,
                              tr("Warning"), warning),
                   0, Qt::AlignTop);
    QLabel *text = makeNote({}, warning);
    text->setForegroundRole(QPalette::WindowText);
    row->addWidget(text, 1);
    addWide(warning);
    onRefresh([this, warning, text](const Config &config) {
        setRowVisible(warning, englishOnlyModelMismatch(config));
        text->setText(tr("The current model (%1) is English-only. Switch to a multilingual model "
                         "below (Large v3 Turbo handles Chinese, Malay, Tamil and 90+ others).")
                          .arg(QFileInfo(config.modelPath).fileName()));
    });
}

} // namespace quenda
