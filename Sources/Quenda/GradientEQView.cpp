#include "Quenda/GradientEQView.h"

#include "Quenda/PillPalette.h"

#include <QBrush>
#include <QPainter>

#include <algorithm>
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

} // namespace

GradientEQView::GradientEQView(Scheduler &scheduler) : m_scheduler(scheduler) {
    m_gradient.setStops(palette::barGradient);
}

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
    painter.setPen(Qt::NoPen);
    for (int index = 0; index < barCount; ++index) {
        const QRectF bar = barRect(index, bounds);
        m_gradient.setStart(bar.topLeft());
        m_gradient.setFinalStop(bar.bottomLeft());
        painter.setBrush(m_gradient);
        painter.drawRoundedRect(bar, kBarRadius, kBarRadius);
    }
}

} // namespace quenda
