#include "Quenda/EngineSection.h"

#include "Quenda/ConfigStore.h"
#include "Quenda/WhisperEngine.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>

#include <utility>

namespace quenda {

namespace {
constexpr int kLargestPort = 65535;
}

EngineSection::EngineSection(ConfigStore &store, WhisperEngine &engine,
                             std::function<void()> restartEngine, QWidget *parent)
    : SettingsSection(tr("Engine"), store, parent) {
    addStatus(engine);
    addPicker(
        tr("Free memory when idle for"),
        {{tr("Never"), QStringLiteral("0")},
         {tr("5 minutes"), QStringLiteral("5")},
         {tr("15 minutes"), QStringLiteral("15")},
         {tr("30 minutes"), QStringLiteral("30")},
         {tr("1 hour"), QStringLiteral("60")}},
        [](const Config &config) {
            return QString::number(std::max<qint64>(config.idleUnloadMinutes, 0));
        },
        [](Config &config, const QString &identity) {
            config.idleUnloadMinutes = identity.toLongLong();
        });
    addPort();
    QLineEdit *path = addText(
        tr("whisper-server path"), [](const Config &config) { return config.whisperServerPath; },
        [](Config &config, const QString &text) { config.whisperServerPath = text; });
    path->setPlaceholderText(tr("Auto (bundled engine)"));

    auto *row = new QWidget;
    auto *line = new QHBoxLayout(row);
    line->setContentsMargins(0, 0, 0, 0);
    auto *restart = new QPushButton(tr("Restart Engine"));
    restart->setAutoDefault(false);
    connect(restart, &QPushButton::clicked, this, std::move(restartEngine));
    line->addStretch(1);
    line->addWidget(restart);
    addWide(row);
}

void EngineSection::addStatus(WhisperEngine &engine) {
    auto *row = new QWidget;
    auto *line = new QHBoxLayout(row);
    line->setContentsMargins(0, 0, 0, 0);
    auto *text = new QLabel;
    text->setObjectName(QStringLiteral("engineStatus"));
    text->setTextFormat(Qt::PlainText);
    text->setWordWrap(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    text->setAlignment(sideOf(Qt::AlignTrailing | Qt::AlignVCenter));
    auto *busy = new QProgressBar;
    busy->setRange(0, 0);
    busy->setTextVisible(false);
    busy->setFixedSize(48, 6);
    busy->setAccessibleName(tr("Loading model…"));
    line->addWidget(busy);
    line->addWidget(text, 1);
    addRow(tr("Status"), row);
    m_stateSubscription =
        engine.observableState().subscribe([text, busy](const WhisperEngine::State &state) {
            text->setText(state.text());
            text->setAccessibleName(state.text());
            busy->setVisible(state.kind == WhisperEngine::State::Kind::starting);
        });
}

int EngineSection::portFrom(const QString &text) {
    bool isNumber = false;
    const int port = text.trimmed().toInt(&isNumber);
    return isNumber && port >= 1 && port <= kLargestPort ? port : 0;
}

void EngineSection::addPort() {
    auto *edit = new QLineEdit;
    edit->setInputMethodHints(Qt::ImhDigitsOnly);
    addRow(tr("Server port"), edit);
    QLabel *refusal = addNote(tr("Enter a whole number from 1 to 65535."));
    refusal->setObjectName(QStringLiteral("portRefusal"));
    setRowVisible(refusal, false);
    connect(edit, &QLineEdit::textEdited, this, [this, refusal](const QString &text) {
        const int port = portFrom(text);
        setRowVisible(refusal, port == 0);
        if (port != 0)
            store().update([port](Config &config) { config.serverPort = port; });
    });
    onRefresh([this, edit, refusal, shown = qint64(-1)](const Config &config) mutable {
        // A refused text stays in the field until the setting itself changes.
        if (config.serverPort == shown)
            return;
        shown = config.serverPort;
        if (portFrom(edit->text()) != config.serverPort)
            edit->setText(QString::number(config.serverPort));
        setRowVisible(refusal, portFrom(edit->text()) == 0);
    });
}

} // namespace quenda
