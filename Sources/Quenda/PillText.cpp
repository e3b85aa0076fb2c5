#include "Quenda/PillText.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>

namespace quenda {

namespace {

constexpr int kSmallestPixelSize = 12;

// The two lines of `text` in `width`; empty where no break makes both fit. A dash is the natural
// place to part a notice; otherwise the break that leaves the lines most alike.
QStringList twoLines(const QString &text, const QFontMetricsF &metrics, qreal width) {
    QStringList best;
    qreal bestWidth = width;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Line, text);
    while (finder.toNextBoundary() > 0) {
        const QString first = text.left(finder.position()).trimmed();
        const QString second = text.mid(finder.position()).trimmed();
        if (first.isEmpty() || second.isEmpty())
            continue;
        const qreal wider =
            std::max(metrics.horizontalAdvance(first), metrics.horizontalAdvance(second));
        if (wider > width)
            continue;
        if (first.endsWith(u'—'))
            return {first, second};
        if (best.isEmpty() || wider < bestWidth) {
            best = {first, second};
            bestWidth = wider;
        }
    }
    return best;
}

// As much of `text` on the first line as fits, the rest shortened on the second.
QStringList shortened(const QString &text, const QFontMetricsF &metrics, qreal width,
                      int lineLimit) {
    int split = 0;
    if (lineLimit > 1) {
        QTextBoundaryFinder finder(QTextBoundaryFinder::Line, text);
        while (finder.toNextBoundary() > 0 &&
               metrics.horizontalAdvance(text.left(finder.position()).trimmed()) <= width)
            split = int(finder.position());
    }
    const QString rest = metrics.elidedText(text.mid(split).trimmed(), Qt::ElideRight, width);
    return split > 0 ? QStringList{text.left(split).trimmed(), rest} : QStringList{rest};
}

qreal digitWidth(const QFontMetricsF &metrics) {
    qreal widest = 0;
    for (char16_t digit = u'0'; digit <= u'9'; ++digit)
        widest = std::max(widest, metrics.horizontalAdvance(QChar(digit)));
    return widest;
}

qreal tabularWidth(const QString &text, const QFontMetricsF &metrics) {
    const qreal cell = digitWidth(metrics);
    qreal width = 0;
    for (const QChar character : text)
        width += character.isDigit() ? cell : metrics.horizontalAdvance(character);
    return width;
}

// Upright letters centred on `middle`; whole device pixels keep them sharp.
qreal baseline(const QPainter &painter, const QFontMetricsF &metrics, qreal middle) {
    const qreal ratio = painter.deviceTransform().m22();
    return std::round((middle + metrics.capHeight() / 2) * ratio) / ratio;
}

} // namespace

FittedText fitText(const QString &text, const QFont &font, qreal width, int lineLimit) {
    const QString line = text.simplified();
    FittedText fitted{font, {line}};
    const int full = font.pixelSize();
    const int smallest = std::min(full, kSmallestPixelSize);
    const auto fits = [&] { return QFontMetricsF(fitted.font).horizontalAdvance(line) <= width; };
    // Two lines of nearly full size read better than one of the smallest.
    const int smallestOneLine = lineLimit > 1 ? std::max(smallest, full - 1) : smallest;
    for (int size = full; size >= smallestOneLine; --size) {
        fitted.font.setPixelSize(size);
        if (fits())
            return fitted;
    }
    for (int size = full - 1; lineLimit > 1 && size >= smallest; --size) {
        fitted.font.setPixelSize(size);
        fitted.lines = twoLines(line, QFontMetricsF(fitted.font), width);
        if (!fitted.lines.isEmpty())
            return fitted;
    }
    fitted.font.setPixelSize(smallest);
    fitted.lines = shortened(line, QFontMetricsF(fitted.font), width, lineLimit);
    return fitted;
}

void drawFitted(QPainter &painter, const QRectF &frame, const FittedText &text) {
    const QFontMetricsF metrics(text.font);
    const qreal distance = std::ceil(metrics.ascent() + metrics.descent());
    qreal middle = frame.center().y() - distance * qreal(text.lines.size() - 1) / 2;
    painter.setFont(text.font);
    for (const QString &line : text.lines) {
        painter.drawText(QPointF(frame.left(), baseline(painter, metrics, middle)), line);
        middle += distance;
    }
}

qreal tabularWidth(const QString &text, const QFont &font) {
    return tabularWidth(text, QFontMetricsF(font));
}

void drawTabular(QPainter &painter, const QRectF &frame, const QString &text, const QFont &font) {
    const QFontMetricsF metrics(font);
    const qreal cell = digitWidth(metrics);
    const qreal width = tabularWidth(text, metrics);
    const qreal y = baseline(painter, metrics, frame.center().y());
    painter.save();
    painter.setFont(font);
    painter.translate(frame.right(), 0);
    if (width > frame.width())
        painter.scale(frame.width() / width, 1);
    qreal x = -width;
    for (const QChar character : text) {
        const qreal own = metrics.horizontalAdvance(character);
        const qreal advance = character.isDigit() ? cell : own;
        painter.drawText(QPointF(x + (advance - own) / 2, y), QString(character));
        x += advance;
    }
    painter.restore();
}

} // namespace quenda
