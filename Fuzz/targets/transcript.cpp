// The two text filters, over any text, against their definition in regular expressions.
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/WhisperEngine.h"
#include "TranscriptReference.h"

#include <array>

namespace {

using quenda::WhisperEngine;

// Some of the expressions take quadratic time in ICU.
constexpr qsizetype kMostUnits = 2000;

// What the filters look for, and what lies beside it: a random text of these meets far more of the
// rules than one of random characters.
constexpr std::array kPieces{
    u" ",          u"  ",     u"\t",       u"\n",         u"\r\n",
    u"\f",         u"\v",     u"\u0085",   u"\u00a0",     u"\u1680",
    u"\u2003",     u"\u2028", u"\u2029",   u"\u202f",     u"\u3000",
    u"\u200b",     u"\ufeff", u"\u180e",   u"\u001c",     u"\u001f",
    u",",          u", ",     u" ,",       u".",          u"!",
    u"?",          u"…",      u"\u3002",   u"“",          u"”",
    u"¡",          u"$",      u"[",        u"]",          u"(",
    u")",          u"*",      u"[x]",      u"(y)",        u"*z*",
    u"[(",         u")]",     u"u",        u"m",          u"h",
    u"e",          u"r",      u"U",        u"M",          u"H",
    u"E",          u"R",      u"um",       u"Uh",         u"ERM",
    u"er",         u"hmm",    u", um,",    u", uh.",      u" er ",
    u"so",         u"x",      u"ſ",        u"K",          u"µ",
    u"you",        u"Thank",  u"thanks",   u"BYE",        u"謝謝",
    u"谢谢观看",   u"terima", u"kasih",    u"for",        u"watching",
    u"ß",          u"ﬁ",      u"ǆ",        u"ǅ",          u"ŉ",
    u"İ",          u"ı",      u"ª",        u"\u0301",     u"\u0345",
    u"α",          u"Σ",      u"ΐ",        u"\U00010428", u"\U00010100",
    u"\U0001F600", u"\u200d", u"क\u094dष", u"한",         u"\U0001F1E9\U0001F1EA",
    u"1",
};

// Puts "x" for each character that only one of the libraries has in its tables.
QString wellKnown(const QString &text) {
    QString known;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool pair =
            text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        const char32_t c =
            pair ? QChar::surrogateToUcs4(text[i], text[i + 1]) : char32_t(text[i].unicode());
        if ((QChar::category(c) != QChar::Other_NotAssigned) != quenda::fuzz::icuKnows(c))
            known += u'x';
        else
            known += QStringView(text).sliced(i, pair ? 2 : 1);
        if (pair)
            ++i;
    }
    return known;
}

// By the first byte: "8" is followed by UTF-8, which may be invalid, "6" by UTF-16 units, which may
// be half a surrogate pair, and "p" by numbers of pieces.
QString textOf(QByteArrayView bytes) {
    quenda::fuzz::Input input(bytes);
    switch (input.byte() % 3) {
    case 0: {
        QString units;
        while (!input.atEnd() && units.size() < kMostUnits)
            units += QChar(input.number<char16_t>());
        return wellKnown(units);
    }
    case 1: {
        QString pieces;
        while (!input.atEnd() && pieces.size() < kMostUnits)
            pieces += QStringView(kPieces[input.byte() % kPieces.size()]);
        return wellKnown(pieces);
    }
    default:
        return wellKnown(QString::fromUtf8(input.take(kMostUnits)));
    }
}

std::u16string_view units(const QString &text) {
    return {reinterpret_cast<const char16_t *>(text.utf16()), size_t(text.size())};
}

QString shown(const QString &text) {
    QString escaped;
    for (const QChar c : text) {
        escaped += c.unicode() > 0x20 && c.unicode() < 0x7F
                       ? QString(c)
                       : QStringLiteral("<%1>").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
    return escaped;
}

QString comparison(const QString &input, const QString &got, const std::u16string &wanted) {
    return QStringLiteral("of     %1\ngot    %2\nwanted %3")
        .arg(shown(input), shown(got), shown(QString::fromStdU16String(wanted)));
}

} // namespace

QUENDA_FUZZ_TARGET(transcript) {
    const QString text = textOf(input);

    const QString clean = WhisperEngine::cleanTranscript(text);
    const std::u16string wantedClean = quenda::fuzz::referenceCleanTranscript(units(text));
    PROMISE_SHOWING(units(clean) == wantedClean, comparison(text, clean, wantedClean));
    PROMISE_SHOWING(WhisperEngine::cleanTranscript(clean) == clean, shown(text));

    for (const QString &each : {text, clean}) {
        const QString mended = WhisperEngine::removeFillerWords(each);
        const std::u16string wanted = quenda::fuzz::referenceRemoveFillerWords(units(each));
        PROMISE_SHOWING(units(mended) == wanted, comparison(each, mended, wanted));
    }
}
