#include "Quenda/Symbols.h"

#include <QGuiApplication>
#include <QIcon>
#include <QPalette>

#include <gtest/gtest.h>

namespace quenda {
namespace {

const QStringList kNames = {
    QStringLiteral("mic"),
    QStringLiteral("mic.fill"),
    QStringLiteral("arrow.down.circle.fill"),
    QStringLiteral("xmark.circle.fill"),
    QStringLiteral("checkmark.circle.fill"),
    QStringLiteral("exclamationmark.circle.fill"),
    QStringLiteral("exclamationmark.triangle.fill"),
    QStringLiteral("1.circle"),
    QStringLiteral("2.circle"),
    QStringLiteral("3.circle"),
};

// How much of the picture is inked, 0 to 1; -1 where some ink has another colour.
double inkOf(const QPixmap &pixmap, const QColor &colour) {
    const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
    double ink = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() > 200 && (std::abs(pixel.red() - colour.red()) > 2 ||
                                        std::abs(pixel.green() - colour.green()) > 2 ||
                                        std::abs(pixel.blue() - colour.blue()) > 2))
                return -1;
            ink += pixel.alphaF();
        }
    return ink / (image.width() * image.height());
}

TEST(SymbolsTest, everySymbolIsThereInAnyColourAndSize) {
    for (const QString &name : kNames)
        for (const QColor &colour : {QColor(Qt::black), QColor(Qt::white), QColor(255, 59, 48)})
            for (const int size : {16, 22, 32}) {
                const double ink = inkOf(symbolPixmap(name, colour, size, 1.0), colour);
                EXPECT_GT(ink, 0.1) << qPrintable(name) << size;
                EXPECT_LT(ink, 0.7) << qPrintable(name) << size;
            }
}

TEST(SymbolsTest, symbolsAreCrispOnDenseScreens) {
    const QPixmap dense = symbolPixmap(QStringLiteral("mic"), Qt::black, 16, 2.0);
    EXPECT_EQ(dense.size(), QSize(32, 32));
    EXPECT_EQ(dense.devicePixelRatio(), 2.0);
    EXPECT_EQ(symbolPixmap(QStringLiteral("mic"), Qt::black, 20, 1.5).size(), QSize(30, 30));
    EXPECT_EQ(symbolIcon(QStringLiteral("mic")).pixmap(QSize(22, 22), 2.0).size(), QSize(44, 44));
}

TEST(SymbolsTest, theSignInADiscIsAHole) {
    const QImage cross =
        symbolPixmap(QStringLiteral("xmark.circle.fill"), Qt::red, 48, 1.0).toImage();
    EXPECT_EQ(qAlpha(cross.pixel(24, 24)), 0);
    EXPECT_EQ(qAlpha(cross.pixel(24, 8)), 255);
    EXPECT_EQ(qAlpha(cross.pixel(1, 1)), 0);
}

TEST(SymbolsTest, filledMicrophoneHasMoreInk) {
    EXPECT_GT(inkOf(symbolPixmap(QStringLiteral("mic.fill"), Qt::black, 32, 1.0), Qt::black),
              inkOf(symbolPixmap(QStringLiteral("mic"), Qt::black, 32, 1.0), Qt::black));
}

TEST(SymbolsTest, translucentColoursStayTranslucent) {
    const QColor faint(255, 255, 255, 102);
    const QImage image =
        symbolPixmap(QStringLiteral("checkmark.circle.fill"), faint, 48, 1.0).toImage();
    EXPECT_NEAR(qAlpha(image.pixel(24, 6)), 102, 1);
}

TEST(SymbolsTest, unknownNamesGiveNothing) {
    EXPECT_TRUE(symbolPixmap(QStringLiteral("no.such.symbol"), Qt::black, 16, 1.0).isNull());
    EXPECT_TRUE(symbolIcon(QStringLiteral("no.such.symbol")).isNull());
    EXPECT_TRUE(symbolIcon(QStringLiteral("../icons/quenda")).isNull());
}

TEST(SymbolsTest, iconsWithoutAColourFollowTheTheme) {
    const QIcon icon = symbolIcon(QStringLiteral("mic.fill"));
    const QPalette before = QGuiApplication::palette();
    QPalette theme = before;
    theme.setColor(QPalette::WindowText, QColor(10, 20, 30));
    theme.setColor(QPalette::HighlightedText, QColor(250, 240, 10));
    theme.setColor(QPalette::Disabled, QPalette::WindowText, QColor(120, 130, 140));
    QGuiApplication::setPalette(theme);
    EXPECT_GT(inkOf(icon.pixmap(32), QColor(10, 20, 30)), 0.1);
    EXPECT_GT(inkOf(icon.pixmap(32, QIcon::Disabled), QColor(120, 130, 140)), 0.1);
    EXPECT_GT(inkOf(icon.pixmap(32, QIcon::Selected), QColor(250, 240, 10)), 0.1);
    theme.setColor(QPalette::WindowText, QColor(240, 240, 250));
    QGuiApplication::setPalette(theme);
    EXPECT_GT(inkOf(icon.pixmap(32), QColor(240, 240, 250)), 0.1);
    QGuiApplication::setPalette(before);
}

TEST(SymbolsTest, aGivenColourStaysWhateverTheTheme) {
    const QIcon icon = symbolIcon(QStringLiteral("mic.fill"), QColor(255, 59, 48));
    EXPECT_GT(inkOf(icon.pixmap(22), QColor(255, 59, 48)), 0.1);
    EXPECT_GT(inkOf(icon.pixmap(22, QIcon::Selected), QColor(255, 59, 48)), 0.1);
    EXPECT_FALSE(icon.availableSizes().isEmpty());
}

TEST(SymbolsTest, thePanelsColourReadsOnWhiteAndOnBlackUnlessAllIsDark) {
    const QPalette before = QGuiApplication::palette();
    QGuiApplication::setPalette(QPalette(QColor(240, 240, 240)));
    EXPECT_NEAR(statusAreaColor().lightness(), 118, 1);
    QPalette dark(QColor(40, 40, 40));
    dark.setColor(QPalette::WindowText, QColor(235, 235, 235));
    QGuiApplication::setPalette(dark);
    EXPECT_EQ(statusAreaColor(), QColor(235, 235, 235));
    QGuiApplication::setPalette(before);
}

TEST(SymbolsTest, aPlatformsOwnSymbolsComeFirst) {
    setSymbolProvider([](const QString &name, const QColor &colour, int size, qreal ratio) {
        if (name != QLatin1String("mic"))
            return QPixmap();
        QPixmap own(QSize(size, size) * ratio);
        own.fill(colour);
        return own;
    });
    EXPECT_EQ(inkOf(symbolPixmap(QStringLiteral("mic"), Qt::green, 16, 1.0), Qt::green), 1.0);
    EXPECT_FALSE(symbolPixmap(QStringLiteral("mic.fill"), Qt::green, 16, 1.0).isNull());
    setSymbolProvider({});
    EXPECT_LT(inkOf(symbolPixmap(QStringLiteral("mic"), Qt::green, 16, 1.0), Qt::green), 0.7);
}

TEST(SymbolsTest, theProgramHasAnIcon) {
    const QIcon icon = applicationIcon();
    ASSERT_FALSE(icon.isNull());
    const QImage image = icon.pixmap(64).toImage();
    EXPECT_EQ(image.size(), QSize(64, 64));
    EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0);
    EXPECT_EQ(qAlpha(image.pixel(32, 24)), 255);
    EXPECT_NE(image.pixel(32, 24), image.pixel(32, 60));
}

} // namespace
} // namespace quenda
