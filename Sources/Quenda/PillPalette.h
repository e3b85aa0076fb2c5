#pragma once
// The pill's colours, shared by its parts. sRGB.

#include <QColor>
#include <QGradient>

namespace quenda::palette {

inline constexpr QColor cardBackground(11, 16, 32);
inline const QColor cardBorder = QColor::fromRgbF(1.0F, 1.0F, 1.0F, 0.08F);
inline constexpr QColor textPrimary(255, 255, 255);
inline constexpr QColor textMuted(170, 178, 207);
inline constexpr QColor recordRed(239, 68, 68);
inline constexpr QColor cyan(0, 212, 224);

/// Of one bar of the level meter, from its top edge to its bottom edge.
inline const QGradientStops barGradient = {
    {0.0, QColor(139, 92, 246)},
    {0.38, QColor(91, 77, 255)},
    {0.68, QColor(79, 140, 255)},
    {1.0, QColor(0, 212, 224)},
};

} // namespace quenda::palette
