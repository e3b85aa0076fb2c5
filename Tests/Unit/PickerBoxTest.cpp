// Whether a picker shows its entries whole.

#include "Quenda/PickerBox.h"

#include <QAbstractItemView>
#include <QImage>
#include <QWidget>

#include <gtest/gtest.h>

using namespace quenda;

namespace {

QImage pictureOf(const QString &text, int width) {
    PickerBox picker;
    picker.addItem(text);
    picker.resize(width, picker.sizeHint().height());
    return picker.grab().toImage();
}

TEST(PickerBoxTest, AnEntryALittleTooLongIsWrittenSmallerNotCut) {
    PickerBox picker;
    const QString text = QStringLiteral("An entry that ends in a letter");
    picker.addItem(text);
    const int needed = picker.minimumSizeHint().width();
    for (const int width : {needed + 20, needed, needed * 9 / 10, needed * 8 / 10})
        EXPECT_NE(pictureOf(text + QLatin1Char('l'), width),
                  pictureOf(text + QLatin1Char('|'), width))
            << width << " of " << needed;
    EXPECT_EQ(pictureOf(text + QLatin1Char('l'), needed / 3),
              pictureOf(text + QLatin1Char('|'), needed / 3))
        << "never too small to be read";
}

TEST(PickerBoxTest, AsksForTheRoomOfItsLongestEntryChosenOrNot) {
    PickerBox picker;
    picker.addItem(QStringLiteral("a"));
    const int alone = picker.minimumSizeHint().width();
    picker.addItem(QStringLiteral("the longest of the entries"));
    const int both = picker.minimumSizeHint().width();
    const int text =
        picker.fontMetrics().horizontalAdvance(QStringLiteral("the longest of the entries"));
    EXPECT_GT(both, alone);
    EXPECT_GE(both, text);
    picker.addItem(QString(200, u'm'));
    EXPECT_LE(picker.minimumSizeHint().width(), 360) << "not wider than a window's form";
    QFont larger = picker.font();
    larger.setPointSizeF(larger.pointSizeF() * 1.5);
    picker.removeItem(2);
    picker.setFont(larger);
    EXPECT_GT(picker.minimumSizeHint().width(), both);
}

TEST(PickerBoxTest, TheListIsAsWideAsItsLongestEntry) {
    PickerBox picker;
    picker.addItem(QStringLiteral("a"));
    picker.addItem(QStringLiteral("an entry much longer than the picker is wide"));
    picker.resize(60, 24);
    picker.show();
    picker.showPopup();
    EXPECT_GE(picker.view()->width(), picker.fontMetrics().horizontalAdvance(picker.itemText(1)));
    picker.hidePopup();
}

} // namespace
