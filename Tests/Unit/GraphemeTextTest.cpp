#include "Quenda/GraphemeText.h"

#include <QList>
#include <QPair>

#include <gtest/gtest.h>

using namespace quenda;

namespace {

TEST(GraphemeTextTest, CountsWhatAPersonCounts) {
    const QList<QPair<QString, int>> texts{
        {QString(), 0},
        {QStringLiteral("Hello"), 5},
        {QString::fromUtf8("e\u0301"), 1},
        {QString::fromUtf8("नमस्ते"), 3},
        {QString::fromUtf8("กำ"), 1},
        {QString::fromUtf8("👩‍👩‍👧"), 1},
        {QString::fromUtf8("👍🏽"), 1},
        {QString::fromUtf8("🇩🇪🇫🇷"), 2},
        {QString::fromUtf8("❤️"), 1},
        {QString::fromUtf8("नमस्ते 👩‍👩‍👧"), 5},
        {QString::fromUtf8("👩‍👩‍👧नमस्ते"), 4},
        {QString::fromUtf8("กำ 🇩🇪🇫🇷!"), 5},
    };
    for (const auto &[text, count] : texts)
        EXPECT_EQ(graphemeCount(text), count) << qPrintable(text);
}

TEST(GraphemeTextTest, CutsBetweenCharactersOnly) {
    const QString text = QString::fromUtf8("नमस्ते 👩‍👩‍👧 ok");
    EXPECT_EQ(firstGraphemes(text, 0), QString());
    EXPECT_EQ(firstGraphemes(text, 3), QString::fromUtf8("नमस्ते"));
    EXPECT_EQ(firstGraphemes(text, 5), QString::fromUtf8("नमस्ते 👩‍👩‍👧"));
    EXPECT_EQ(firstGraphemes(text, 100), text);
}

TEST(GraphemeTextTest, BrokenTextIsCountedAndCutWithoutHarm) {
    const QString lone = QString(QChar(0xD83D)) + QLatin1Char('a') + QChar(0xDC69);
    EXPECT_EQ(firstGraphemes(lone, 100), lone);
    EXPECT_GE(graphemeCount(lone), 1);
}

} // namespace
