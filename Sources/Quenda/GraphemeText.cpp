#include "Quenda/GraphemeText.h"

#include <QTextBoundaryFinder>

#include <limits>

namespace quenda {

namespace {

struct Boundary {
    qsizetype graphemes = 0;
    qsizetype position = 0; // in UTF-16 units
};

enum class Kind { Emoji, Digit, Other, Continues };

// Emoji and digits belong to no script, and the boundary finder gives such characters the script of
// the letters beside them; beside Hindi or Thai it then takes every unit of an emoji, and the marks
// that make a digit a key cap, for characters.
Kind kindOf(char32_t c) {
    switch (QChar::category(c)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
    case QChar::Other_Format:
    case QChar::Symbol_Modifier:
        return Kind::Continues;
    case QChar::Symbol_Other:
        return QChar::script(c) == QChar::Script_Common ? Kind::Emoji : Kind::Other;
    case QChar::Number_DecimalDigit:
        return QChar::script(c) == QChar::Script_Common ? Kind::Digit : Kind::Other;
    default:
        return Kind::Other;
    }
}

// Where the run that begins at `start`, of one kind alone, ends.
qsizetype runEnd(const QString &text, qsizetype start) {
    Kind run = Kind::Continues;
    qsizetype position = start;
    while (position < text.size()) {
        const bool isPair = text.at(position).isHighSurrogate() && position + 1 < text.size() &&
                            text.at(position + 1).isLowSurrogate();
        const char32_t c = isPair ? QChar::surrogateToUcs4(text.at(position), text.at(position + 1))
                                  : text.at(position).unicode();
        const Kind kind = kindOf(c);
        if (kind != Kind::Continues && run != Kind::Continues && kind != run)
            break;
        if (kind != Kind::Continues)
            run = kind;
        position += isPair ? 2 : 1;
    }
    return position;
}

// Besides emoji it does so with everything outside the basic plane that has no script of its own:
// mathematical letters, private characters, variation selectors.
bool isInsidePair(const QString &text, qsizetype position) {
    return position > 0 && position < text.size() && text.at(position - 1).isHighSurrogate() &&
           text.at(position).isLowSurrogate();
}

Boundary advance(const QString &text, qsizetype atMost) {
    Boundary boundary;
    for (qsizetype start = 0; start < text.size() && boundary.graphemes < atMost;) {
        const qsizetype end = runEnd(text, start);
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme,
                                   QStringView(text).mid(start, end - start));
        while (boundary.graphemes < atMost) {
            const qsizetype next = finder.toNextBoundary();
            if (next < 0)
                break;
            if (isInsidePair(text, start + next))
                continue;
            ++boundary.graphemes;
            boundary.position = start + next;
        }
        start = end;
    }
    return boundary;
}

} // namespace

qsizetype graphemeCount(const QString &text) {
    return advance(text, std::numeric_limits<qsizetype>::max()).graphemes;
}

QString firstGraphemes(const QString &text, qsizetype count) {
    return text.left(advance(text, count).position);
}

} // namespace quenda
