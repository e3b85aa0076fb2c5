// The two text filters over texts of up to a million characters that repeat a pattern: the time
// they take must grow with the length only.
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/WhisperEngine.h"

#include <ctime>

namespace {

using quenda::WhisperEngine;

bool isSpace(QChar c) {
    return c == u'\t' || c == u'\n' || c == u'\f' || c == u'\r' ||
           c.category() == QChar::Separator_Space || c.category() == QChar::Separator_Line ||
           c.category() == QChar::Separator_Paragraph;
}

bool hasTwoSpaces(const QString &text) {
    for (qsizetype i = 1; i < text.size(); ++i) {
        if (isSpace(text[i - 1]) && isSpace(text[i]))
            return true;
    }
    return false;
}

double processorSeconds() {
    return double(std::clock()) / CLOCKS_PER_SEC;
}

template <typename Filter>
QString timed(const QString &text, Filter filter) {
    const double before = processorSeconds();
    QString result = filter(text);
    const double spent = processorSeconds() - before;
    // More than ten times what the slowest pattern takes under the sanitizers.
    const double allowed = 0.2 + 4e-6 * double(text.size());
    PROMISE_SHOWING(
        spent < allowed,
        QStringLiteral("%1 s for %2 units, at most %3 s").arg(spent).arg(text.size()).arg(allowed));
    return result;
}

} // namespace

// A line with the start of the text, whose first byte gives the length; one with the pattern; the
// rest is the end of the text.
QUENDA_FUZZ_TARGET(transcript_length) {
    quenda::fuzz::Input parts(input);
    const qsizetype length = qsizetype(1) << (12 + parts.byte() % 9); // 4096 to 1048576
    const QString start = parts.textLine();
    const QString pattern = parts.textLine();
    const QString end = QString::fromUtf8(parts.rest());
    if (pattern.isEmpty())
        return;
    const QString text = start + pattern.repeated(length / pattern.size()) + end;

    const QString clean = timed(text, WhisperEngine::cleanTranscript);
    PROMISE(clean.size() <= text.size());
    PROMISE(clean == clean.trimmed());
    PROMISE(!hasTwoSpaces(clean));
    for (const QChar other : QStringLiteral("\t\n\f\r\u00a0\u2028\u2029\u3000"))
        PROMISE(!clean.contains(other));
    PROMISE(timed(clean, WhisperEngine::cleanTranscript) == clean);

    const QString mended = timed(text, WhisperEngine::removeFillerWords);
    PROMISE(!hasTwoSpaces(mended));
    if (!mended.isEmpty()) {
        PROMISE(mended.front() != u',' && mended.front() != u'.' && !isSpace(mended.front()));
        PROMISE(mended.back() != u' ' && mended.back() != u'\t');
    }
}
