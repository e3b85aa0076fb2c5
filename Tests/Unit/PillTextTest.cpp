#include "Quenda/PillText.h"

#include <QFontMetricsF>
#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

namespace quenda {
namespace {

QFont labelFont() {
    QFont font(QStringLiteral("DejaVu Sans")); // wide letters: what fits here fits elsewhere
    font.setPixelSize(14);
    font.setWeight(QFont::DemiBold);
    return font;
}

bool fits(const FittedText &text, qreal width) {
    const QFontMetricsF metrics(text.font);
    for (const QString &line : text.lines)
        if (metrics.horizontalAdvance(line) > width)
            return false;
    return true;
}

TEST(PillTextTest, whatFitsIsLeftAlone) {
    const FittedText text = fitText(QStringLiteral("Inserted ✓"), labelFont(), 182, 2);
    EXPECT_EQ(text.lines, QStringList{QStringLiteral("Inserted ✓")});
    EXPECT_EQ(text.font.pixelSize(), 14);
}

TEST(PillTextTest, bothModesTextsKeepTheirFullSize) {
    EXPECT_EQ(fitText(QStringLiteral("Listening…"), labelFont(), 118, 1).font.pixelSize(), 14);
    EXPECT_EQ(fitText(QStringLiteral("Transcribing…"), labelFont(), 160, 1).font.pixelSize(), 14);
}

TEST(PillTextTest, everyNoticeOfTheProgramCanBeReadWhole) {
    for (const QString &notice :
         {QStringLiteral("Inserted ✓"), QStringLiteral("Copied ✓"), QStringLiteral("Cancelled"),
          QStringLiteral("Didn't hear anything"), QStringLiteral("Cancelled — Mac went to sleep"),
          QStringLiteral("Cancelled — microphone changed"),
          QStringLiteral("No text field — copied to clipboard")}) {
        const FittedText text = fitText(notice, labelFont(), 182, 2);
        EXPECT_EQ(text.lines.join(u' '), notice);
        EXPECT_TRUE(fits(text, 182)) << qPrintable(notice);
        EXPECT_GE(text.font.pixelSize(), 13) << qPrintable(notice);
    }
}

TEST(PillTextTest, aNoticePartsAtItsDash) {
    EXPECT_EQ(
        fitText(QStringLiteral("No text field — copied to clipboard"), labelFont(), 182, 2).lines,
        (QStringList{QStringLiteral("No text field —"), QStringLiteral("copied to clipboard")}));
}

TEST(PillTextTest, withoutADashTheLinesAreAboutAlike) {
    EXPECT_EQ(
        fitText(QStringLiteral("one two three four five six seven"), labelFont(), 182, 2).lines,
        (QStringList{QStringLiteral("one two three"), QStringLiteral("four five six seven")}));
}

TEST(PillTextTest, whatFitsNowhereIsShortenedVisibly) {
    const QString endless = QStringLiteral("word ").repeated(40);
    const FittedText two = fitText(endless, labelFont(), 182, 2);
    ASSERT_EQ(two.lines.size(), 2);
    EXPECT_TRUE(two.lines.last().endsWith(u'…'));
    EXPECT_TRUE(fits(two, 182));
    const FittedText one = fitText(endless, labelFont(), 118, 1);
    ASSERT_EQ(one.lines.size(), 1);
    EXPECT_TRUE(one.lines.first().endsWith(u'…'));
    EXPECT_TRUE(fits(one, 118));
    const FittedText unbreakable = fitText(QString(60, u'W'), labelFont(), 182, 2);
    EXPECT_EQ(unbreakable.lines.size(), 1);
    EXPECT_TRUE(fits(unbreakable, 182));
}

TEST(PillTextTest, anEmptyTextIsOneEmptyLine) {
    EXPECT_EQ(fitText(QString(), labelFont(), 182, 2).lines, QStringList{QString()});
}

TEST(PillTextTest, textsWithoutSpacesBreakBetweenTheirLetters) {
    const QString chinese = QStringLiteral("没有文本框已复制到剪贴板没有文本框已复制");
    const FittedText text = fitText(chinese, labelFont(), 182, 2);
    EXPECT_EQ(text.lines.join(QString()), chinese);
    EXPECT_TRUE(fits(text, 182));
}

TEST(PillTextTest, theClockDoesNotWobble) {
    // A face whose digits differ in width.
    QFont font(QStringLiteral("URW Bookman"));
    font.setPixelSize(13);
    const qreal width = tabularWidth(QStringLiteral("00:00"), font);
    for (const QChar digit : QStringLiteral("123456789"))
        EXPECT_EQ(tabularWidth(QStringLiteral("0%1:%1%1").arg(digit), font), width);
}

// The columns of the picture that hold ink, first and last.
std::pair<int, int> inkOfClock(const QString &text, const QRectF &frame) {
    QImage image(120, 30, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    QPainter painter(&image);
    painter.setPen(Qt::white);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(13);
    drawTabular(painter, frame, text, font);
    painter.end();
    int first = image.width();
    int last = -1;
    for (int x = 0; x < image.width(); ++x)
        for (int y = 0; y < image.height(); ++y)
            if (qRed(image.pixel(x, y)) > 60) {
                first = std::min(first, x);
                last = std::max(last, x);
            }
    return {first, last};
}

TEST(PillTextTest, theClockStandsAtTheRightAndALongOneStaysInItsFrame) {
    const QRectF frame(60, 6, 46, 18);
    const auto [left, right] = inkOfClock(QStringLiteral("00:00"), frame);
    EXPECT_LE(right, 106);
    EXPECT_GE(right, 103);
    EXPECT_GT(left, 62);
    const auto [longLeft, longRight] = inkOfClock(QStringLiteral("100000:00"), frame);
    EXPECT_GE(longLeft, 60);
    EXPECT_LE(longRight, 106);
}

} // namespace
} // namespace quenda
