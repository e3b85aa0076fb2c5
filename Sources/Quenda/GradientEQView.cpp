#include "Quenda/GradientEQView.h"

#include "Quenda/PillPalette.h"

#include <QColor>
#include <QPainter>
#include <QTransform>

#include <algorithm>
#include <array>
#include <cmath>

namespace quenda {

namespace {

constexpr double kAttack = 0.45;
constexpr double kRelease = 0.12;
constexpr double kPhaseStep = 0.22;
constexpr double kBarDistance = 8.3;
constexpr double kBarWidth = 4.0; // its ends are round: a radius of 2
constexpr double kLowestBar = 5.0;

double audible(float level) {
    return std::isnan(level) ? 0.0 : std::clamp(double(level), 0.0, 1.0);
}

using GradientTable = std::array<QRgb, 256>;

// The bars' colours from top to bottom, mixed in sRGB.
const GradientTable &gradientTable() {
    static const GradientTable table = [] {
        GradientTable made;
        const QGradientStops &stops = palette::barGradient;
        qsizetype next = 1;
        for (std::size_t i = 0; i < made.size(); ++i) {
            const double at = double(i) / double(made.size() - 1);
            while (next + 1 < stops.size() && at > stops[next].first)
                ++next;
            const auto &[fromAt, from] = stops[next - 1];
            const auto &[toAt, to] = stops[next];
            const double part = (at - fromAt) / (toAt - fromAt);
            const auto mixed = [part](int a, int b) {
                return int(std::lround(a + (b - a) * part));
            };
            made[i] = qRgb(mixed(from.red(), to.red()), mixed(from.green(), to.green()),
                           mixed(from.blue(), to.blue()));
        }
        return made;
    }();
    return table;
}

// `colour` at `opacity`, 0 to 256, premultiplied.
QRgb faded(QRgb colour, unsigned opacity) {
    const unsigned redBlue = ((colour & 0xFF00FF) * opacity >> 8) & 0xFF00FF;
    const unsigned alphaGreen = ((colour >> 8 & 0xFF00FF) * opacity) & 0xFF00FF00;
    return alphaGreen | redBlue;
}

// Fills the bar, whose ends are half circles, in the picture's pixels. How much of a pixel is
// covered is told by the distance of its centre from the bar's middle line; it is worked out once
// for all the rows between the round ends.
void fillBar(QImage &picture, const QRectF &bar) {
    constexpr int widest = 96; // a device pixel ratio of 20 and more
    const double radius = bar.width() / 2;
    const double middle = bar.center().x();
    const QRect pixels = bar.toAlignedRect().intersected(picture.rect());
    const int columns = std::min(pixels.width(), widest);
    const auto covered = [&](int column, double beyond) {
        const double aside = pixels.left() + column + 0.5 - middle;
        const double distance = std::sqrt(aside * aside + beyond * beyond);
        return unsigned(std::clamp(radius + 0.5 - distance, 0.0, 1.0) * 256);
    };
    std::array<unsigned, widest> straight;
    for (int column = 0; column < columns; ++column)
        straight[std::size_t(column)] = covered(column, 0.0);
    for (int y = pixels.top(); y <= pixels.bottom(); ++y) {
        const double centre = y + 0.5;
        const double beyond = std::max(bar.top() + radius - centre, centre - bar.bottom() + radius);
        const double part = std::clamp((centre - bar.top()) / bar.height(), 0.0, 1.0);
        const QRgb colour = gradientTable()[std::size_t(std::lround(part * 255))];
        QRgb *line = reinterpret_cast<QRgb *>(picture.scanLine(y)) + pixels.left();
        for (int column = 0; column < columns; ++column)
            line[column] =
                faded(colour, beyond > 0 ? covered(column, beyond) : straight[std::size_t(column)]);
    }
}

} // namespace

GradientEQView::GradientEQView(Scheduler &scheduler) : m_scheduler(scheduler) {}

void GradientEQView::startAnimating() {
    if (!m_timer)
        m_timer = m_scheduler.every(tickInterval, [this] { tick(); });
}

void GradientEQView::tick() {
    const double level = levelSource ? audible(levelSource()) : 0.0;
    m_smoothedLevel += (level - m_smoothedLevel) * (level > m_smoothedLevel ? kAttack : kRelease);
    m_phase += kPhaseStep;
    if (onRedraw)
        onRedraw();
}

QRectF GradientEQView::barRect(int index, const QRectF &bounds) const {
    const auto bar = std::size_t(index);
    const double wave = std::sin(m_phase * speeds[bar] + phaseOffsets[bar]) * 0.5 + 0.5;
    const double height =
        std::max(kLowestBar, bounds.height() * (m_smoothedLevel * 0.82 + 0.18) * wave);
    return {bounds.x() + index * kBarDistance, bounds.y() + (bounds.height() - height) / 2,
            kBarWidth, height};
}

void GradientEQView::draw(QPainter &painter, const QRectF &bounds) {
    const QTransform toDevice = painter.deviceTransform();
    const QRect place = toDevice.mapRect(bounds).toAlignedRect();
    if (m_picture.size() != place.size())
        m_picture = QImage(place.size(), QImage::Format_ARGB32_Premultiplied);
    m_picture.fill(Qt::transparent);
    for (int index = 0; index < barCount; ++index) {
        const QRectF bar = toDevice.mapRect(barRect(index, bounds));
        fillBar(m_picture, bar.translated(-place.topLeft()));
    }
    painter.drawImage(toDevice.inverted().mapRect(QRectF(place)), m_picture);
}

} // namespace quenda
