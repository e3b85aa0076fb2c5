#include "Quenda/LinkLabel.h"

#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QStyleOptionFocusRect>
#include <QStylePainter>

#include <utility>

namespace quenda {

namespace {

// To assistive technology a link that can be pressed, not a mere text.
class AccessibleLink final : public QAccessibleWidget {
public:
    explicit AccessibleLink(LinkLabel *link)
        : QAccessibleWidget(link, QAccessible::Link, link->accessibleName()) {}

    QStringList actionNames() const override { return {pressAction(), setFocusAction()}; }
    void doAction(const QString &action) override {
        if (action == pressAction())
            static_cast<LinkLabel *>(widget())->follow();
        else
            QAccessibleWidget::doAction(action);
    }
};

QAccessibleInterface *accessible(const QString &, QObject *object) {
    auto *link = qobject_cast<LinkLabel *>(object);
    return link ? new AccessibleLink(link) : nullptr;
}

} // namespace

LinkLabel::LinkLabel(const QString &text, QString target, QWidget *parent)
    : QLabel(text, parent),
      m_target(std::move(target)) {
    QAccessible::installFactory(accessible); // once is enough, more does no harm
    setTextFormat(Qt::RichText);
    setTextInteractionFlags(Qt::LinksAccessibleByMouse);
    setFocusPolicy(Qt::StrongFocus);
}

void LinkLabel::follow() {
    Q_EMIT linkActivated(m_target);
}

void LinkLabel::keyPressEvent(QKeyEvent *event) {
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
    case Qt::Key_Select:
        follow();
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}

bool LinkLabel::focusNextPrevChild(bool next) {
    return QWidget::focusNextPrevChild(next);
}

void LinkLabel::paintEvent(QPaintEvent *event) {
    QLabel::paintEvent(event);
    if (!hasFocus())
        return;
    QStylePainter painter(this);
    QStyleOptionFocusRect focus;
    focus.initFrom(this);
    focus.backgroundColor = palette().color(backgroundRole());
    painter.drawPrimitive(QStyle::PE_FrameFocusRect, focus);
}

} // namespace quenda
