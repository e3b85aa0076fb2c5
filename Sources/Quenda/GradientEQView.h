#pragma once
// The pill's level meter: eight bars that move by themselves and grow with the voice. It keeps the
// motion and draws it; the pill's window owns it and repaints when it asks. Main thread only.

#include "Platform/Scheduler.h"

#include <QImage>
#include <QRectF>

#include <array>
#include <functional>

class QPainter;

namespace quenda {

class GradientEQView {
public:
    using LevelSource = std::function<float()>;

    static constexpr int barCount = 8;
    static constexpr std::array<double, barCount> phaseOffsets = {0.0, 2.1, 4.3, 1.2,
                                                                  3.4, 5.1, 2.8, 0.7};
    static constexpr std::array<double, barCount> speeds = {1.0, 1.25, 0.85, 1.4,
                                                            1.1, 0.95, 1.3,  1.05};
    /// A thirtieth of a second, in the whole milliseconds that timers have.
    static constexpr std::chrono::milliseconds tickInterval{33};

    explicit GradientEQView(Scheduler &scheduler);

    /// Answers the level, 0 to 1, at every tick. Unset counts as silence, and so does an answer
    /// that is negative or not a number; more than 1 counts as 1.
    LevelSource levelSource;
    /// Called after every tick: the picture changed.
    std::function<void()> onRedraw;

    /// Starts the ticks unless they run.
    void startAnimating();
    void stopAnimating() { m_timer.reset(); }
    bool isAnimating() const { return m_timer != nullptr; }

    /// One step of the motion.
    void tick();

    double phase() const { return m_phase; }
    double smoothedLevel() const { return m_smoothedLevel; }
    /// Where bar `index`, 0 to 7, stands now in a meter that fills `bounds`.
    QRectF barRect(int index, const QRectF &bounds) const;
    void draw(QPainter &painter, const QRectF &bounds);

private:
    Scheduler &m_scheduler;
    Scheduler::TimerHandle m_timer;
    double m_phase = 0.0;
    double m_smoothedLevel = 0.0;
    QImage m_picture; ///< kept from tick to tick: nothing is allocated thirty times a second
};

} // namespace quenda
