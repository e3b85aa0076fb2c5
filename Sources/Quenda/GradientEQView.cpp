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
constexpr double kBarWidth = 4.0;
constexpr double kBarRadius = 2.0;
constexpr double kLowestBar = 5.0;

double audible(float level) {
    return std::isnan(level) ? 0.0 : std::clamp(double(level), 0.0, 1.0);
}

using GradientTable = std::array<QColor, 256>;

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
            made[i] = QColor(mixed(from.red(), to.red()), mixed(from.green(), to.green()),
                             mixed(from.blue(), to.blue()));
        }
        return made;
    }();
    return table;
}

// Fills the rounded bar, in the picture's pixels. A pixel at the edge is covered by what its
// centre's distance from the edge says. Doing this here costs a tenth of eight gradient paths.
void fillBar(QImage &picture, const QRectF &bar, double radius) {
    const double middle = bar.center().x();
    const double inset = bar.width() / 2 - radius; // 0: the ends are half circles
    const QRect pixels = bar.toAlignedRect().intersected(picture.rect());
    for (int y = pixels.top(); y <= pixels.bottom(); ++y) {
        const double centre = y + 0.5;
        const double beyond =
            std::max({bar.top() + radius - centre, centre - (bar.bottom() - radius), 0.0});
        const double part = std::clamp((centre - bar.top()) / bar.height(), 0.0, 1.0);
        const QColor &colour = gradientTable()[std::size_t(std::lround(part * 255))];
        auto *line = reinterpret_cast<QRgb *>(picture.scanLine(y));
        for (int x = pixels.left(); x <= pixels.right(); ++x) {
            const double aside = std::max(std::abs(x + 0.5 - middle) - inset, 0.0);
            const double distance = std::sqrt(aside * aside + beyond * beyond);
            const double covered = std::clamp(radius + 0.5 - distance, 0.0, 1.0);
            line[x] = qRgba(int(colour.red() * covered), int(colour.green() * covered),
                            int(colour.blue() * covered), int(255 * covered));
        }
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
        fillBar(m_picture, bar.translated(-place.topLeft()), kBarRadius * toDevice.m11());
    }
    painter.drawImage(toDevice.inverted().mapRect(QRectF(place)), m_picture);
}

} // namespace quenda
