#include "Quenda/ModelRow.h"

#include "Quenda/DownloadBar.h"
#include "Quenda/Note.h"
#include "Quenda/SettingsForm.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace quenda {

namespace {
constexpr int kBarWidth = 90;
const QColor kInUse(48, 170, 80);
} // namespace

ModelRow::ModelRow(const WhisperModel &model, bool extra, QWidget *parent)
    : QWidget(parent),
      m_model(model) {
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    auto *line = new QHBoxLayout;
    line->setSpacing(10);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(1);
    auto *name = new QLabel(model.title);
    name->setTextFormat(Qt::PlainText);
    name->setWordWrap(true);
    name->setAlignment(sideOf(Qt::AlignLeading | Qt::AlignVCenter));
    texts->addWidget(name);
    QString size;
    if (!extra) { // never parted from its unit at the end of a line
        size = QStringLiteral("· ") + sizeLabel(model.sizeMB);
        size = QLatin1Char(' ') + size.replace(QLatin1Char(' '), QChar::Nbsp);
    }
    texts->addWidget(makeNote(model.detail + size, this));
    line->addLayout(texts, 1);

    m_bar = new DownloadBar(kBarWidth);
    m_download = new QPushButton(tr("Download"));
    m_use = new QPushButton(tr("Use"));
    for (QPushButton *button : {m_download, m_use}) {
        button->setAutoDefault(false);
        button->setAccessibleDescription(model.title);
    }
    connect(m_download, &QPushButton::clicked, this, [this] { onDownload(); });
    connect(m_use, &QPushButton::clicked, this, [this] { onUse(); });
    m_inUse = new QWidget;
    auto *inUse = new QHBoxLayout(m_inUse);
    inUse->setContentsMargins(0, 0, 0, 0);
    inUse->setSpacing(5);
    inUse->addWidget(makeSymbol(QStringLiteral("checkmark.circle.fill"), kInUse, {}, m_inUse));
    inUse->addWidget(new QLabel(tr("In use")));
    for (QWidget *action : {static_cast<QWidget *>(m_bar), static_cast<QWidget *>(m_download),
                            static_cast<QWidget *>(m_use), m_inUse})
        line->addWidget(action, 0, Qt::AlignVCenter);
    column->addLayout(line);

    m_error = makeNote({}, this, NoteTone::failure);
    column->addWidget(m_error);
    setAccessibleName(model.title);
}

ModelRow::Action ModelRow::actionFor(const Facts &facts) {
    if (facts.progress)
        return Action::progress;
    if (!facts.fileExists)
        return Action::download;
    return facts.configured ? Action::inUse : Action::use;
}

void ModelRow::show(const Facts &facts, const QString &error, ModelDownloader::Transfer transfer,
                    std::chrono::milliseconds now) {
    const Action action = actionFor(facts);
    m_bar->setVisible(action == Action::progress);
    m_download->setVisible(action == Action::download);
    m_inUse->setVisible(action == Action::inUse);
    m_use->setVisible(action == Action::use);
    if (facts.progress)
        m_bar->showProgress(*facts.progress, transfer.received, transfer.total, now);
    else
        m_bar->reset();
    m_error->setText(error);
    m_error->setVisible(!error.isEmpty());
}

} // namespace quenda
