#include "Quenda/StepRow.h"

#include "Quenda/Note.h"
#include "Quenda/SettingsForm.h"
#include "Quenda/Symbols.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace quenda {

namespace {
const QColor kDone(48, 170, 80);
constexpr double kMarkSize = 1.4; // of the text's height
} // namespace

StepRow::StepRow(int number, const QString &title, const QString &detail, QWidget *parent)
    : QWidget(parent),
      m_number(number),
      m_title(title) {
    auto *line = new QHBoxLayout(this);
    line->setContentsMargins(0, 0, 0, 0);
    line->setSpacing(10);
    m_mark = new QLabel;
    line->addWidget(m_mark, 0, Qt::AlignTop);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(2);
    auto *name = new QLabel(title);
    name->setWordWrap(true);
    name->setAlignment(sideOf(Qt::AlignLeading | Qt::AlignVCenter));
    texts->addWidget(name);
    if (!detail.isEmpty())
        texts->addWidget(makeNote(detail, this));
    line->addLayout(texts, 1);
    m_actions = new QWidget;
    m_actionLine = new QHBoxLayout(m_actions);
    m_actionLine->setContentsMargins(0, 0, 0, 0);
    line->addWidget(m_actions, 0, Qt::AlignVCenter);
    showMark();
}

void StepRow::addAction(QWidget *action) {
    m_actionLine->addWidget(action);
}

void StepRow::setDone(bool done) {
    m_done = done;
    m_actions->setVisible(!done);
    showMark();
}

void StepRow::showMark() {
    const int size = int(fontMetrics().height() * kMarkSize);
    const QString symbol = m_done ? QStringLiteral("checkmark.circle.fill")
                                  : QString::number(m_number) + QStringLiteral(".circle");
    const QColor color = m_done ? kDone : palette().color(QPalette::WindowText);
    m_mark->setPixmap(symbolPixmap(symbol, color, size, devicePixelRatioF()));
    m_mark->setAccessibleName(m_done ? tr("Done") : tr("Step %1").arg(m_number));
    setAccessibleName(m_title);
    setAccessibleDescription(m_done ? tr("Done") : tr("To do"));
}

} // namespace quenda
