#include "Quenda/WrappingCheckBox.h"

#include <QStyleOptionButton>
#include <QStylePainter>

#include <algorithm>

namespace quenda {

namespace {
constexpr int kTextFlags = Qt::AlignLeading | Qt::AlignVCenter | Qt::TextWordWrap;
constexpr int kAround = 2; // above, below and beside the text, for the focus frame
} // namespace

WrappingCheckBox::WrappingCheckBox(const QString &text, QWidget *parent) : QCheckBox(text, parent) {
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

int WrappingCheckBox::textStart() const {
    return style()->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, this) +
           style()->pixelMetric(QStyle::PM_CheckBoxLabelSpacing, nullptr, this);
}

QSize WrappingCheckBox::minimumSizeHint() const {
    const QRect narrow = fontMetrics().boundingRect(QRect(0, 0, 1, 1), kTextFlags, text());
    return {textStart() + narrow.width() + 2 * kAround, fontMetrics().height() + 2 * kAround};
}

int WrappingCheckBox::heightForWidth(int width) const {
    const QRect room(0, 0, std::max(1, width - textStart() - 2 * kAround), 1);
    const int lines = fontMetrics().boundingRect(room, kTextFlags, text()).height();
    return std::max(sizeHint().height(), lines + 2 * kAround);
}

void WrappingCheckBox::paintEvent(QPaintEvent *) {
    QStylePainter painter(this);
    QStyleOptionButton option;
    initStyleOption(&option);
    QStyleOptionButton box = option;
    const int size = style()->pixelMetric(QStyle::PM_IndicatorHeight, nullptr, this);
    const int line = std::max(fontMetrics().height() + 2 * kAround, size);
    const bool oneLine = height() < line + fontMetrics().height();
    const QRect left(kAround, oneLine ? (height() - size) / 2 : (line - size) / 2,
                     style()->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, this), size);
    box.rect = QStyle::visualRect(layoutDirection(), rect(), left);
    painter.drawPrimitive(QStyle::PE_IndicatorCheckBox, box);

    const QRect beside = rect().adjusted(kAround + textStart(), 0, -kAround, 0);
    const QRect words = QStyle::visualRect(layoutDirection(), rect(), beside);
    const Qt::Alignment side = QStyle::visualAlignment(layoutDirection(), Qt::AlignLeading);
    painter.drawItemText(words, int(side | Qt::AlignVCenter | Qt::AlignAbsolute) | Qt::TextWordWrap,
                         palette(), isEnabled(), text(), QPalette::WindowText);
    if (hasFocus()) {
        QStyleOptionFocusRect focus;
        focus.initFrom(this);
        focus.rect = words;
        painter.drawPrimitive(QStyle::PE_FrameFocusRect, focus);
    }
}

} // namespace quenda
