#include "Quenda/GraphemeText.h"

#include <QTextBoundaryFinder>

#include <limits>

namespace quenda {

namespace {

struct Boundary {
    qsizetype graphemes = 0;
    qsizetype position = 0; // in UTF-16 units
};

Boundary advance(const QString &text, qsizetype atMost) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    Boundary boundary;
    while (boundary.graphemes < atMost) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0)
            break;
        ++boundary.graphemes;
        boundary.position = next;
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
