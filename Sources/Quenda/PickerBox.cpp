#include "Quenda/PickerBox.h"

#include <QAbstractItemView>
#include <QScrollBar>
#include <QStyleOptionComboBox>
#include <QStylePainter>

#include <algorithm>

namespace quenda {

namespace {
constexpr int kBesideText = 2; // which styles leave free in the box
constexpr char16_t kEndOfLatin = 0x250;
constexpr int kWidestWish = 360;   // a form of the settings window has a little more
constexpr double kSizeStep = 0.25; // points
constexpr double kSmallest = 0.75; // of the font's size; what is longer still is cut
} // namespace

// Other scripts are not measured before they are shown: that would load a font for each.
int PickerBox::widestEntry() const {
    if (m_measured == count() && m_measuredFont == font())
        return m_widest;
    m_measured = count();
    m_measuredFont = font();
    m_widest = 0;
    for (int row = 0; row < count(); ++row) {
        const QString text = itemText(row);
        const bool isLatin = std::all_of(
            text.begin(), text.end(), [](QChar letter) { return letter.unicode() < kEndOfLatin; });
        if (isLatin)
            m_widest = std::max(m_widest, fontMetrics().horizontalAdvance(text));
    }
    return m_widest;
}

QSize PickerBox::minimumSizeHint() const {
    QStyleOptionComboBox option;
    initStyleOption(&option);
    const QSize hint = QComboBox::minimumSizeHint();
    const QSize natural = style()->sizeFromContents(
        QStyle::CT_ComboBox, &option, QSize(widestEntry() + kBesideText, hint.height()), this);
    return {std::clamp(natural.width(), hint.width(), std::max(hint.width(), kWidestWish)),
            hint.height()};
}

void PickerBox::showPopup() {
    const int entries = view()->sizeHintForColumn(modelColumn());
    const int bar = view()->verticalScrollBar()->sizeHint().width();
    view()->setMinimumWidth(std::max(entries + bar, width()));
    QComboBox::showPopup();
}

void PickerBox::paintEvent(QPaintEvent *) {
    QStylePainter painter(this);
    QStyleOptionComboBox option;
    initStyleOption(&option);
    painter.drawComplexControl(QStyle::CC_ComboBox, option);
    const int room =
        style()
            ->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this)
            .width() -
        kBesideText;
    // Letters do not shrink evenly: each size is measured.
    QFont fitting = font();
    const double least = fitting.pointSizeF() * kSmallest;
    const auto isTooWide = [&] {
        return QFontMetrics(fitting, this).horizontalAdvance(currentText()) > room;
    };
    while (isTooWide() && fitting.pointSizeF() - kSizeStep >= least)
        fitting.setPointSizeF(fitting.pointSizeF() - kSizeStep);
    painter.setFont(fitting);
    option.fontMetrics = QFontMetrics(fitting, this);
    painter.drawControl(QStyle::CE_ComboBoxLabel, option);
}

} // namespace quenda
