#include "Quenda/PermissionRow.h"

#include "Quenda/FlowLayout.h"
#include "Quenda/SettingsForm.h"
#include "Quenda/Symbols.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace quenda {

namespace {
const QColor kGranted(48, 170, 80);
const QColor kMissing(230, 145, 20);
} // namespace

PermissionRow::PermissionRow(const QString &title, const QString &fixTitle, QWidget *parent)
    : QWidget(parent),
      m_title(title) {
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    auto *line = new QHBoxLayout;
    auto *name = new QLabel(title);
    m_mark = new QLabel;
    m_detail = new QLabel;
    m_detail->setTextFormat(Qt::PlainText);
    m_detail->setWordWrap(true);
    m_detail->setAlignment(sideOf(Qt::AlignTrailing | Qt::AlignVCenter));
    line->addWidget(m_mark);
    line->addWidget(name);
    line->addWidget(m_detail, 1);
    column->addLayout(line);

    m_buttons = new QWidget;
    auto *buttons = new FlowLayout(m_buttons, true);
    const auto addButton = [&](const QString &text, const std::function<void()> &action) {
        auto *button = new QPushButton(text);
        button->setAutoDefault(false);
        button->setAccessibleDescription(title);
        connect(button, &QPushButton::clicked, this, [&action] {
            if (action)
                action();
        });
        buttons->addWidget(button);
        return button;
    };
    m_enable = addButton(tr("Enable"), onEnable);
    m_openSettings = addButton(tr("Open Settings"), onOpenSettings);
    m_fix = addButton(fixTitle, onFix);
    column->addWidget(m_buttons);
}

void PermissionRow::showState(bool granted, const QString &detail, Actions actions) {
    const int size = fontMetrics().height();
    m_mark->setPixmap(symbolPixmap(granted ? QStringLiteral("checkmark.circle.fill")
                                           : QStringLiteral("exclamationmark.circle.fill"),
                                   granted ? kGranted : kMissing, size, devicePixelRatioF()));
    m_mark->setAccessibleName(granted ? tr("Granted") : tr("Not granted"));
    m_detail->setText(detail);
    m_enable->setVisible(actions.enable);
    m_openSettings->setVisible(actions.openSettings);
    m_fix->setVisible(actions.fix);
    m_buttons->setVisible(actions.enable || actions.openSettings || actions.fix);
    setAccessibleName(m_title + QStringLiteral(": ") + detail);
}

} // namespace quenda
