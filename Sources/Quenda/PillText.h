#pragma once
// How the pill sets its text: what fits where, and digits that do not wobble. Main thread only.

#include <QFont>
#include <QRectF>
#include <QStringList>

class QPainter;

namespace quenda {

/// A text as it can be read in a given width.
struct FittedText {
    QFont font;
    QStringList lines;
};

/// Sets `text` in at most `width` pixels and `lineLimit` (1 or 2) lines: in `font` if it fits, else
/// a little smaller, else on two lines parted at a dash or in the middle, and only then shortened
/// with an ellipsis.
FittedText fitText(const QString &text, const QFont &font, qreal width, int lineLimit);

/// Draws from the left, its letters' height centred in `frame`.
void drawFitted(QPainter &painter, const QRectF &frame, const FittedText &text);

/// The width of `text` with all digits as wide as the widest.
qreal tabularWidth(const QString &text, const QFont &font);

/// Draws at the right edge of `frame` with all digits as wide as the widest, so that a running
/// clock stands still. A text wider than the frame is narrowed to it.
void drawTabular(QPainter &painter, const QRectF &frame, const QString &text, const QFont &font);

} // namespace quenda
