// The scanners against the regular expressions that define them, run by ICU itself, over random
// texts; and the cases that a person would name.
#include "Quenda/WhisperEngine.h"

#include <QElapsedTimer>
#include <QStringList>

#include <gtest/gtest.h>
#include <unicode/brkiter.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>

using quenda::WhisperEngine;

namespace {

QString clean(const QString &text) {
    return WhisperEngine::cleanTranscript(text);
}
QString fillersRemoved(const QString &text) {
    return WhisperEngine::removeFillerWords(text);
}

// ---- The definitions, by ICU ------------------------------------------------------------------

icu::UnicodeString toIcu(const QString &text) {
    return {reinterpret_cast<const char16_t *>(text.utf16()), int32_t(text.size())};
}
QString fromIcu(const icu::UnicodeString &text) {
    // Not fromUtf16(), which takes a leading U+FEFF for a byte order mark.
    return QString(reinterpret_cast<const QChar *>(text.getBuffer()), text.length());
}

std::unique_ptr<icu::RegexMatcher> matcherOf(const std::string &pattern) {
    // ICU's own \s is documented as this set; release 72 takes the vertical tab and NEL as well.
    icu::UnicodeString expression = icu::UnicodeString::fromUTF8(pattern);
    expression.findAndReplace(u"\\s", u"[\\t\\n\\f\\r\\p{Z}]");
    UErrorCode error = U_ZERO_ERROR;
    auto matcher = std::make_unique<icu::RegexMatcher>(expression, 0, error);
    EXPECT_TRUE(U_SUCCESS(error)) << u_errorName(error) << " in " << pattern;
    return matcher;
}

icu::UnicodeString replaced(const icu::UnicodeString &text, const std::string &pattern,
                            const std::string &replacement) {
    static std::map<std::string, std::unique_ptr<icu::RegexMatcher>> compiled;
    std::unique_ptr<icu::RegexMatcher> &matcher = compiled[pattern];
    if (!matcher)
        matcher = matcherOf(pattern);
    matcher->reset(text);
    UErrorCode error = U_ZERO_ERROR;
    icu::UnicodeString result =
        matcher->replaceAll(icu::UnicodeString::fromUTF8(replacement), error);
    EXPECT_TRUE(U_SUCCESS(error)) << u_errorName(error) << " in " << pattern;
    return result;
}

using InSet = std::function<bool(UChar32)>;

bool blank(UChar32 c) {
    return c == '\t' || u_charType(c) == U_SPACE_SEPARATOR;
}
bool blankOrLineBreak(UChar32 c) {
    return blank(c) || (c >= 0x0A && c <= 0x0D) || c == 0x85 || u_charType(c) == U_LINE_SEPARATOR ||
           u_charType(c) == U_PARAGRAPH_SEPARATOR;
}
bool blankOrPunctuation(UChar32 c) {
    return blank(c) || u_ispunct(c);
}

icu::UnicodeString trimmed(icu::UnicodeString text, const InSet &inSet) {
    while (!text.isEmpty() && inSet(text.char32At(0)))
        text.remove(0, text.moveIndex32(0, 1));
    while (!text.isEmpty() && inSet(text.char32At(text.length() - 1)))
        text.truncate(text.moveIndex32(text.length(), -1));
    return text;
}

QString referenceClean(const QString &input, const QStringList &dropped) {
    icu::UnicodeString text = toIcu(input);
    text = replaced(text, R"(\[[^\]]*\])", "");
    text = replaced(text, R"(\([^)]*\))", "");
    text = replaced(text, R"(\*[^*]*\*)", "");
    text = replaced(text, R"(\s+)", " ");
    text = trimmed(text, blankOrLineBreak);
    icu::UnicodeString key = text;
    key = trimmed(key.toLower(icu::Locale::getRoot()), blankOrPunctuation);
    return dropped.contains(fromIcu(key)) ? QString() : fromIcu(text);
}

icu::UnicodeString withUpperCaseStart(const icu::UnicodeString &text) {
    UErrorCode error = U_ZERO_ERROR;
    static const std::unique_ptr<icu::BreakIterator> clusters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), error));
    clusters->setText(text);
    const int32_t end = clusters->next();
    if (end == icu::BreakIterator::DONE)
        return text;
    const icu::UnicodeString letter(text, 0, text.moveIndex32(0, 1));
    icu::UnicodeString upper(letter);
    upper.toUpper(icu::Locale::getRoot());
    icu::UnicodeString lower(letter);
    lower.toLower(icu::Locale::getRoot());
    if (upper == letter || lower != letter)
        return text;
    icu::UnicodeString first(text, 0, end);
    return first.toUpper(icu::Locale::getRoot()) + icu::UnicodeString(text, end);
}

QString referenceFillersRemoved(const QString &input) {
    icu::UnicodeString text = toIcu(input);
    text = replaced(text, R"((?i),\s*(?:u+m+|u+h+|e+r+m+|e+r+|h+m+m*)\s*,)", " ");
    text = replaced(text, R"((?i),\s*(?:u+m+|u+h+|e+r+m+|e+r+|h+m+m*)\s*([.!?]))", "$1");
    text = replaced(text, R"((?i)(^|[\s,])(?:u+m+|u+h+|e+r+m+|e+r+|h+m+m*)([,.!?]|\s|$))", "$1$2");
    text = replaced(text, R"(\s{2,})", " ");
    text = replaced(text, R"(\s+([,.!?]))", "$1");
    text = replaced(text, R"(^[,.\s]+)", "");
    text = replaced(text, R"(,\s*,)", ",");
    return fromIcu(trimmed(withUpperCaseStart(text), blank));
}

// ---- Random texts ----------------------------------------------------------------------------

class RandomText {
public:
    RandomText(QStringList pieces, unsigned seed) : m_pieces(std::move(pieces)), m_random(seed) {}
    QString operator()(int most) {
        QString text;
        for (int n = int(m_random() % unsigned(most + 1)); n > 0; --n)
            text += m_pieces[qsizetype(m_random() % size_t(m_pieces.size()))];
        return text;
    }

private:
    QStringList m_pieces;
    std::mt19937 m_random;
};

QStringList unicodeSpaces() {
    return {QStringLiteral(" "),      QStringLiteral("  "),     QStringLiteral("\t"),
            QStringLiteral("\n"),     QStringLiteral("\r\n"),   QStringLiteral("\r"),
            QStringLiteral("\f"),     QStringLiteral("\v"),     QStringLiteral("\u0085"),
            QStringLiteral("\u00a0"), QStringLiteral("\u1680"), QStringLiteral("\u2003"),
            QStringLiteral("\u2028"), QStringLiteral("\u2029"), QStringLiteral("\u202f"),
            QStringLiteral("\u3000"), QStringLiteral("\u200b"), QStringLiteral("\ufeff"),
            QStringLiteral("\u180e"), QString(QChar(0x1C)),     QString(QChar(0x1F))};
}

QStringList odds() {
    return {
        QStringLiteral("\u0301"),      QStringLiteral("\u0345"),     QStringLiteral("e\u0301"),
        QStringLiteral("\u1e96"),      QStringLiteral("ß"),          QStringLiteral("ﬁ"),
        QStringLiteral("ǆ"),           QStringLiteral("ǅ"),          QStringLiteral("ŉ"),
        QStringLiteral("İ"),           QStringLiteral("ı"),          QStringLiteral("ª"),
        QStringLiteral("\U0001F600"),  QStringLiteral("\U00010428"), QStringLiteral("\U00010100"),
        QStringLiteral("👩‍👧"), QStringLiteral("ж"),          QStringLiteral("あ"),
        QString(QChar(0xD83D)),        QString(QChar(0xDE00)),       QString(QChar(0))};
}

std::string shown(const QString &text) {
    QString escaped;
    for (const QChar c : text) {
        escaped += c.unicode() > 0x20 && c.unicode() < 0x7F
                       ? QString(c)
                       : QStringLiteral("<%1>").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
    return escaped.toStdString();
}

TEST(FillerWords, agreeWithTheExpressionsOnRandomTexts) {
    QStringList words{QStringLiteral(","),  QStringLiteral(","),    QStringLiteral(", "),
                      QStringLiteral("."),  QStringLiteral("!"),    QStringLiteral("?"),
                      QStringLiteral("um"), QStringLiteral("Uh"),   QStringLiteral("ERM"),
                      QStringLiteral("er"), QStringLiteral("hmm"),  QStringLiteral("u"),
                      QStringLiteral("m"),  QStringLiteral("h"),    QStringLiteral("e"),
                      QStringLiteral("r"),  QStringLiteral(" um "), QStringLiteral(", uhh,"),
                      QStringLiteral("so"), QStringLiteral("x"),    QStringLiteral(" ")};
    RandomText few(words, 1);
    RandomText many(words + words + unicodeSpaces() + odds(), 2);
    for (int round = 0; round < 20000; ++round) {
        const QString text = round % 2 ? few(14) : many(12);
        ASSERT_EQ(shown(fillersRemoved(text)), shown(referenceFillersRemoved(text)))
            << "of " << shown(text);
    }
}

TEST(CleanTranscript, agreesWithTheExpressionsOnRandomTexts) {
    const QStringList marks{QStringLiteral("["),  QStringLiteral("]"), QStringLiteral("("),
                            QStringLiteral(")"),  QStringLiteral("*"), QStringLiteral("[]"),
                            QStringLiteral("(x)")};
    const QStringList words{
        QStringLiteral("you"),    QStringLiteral("Thank"), QStringLiteral("BYE"),
        QStringLiteral("."),      QStringLiteral("!"),     QStringLiteral("“"),
        QStringLiteral("\u3002"), QStringLiteral("$"),     QStringLiteral("x")};
    const QStringList dropped{QStringLiteral("you"), QStringLiteral("thank you"),
                              QStringLiteral("bye")};
    RandomText few(marks + words, 3);
    RandomText many(marks + words + words + unicodeSpaces() + odds(), 4);
    RandomText short_(words.mid(0, 7) + unicodeSpaces().mid(0, 10) + marks.mid(5), 5);
    int emptied = 0;
    for (int round = 0; round < 20000; ++round) {
        const QString text = round % 3 == 0 ? few(12) : round % 3 == 1 ? many(12) : short_(5);
        const QString result = clean(text);
        ASSERT_EQ(shown(result), shown(referenceClean(text, dropped))) << "of " << shown(text);
        emptied += result.isEmpty() && !text.isEmpty();
    }
    EXPECT_GT(emptied, 100); // the dropped phrases were really met
}

// ---- Clean-up by example ----------------------------------------------------------------------

TEST(CleanTranscript, removesAnnotations) {
    EXPECT_EQ(clean(QStringLiteral("Hello [door slams] there (coughs) *sighs* friend.")),
              QStringLiteral("Hello there friend."));
    EXPECT_EQ(clean(QStringLiteral("[a\nb] x")), QStringLiteral("x"));
    EXPECT_EQ(clean(QStringLiteral("[a [b] c]")), QStringLiteral("c]"));
    EXPECT_EQ(clean(QStringLiteral("a * b")), QStringLiteral("a * b"));
    EXPECT_EQ(clean(QStringLiteral("a ] b [ c")), QStringLiteral("a ] b [ c"));
    EXPECT_EQ(clean(QStringLiteral("(a [b) c] d")), QStringLiteral("(a d"));
}

TEST(CleanTranscript, foldsAndTrimsWhiteSpace) {
    EXPECT_EQ(clean(QStringLiteral(" one\n two\r\n\u3000three\u00a0four\t ")),
              QStringLiteral("one two three four"));
    EXPECT_EQ(clean(QStringLiteral("a\u3000b")), QStringLiteral("a b"));
    EXPECT_EQ(clean(QStringLiteral("a\u2028\u2029b")), QStringLiteral("a b"));
    // The vertical tab and NEL are no \s, yet they are trimmed at the ends.
    EXPECT_EQ(clean(QStringLiteral("\u0085\va\v\u0085b\v\u0085")), QStringLiteral("a\v\u0085b"));
}

TEST(CleanTranscript, dropsEveryKnownHallucination) {
    const QStringList phrases{
        QStringLiteral("you"),
        QStringLiteral("thank you"),
        QStringLiteral("thank you very much"),
        QStringLiteral("thanks"),
        QStringLiteral("thanks for watching"),
        QStringLiteral("thank you for watching"),
        QStringLiteral("thanks for listening"),
        QStringLiteral("please subscribe"),
        QStringLiteral("see you in the next video"),
        QStringLiteral("bye"),
        QStringLiteral("terima kasih kerana menonton"),
        QStringLiteral("terima kasih"),
        QStringLiteral("terima kasih sudah menonton"),
        QStringLiteral("ご視聴ありがとうございました"),
        QStringLiteral("お疲れ様でした"),
        QStringLiteral("字幕由Amara.org社区提供"),
        QStringLiteral("请不吝点赞订阅转发打赏支持明镜与点点栏目"),
        QStringLiteral("谢谢观看"),
        QStringLiteral("Subtitles by the Amara.org community"),
        QStringLiteral("Sottotitoli creati dalla comunità Amara.org"),
        QStringLiteral("Sous-titres réalisés para la communauté d'Amara.org"),
        QStringLiteral("gracias por ver"),
        QStringLiteral("obrigado por assistir"),
        QStringLiteral("vielen dank für's zuschauen"),
        QStringLiteral("продолжение следует"),
        QStringLiteral("시청해주셔서 감사합니다"),
    };
    EXPECT_EQ(phrases.size(), 26);
    for (const QString &phrase : phrases) {
        EXPECT_EQ(clean(phrase), QString()) << qPrintable(phrase);
        EXPECT_EQ(clean(QStringLiteral("¡ “") + phrase.toUpper() + QStringLiteral("…” !\n")),
                  QString())
            << qPrintable(phrase);
        const QString longer = phrase + QStringLiteral(" x");
        EXPECT_EQ(clean(longer), longer);
    }
}

TEST(CleanTranscript, dropsOnlyWholeTranscripts) {
    EXPECT_EQ(clean(QStringLiteral("(upbeat music) Thank you.")), QString());
    EXPECT_EQ(clean(QStringLiteral("[BLANK_AUDIO]")), QString());
    EXPECT_EQ(clean(QString()), QString());
    EXPECT_EQ(clean(QStringLiteral("Thank you for the report.")),
              QStringLiteral("Thank you for the report."));
    EXPECT_EQ(clean(QStringLiteral("...")),
              QStringLiteral("...")); // an empty key is not in the set
    EXPECT_EQ(clean(QStringLiteral("You?")), QString());
    EXPECT_EQ(clean(QStringLiteral("Thank  [x] you")), QString());
    EXPECT_EQ(clean(QStringLiteral("vielen dank für’s zuschauen")),
              QStringLiteral("vielen dank für’s zuschauen"));
    EXPECT_EQ(clean(QStringLiteral("$ bye")), QStringLiteral("$ bye")); // a sign, not punctuation
}

TEST(CleanTranscript, trimsPunctuationOutsideTheBasicPlane) {
    EXPECT_EQ(clean(QStringLiteral("\U00010100Bye\U00010100")), QString());
    EXPECT_EQ(clean(QStringLiteral("Bye\U0001F600")), QStringLiteral("Bye\U0001F600"));
}

TEST(CleanTranscript, keepsLoneSurrogates) {
    const QString broken =
        QStringLiteral("a") + QChar(0xD83D) + QStringLiteral(" b") + QChar(0xDE00);
    EXPECT_EQ(clean(broken), broken);
    EXPECT_EQ(clean(QStringLiteral("[x]") + broken + QStringLiteral("  ")), broken);
}

// ---- Filler words by example ------------------------------------------------------------------

TEST(FillerWords, followTheExamples) {
    EXPECT_EQ(fillersRemoved(QStringLiteral("So, um, I think, uh.")),
              QStringLiteral("So I think."));
    EXPECT_EQ(fillersRemoved(QStringLiteral("um hello")), QStringLiteral("Hello"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("Umbrella")), QStringLiteral("Umbrella"));
}

TEST(FillerWords, knowEachFillerInAnyLengthAndCase) {
    for (const char *filler : {"um", "ummm", "UUM", "uh", "Uhh", "uuh", "erm", "eerrmm", "er",
                               "ERRR", "hm", "hmm", "Hmmmm", "hhm"}) {
        const QString word = QString::fromLatin1(filler);
        EXPECT_EQ(fillersRemoved(QStringLiteral("Well %1 yes").arg(word)),
                  QStringLiteral("Well yes"))
            << filler;
        EXPECT_EQ(fillersRemoved(QStringLiteral("Well, %1, yes").arg(word)),
                  QStringLiteral("Well yes"))
            << filler;
        EXPECT_EQ(fillersRemoved(QStringLiteral("Well, %1!").arg(word)), QStringLiteral("Well!"))
            << filler;
        EXPECT_EQ(fillersRemoved(word), QString()) << filler;
    }
    for (const char *other : {"u", "m", "h", "e", "her", "hum", "umh", "uhm", "ermh", "emr", "hem",
                              "human", "errand", "um-hm", "um;", "um\v"}) {
        const QString text = QStringLiteral("Well %1 yes").arg(QString::fromLatin1(other));
        EXPECT_EQ(fillersRemoved(text), text) << other;
    }
}

TEST(FillerWords, mendThePunctuationAround) {
    EXPECT_EQ(fillersRemoved(QStringLiteral("um um um")), QStringLiteral("Um"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("A, um uh , b")), QStringLiteral("A, uh, b"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("x , y")), QStringLiteral("X, y"));
    EXPECT_EQ(fillersRemoved(QStringLiteral(".., hi")), QStringLiteral("Hi"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("a,,b")), QStringLiteral("A,b"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("a,,,b")), QStringLiteral("A,,b"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("\u3000a\u3000b")), QStringLiteral("A\u3000b"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("a\u3000\u00a0b")), QStringLiteral("A b"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("a b\t")), QStringLiteral("A b"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("a b\n")), QStringLiteral("A b\n"));
    // "$" stands before a final line terminator too, also one that is no white space there.
    EXPECT_EQ(fillersRemoved(QStringLiteral("a um\v")), QStringLiteral("A \v"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("a um\u0085")), QStringLiteral("A \u0085"));
    EXPECT_EQ(fillersRemoved(QString()), QString());
}

TEST(FillerWords, raiseTheFirstCharacterAsAWhole) {
    EXPECT_EQ(fillersRemoved(QStringLiteral("ßa")), QStringLiteral("SSa"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("ﬁn")), QStringLiteral("FIn"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("e\u0301a")), QStringLiteral("E\u0301a"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("éa")), QStringLiteral("Éa"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("ǆep")), QStringLiteral("Ǆep"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("ǅep")),
              QStringLiteral("ǅep")); // title case: not lower
    EXPECT_EQ(fillersRemoved(QStringLiteral("α\u0345x")), QStringLiteral("ΑΙx"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("\U00010428x")), QStringLiteral("\U00010400x"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("жук")), QStringLiteral("Жук"));
    EXPECT_EQ(fillersRemoved(QStringLiteral("1a")), QStringLiteral("1a"));
}

// ---- Time -------------------------------------------------------------------------------------

// Ten times the text may take ten times the time, give or take; a quadratic scanner would need a
// hundred times, and at this size minutes.
TEST(TranscriptTime, growsWithTheLengthOnly) {
    const QStringList units{QStringLiteral("["),
                            QStringLiteral("("),
                            QStringLiteral("*["),
                            QStringLiteral("]"),
                            QStringLiteral(", "),
                            QStringLiteral(",um"),
                            QStringLiteral(" "),
                            QStringLiteral("\u3000"),
                            QStringLiteral("m"),
                            QStringLiteral("h"),
                            QStringLiteral("u"),
                            QStringLiteral("um "),
                            QStringLiteral(" er"),
                            QStringLiteral("\u0301"),
                            QStringLiteral(", um , "),
                            QStringLiteral("."),
                            QStringLiteral("plain text of a dictation, um, and so on. ")};
    for (const QString &unit : units) {
        for (const QString &start : {QString(), QStringLiteral(", h")}) {
            const QString text = start + unit.repeated(300000 / unit.size());
            QElapsedTimer timer;
            timer.start();
            clean(text);
            fillersRemoved(text);
            EXPECT_LT(timer.elapsed(), 2000) << qPrintable(start + unit);
        }
    }
}

} // namespace
