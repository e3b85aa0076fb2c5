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
        {QString::fromUtf8("1️⃣ नमस्ते"), 5},
        {QString::fromUtf8("नमस्ते 1️⃣ 2️⃣"), 7},
        {QString::fromUtf8("กำ1️⃣"), 2},
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

// In a run of such a script, Qt's boundary finder takes each half of a surrogate pair for a
// character where the pair has no script of its own.
TEST(GraphemeTextTest, NeverCutsASurrogatePair) {
    const QString vowelSign = QString::fromUtf8("\u0947");
    for (const char *const letter : {"न", "ก", "မ", "ཀ"}) {
        for (const char *const pair : {"𝐀", "🀘", "🏽", "\U000F0000", "\U000E0100"}) {
            const QString text = QString::fromUtf8(letter) + QString::fromUtf8(pair) + vowelSign +
                                 QString::fromUtf8(pair);
            EXPECT_LE(graphemeCount(text), 4) << qPrintable(text);
            for (qsizetype count = 0; count <= graphemeCount(text); ++count)
                EXPECT_TRUE(firstGraphemes(text, count).isValidUtf16()) << qPrintable(text);
        }
    }
}

TEST(GraphemeTextTest, BrokenTextIsCountedAndCutWithoutHarm) {
    const QString lone = QString(QChar(0xD83D)) + QLatin1Char('a') + QChar(0xDC69);
    EXPECT_EQ(firstGraphemes(lone, 100), lone);
    EXPECT_GE(graphemeCount(lone), 1);
}

} // namespace
