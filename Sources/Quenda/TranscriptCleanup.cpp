// The two text filters of the engine. They are defined by regular expressions in ICU's dialect,
// quoted at each function, but written as scanners: a transcript comes from outside, and several
// of the expressions would take quadratic time on runs of brackets, commas or spaces. Everything
// here looks at each character a bounded number of times. Lone surrogates pass through unchanged.

#include "Quenda/WhisperEngine.h"

#include <QSet>
#include <QStringView>
#include <QTextBoundaryFinder>

#include <algorithm>

namespace quenda {

namespace {

// ICU's \s: [\t\n\f\r\p{Z}]. The vertical tab and NEL are not part of it.
bool isSpace(QChar c) {
    switch (c.unicode()) {
    case u' ':
    case u'\t':
    case u'\n':
    case u'\f':
    case u'\r':
        return true;
    default:
        break;
    }
    if (c.unicode() < 0xA0)
        return false;
    const QChar::Category category = c.category();
    return category == QChar::Separator_Space || category == QChar::Separator_Line ||
           category == QChar::Separator_Paragraph;
}

// White space without line breaks: Zs and the tab.
bool isBlank(QChar c) {
    return c == u'\t' || c.category() == QChar::Separator_Space;
}

bool isBlankOrLineBreak(QChar c) {
    const char16_t unit = c.unicode();
    return isSpace(c) || unit == 0x0B || unit == 0x85;
}

bool isSentenceEnd(QChar c) {
    return c == u'.' || c == u'!' || c == u'?';
}

template <typename Predicate>
qsizetype skip(QStringView text, qsizetype from, Predicate predicate) {
    while (from < text.size() && predicate(text[from]))
        ++from;
    return from;
}

template <typename Predicate>
QStringView trimmed(QStringView text, Predicate predicate) {
    qsizetype end = text.size();
    while (end > 0 && predicate(text[end - 1]))
        --end;
    text = text.first(end);
    return text.sliced(skip(text, 0, predicate));
}

// Trims punctuation (general category P) and blanks; the former also lies outside the BMP.
QStringView trimmedOfPunctuation(QStringView text) {
    while (!text.isEmpty()) {
        const bool pair =
            text.size() > 1 && text.first().isHighSurrogate() && text[1].isLowSurrogate();
        const char32_t c =
            pair ? QChar::surrogateToUcs4(text[0], text[1]) : char32_t(text.first().unicode());
        if (!QChar::isPunct(c) && !isBlank(text.first()))
            break;
        text = text.sliced(pair ? 2 : 1);
    }
    while (!text.isEmpty()) {
        const bool pair = text.size() > 1 && text.last().isLowSurrogate() &&
                          text[text.size() - 2].isHighSurrogate();
        const char32_t c = pair ? QChar::surrogateToUcs4(text[text.size() - 2], text.last())
                                : char32_t(text.last().unicode());
        if (!QChar::isPunct(c) && !isBlank(text.last()))
            break;
        text.chop(pair ? 2 : 1);
    }
    return text;
}

// Removes each "open[^close]*close". An `open` without a `close` after it ends the search: there
// cannot be one for a later `open` either.
QString withoutAnnotations(const QString &text, QChar open, QChar close) {
    qsizetype begin = text.indexOf(open);
    if (begin < 0)
        return text;
    QString kept;
    kept.reserve(text.size());
    qsizetype from = 0;
    while (begin >= 0) {
        const qsizetype end = text.indexOf(close, begin + 1);
        if (end < 0)
            break;
        kept += QStringView(text).sliced(from, begin - from);
        from = end + 1;
        begin = text.indexOf(open, from);
    }
    kept += QStringView(text).sliced(from);
    return kept;
}

// Replaces each run of `atLeast` and more spaces with one ordinary space: "\s+" or "\s{2,}".
QString withFoldedSpaces(const QString &text, qsizetype atLeast) {
    QString folded;
    folded.reserve(text.size());
    for (qsizetype i = 0; i < text.size();) {
        const qsizetype end = skip(text, i, isSpace);
        if (end - i >= atLeast) {
            folded += u' ';
            i = end;
        } else {
            folded += text[i++];
        }
    }
    return folded;
}

qsizetype skipLetter(QStringView text, qsizetype from, char16_t lowerCaseLetter) {
    // Setting bit 5 maps the two cases of an ASCII letter, and nothing else, to the lower one.
    return skip(text, from, [=](QChar c) { return (c.unicode() | 0x20) == lowerCaseLetter; });
}

// Where "u+m+|u+h+|e+r+m+|e+r+|h+m+m*", whatever the case, that starts at `from` ends, or -1. What
// follows a filler in every expression is no letter, so only the longest match can succeed.
qsizetype fillerEnd(QStringView text, qsizetype from) {
    if (const qsizetype u = skipLetter(text, from, u'u'); u > from) {
        if (const qsizetype m = skipLetter(text, u, u'm'); m > u)
            return m;
        const qsizetype h = skipLetter(text, u, u'h');
        return h > u ? h : -1;
    }
    if (const qsizetype e = skipLetter(text, from, u'e'); e > from) {
        const qsizetype r = skipLetter(text, e, u'r');
        return r > e ? skipLetter(text, r, u'm') : -1;
    }
    if (const qsizetype h = skipLetter(text, from, u'h'); h > from) {
        const qsizetype m = skipLetter(text, h, u'm');
        return m > h ? m : -1;
    }
    return -1;
}

// Replaces each ",\s*FILLER\s*X", X being a character that `closes` accepts, with what
// `replacement` makes of X. A failed attempt has passed no further comma, so the next one starts
// behind everything that was looked at.
template <typename Closes, typename Replacement>
QString withoutFillersAfterCommas(const QString &text, Closes closes, Replacement replacement) {
    QString kept;
    kept.reserve(text.size());
    qsizetype from = 0;
    qsizetype comma = text.indexOf(u',');
    while (comma >= 0) {
        const qsizetype word = fillerEnd(text, skip(text, comma + 1, isSpace));
        const qsizetype close = word < 0 ? -1 : skip(text, word, isSpace);
        if (close >= 0 && close < text.size() && closes(text[close])) {
            kept += QStringView(text).sliced(from, comma - from);
            kept += replacement(text[close]);
            from = close + 1;
            comma = text.indexOf(u',', from);
        } else {
            comma = text.indexOf(u',', comma + 1);
        }
    }
    kept += QStringView(text).sliced(from);
    return kept;
}

// How many characters "[,.!?]|\s|$" takes at `at`, or -1 where it does not match. "$" also matches
// before a final line terminator; those that \s does not take already are these two.
qsizetype wordBoundary(QStringView text, qsizetype at) {
    if (at == text.size())
        return 0;
    const QChar c = text[at];
    if (c == u',' || isSentenceEnd(c) || isSpace(c))
        return 1;
    const bool lineTerminator = c.unicode() == 0x0B || c.unicode() == 0x85;
    return lineTerminator && at + 1 == text.size() ? 0 : -1;
}

// "(^|[\s,])FILLER([,.!?]|\s|$)" becomes "$1$2".
QString withoutFreeStandingFillers(const QString &text) {
    QString kept;
    kept.reserve(text.size());
    qsizetype i = 0;
    const auto removeWordAt = [&](qsizetype word) {
        const qsizetype end = fillerEnd(text, word);
        const qsizetype boundary = end < 0 ? -1 : wordBoundary(text, end);
        if (boundary < 0)
            return false;
        kept += QStringView(text).sliced(i, word - i);
        kept += QStringView(text).sliced(end, boundary);
        i = end + boundary;
        return true;
    };
    removeWordAt(0);
    while (i < text.size()) {
        const bool opens = text[i] == u',' || isSpace(text[i]);
        if (!opens || !removeWordAt(i + 1))
            kept += text[i++];
    }
    return kept;
}

// "\s+([,.!?])" becomes "$1".
QString withoutSpacesBeforePunctuation(const QString &text) {
    QString kept;
    kept.reserve(text.size());
    for (qsizetype i = 0; i < text.size();) {
        const qsizetype end = skip(text, i, isSpace);
        const bool drop = end < text.size() && (text[end] == u',' || isSentenceEnd(text[end]));
        if (!drop)
            kept += QStringView(text).sliced(i, end - i);
        if (end < text.size())
            kept += text[end];
        i = end + 1;
    }
    return kept;
}

// ",\s*," becomes ",", two commas at a time.
QString withoutDoubledCommas(const QString &text) {
    QString kept;
    kept.reserve(text.size());
    for (qsizetype i = 0; i < text.size();) {
        const QChar c = text[i++];
        kept += c;
        if (c != u',')
            continue;
        const qsizetype next = skip(text, i, isSpace);
        if (next < text.size() && text[next] == u',') {
            i = next + 1;
        } else {
            kept += QStringView(text).sliced(i, next - i);
            i = next;
        }
    }
    return kept;
}

// Whether the text begins with a code point that has an upper-case form and is no such form itself.
bool startsInLowerCase(const QString &text) {
    const bool pair = text.size() > 1 && text[0].isHighSurrogate() && text[1].isLowSurrogate();
    const QString letter = text.first(pair ? 2 : std::min<qsizetype>(text.size(), 1));
    return letter.toUpper() != letter && letter.toLower() == letter;
}

// A first character that is a lower-case letter in its upper-case form, which may be longer.
QString withUpperCaseStart(const QString &text) {
    if (!startsInLowerCase(text))
        return text;
    // Far more than any real cluster has; a longer one is cut here rather than read to its end.
    constexpr qsizetype kLongestCluster = 256;
    const QString head = text.first(std::min(text.size(), kLongestCluster));
    // What has no script takes the one of the letters before it, or else behind it, and where that
    // is an Indic one the finder parts marks that belong together. A Latin letter in front is there
    // to be taken; a mark at the start then belongs to it.
    const QString anchored = u'a' + head;
    QTextBoundaryFinder clusters(QTextBoundaryFinder::Grapheme, anchored);
    qsizetype length = clusters.toNextBoundary() - 1;
    if (length == 0)
        length = clusters.toNextBoundary() - 1;
    return head.first(length).toUpper() + text.sliced(length);
}

// What a speech model makes of silence, in lower case and without punctuation around it.
const QSet<QString> &hallucinations() {
    static const QSet<QString> phrases{
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
        QStringLiteral("字幕由amara.org社区提供"),
        QStringLiteral("请不吝点赞订阅转发打赏支持明镜与点点栏目"),
        QStringLiteral("谢谢观看"),
        QStringLiteral("subtitles by the amara.org community"),
        QStringLiteral("sottotitoli creati dalla comunità amara.org"),
        QStringLiteral("sous-titres réalisés para la communauté d'amara.org"),
        QStringLiteral("gracias por ver"),
        QStringLiteral("obrigado por assistir"),
        QStringLiteral("vielen dank für's zuschauen"),
        QStringLiteral("продолжение следует"),
        QStringLiteral("시청해주셔서 감사합니다"),
    };
    return phrases;
}

} // namespace

QString WhisperEngine::cleanTranscript(const QString &text) {
    QString clean = withoutAnnotations(text, u'[', u']');
    clean = withoutAnnotations(clean, u'(', u')');
    clean = withoutAnnotations(clean, u'*', u'*');
    clean = withFoldedSpaces(clean, 1);
    clean = trimmed(clean, isBlankOrLineBreak).toString();
    const QString lowerCase = clean.toLower();
    const QString key = trimmedOfPunctuation(lowerCase).toString();
    return hallucinations().contains(key) ? QString() : clean;
}

QString WhisperEngine::removeFillerWords(const QString &text) {
    QString mended = withoutFillersAfterCommas(
        text, [](QChar c) { return c == u','; }, [](QChar) { return u' '; });
    mended = withoutFillersAfterCommas(mended, isSentenceEnd, [](QChar end) { return end; });
    mended = withoutFreeStandingFillers(mended);
    mended = withFoldedSpaces(mended, 2);
    mended = withoutSpacesBeforePunctuation(mended);
    mended.remove(0, skip(mended, 0, [](QChar c) { return c == u',' || c == u'.' || isSpace(c); }));
    mended = withoutDoubledCommas(mended);
    mended = withUpperCaseStart(mended);
    return trimmed(mended, isBlank).toString();
}

} // namespace quenda
