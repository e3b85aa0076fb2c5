#include "Quenda/GradientEQView.h"

#include "Fakes/VirtualScheduler.h"

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace quenda {
namespace {

using fakes::VirtualScheduler;
using std::chrono::milliseconds;

struct GradientEQViewTest : testing::Test {
    VirtualScheduler scheduler;
    GradientEQView view{scheduler};
    const QRectF bounds{44, 13, 62, 30};

    double levelAfterOneTickOf(float level) {
        GradientEQView fresh(scheduler);
        fresh.levelSource = [level] { return level; };
        fresh.tick();
        return fresh.smoothedLevel();
    }
};

TEST_F(GradientEQViewTest, startsStillAndSilent) {
    EXPECT_EQ(view.phase(), 0.0);
    EXPECT_EQ(view.smoothedLevel(), 0.0);
    EXPECT_FALSE(view.isAnimating());
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
}

TEST_F(GradientEQViewTest, risesFastAndFallsSlowly) {
    float level = 1.0F;
    view.levelSource = [&level] { return level; };
    view.tick();
    EXPECT_NEAR(view.smoothedLevel(), 0.45, 1e-12);
    view.tick();
    EXPECT_NEAR(view.smoothedLevel(), 0.6975, 1e-12);
    level = 0.0F;
    view.tick();
    EXPECT_NEAR(view.smoothedLevel(), 0.6138, 1e-12);
    view.tick();
    EXPECT_NEAR(view.smoothedLevel(), 0.540144, 1e-12);
}

TEST_F(GradientEQViewTest, tooMuchCountsAsOneAndNonsenseAsSilence) {
    EXPECT_NEAR(levelAfterOneTickOf(2.0F), 0.45, 1e-12);
    EXPECT_NEAR(levelAfterOneTickOf(std::numeric_limits<float>::infinity()), 0.45, 1e-12);
    EXPECT_EQ(levelAfterOneTickOf(-1.0F), 0.0);
    EXPECT_EQ(levelAfterOneTickOf(-std::numeric_limits<float>::infinity()), 0.0);
    EXPECT_EQ(levelAfterOneTickOf(std::numeric_limits<float>::quiet_NaN()), 0.0);
}

TEST_F(GradientEQViewTest, nothingToReadIsSilence) {
    view.levelSource = [] { return 1.0F; };
    view.tick();
    view.levelSource = {};
    view.tick();
    EXPECT_NEAR(view.smoothedLevel(), 0.45 * 0.88, 1e-12);
}

TEST_F(GradientEQViewTest, everyTickMovesTheWaveAndAsksForARedraw) {
    int redraws = 0;
    view.onRedraw = [&redraws] { ++redraws; };
    view.tick();
    view.tick();
    view.tick();
    EXPECT_NEAR(view.phase(), 0.66, 1e-12);
    EXPECT_EQ(redraws, 3);
}

TEST_F(GradientEQViewTest, ticksThirtyTimesASecondUntilStopped) {
    int ticks = 0;
    view.onRedraw = [&ticks] { ++ticks; };
    view.startAnimating();
    view.startAnimating(); // a second timer would double the pace
    EXPECT_EQ(scheduler.repeatingTimers(), 1);
    EXPECT_EQ(ticks, 0);
    scheduler.advance(milliseconds(999));
    EXPECT_EQ(ticks, 30);
    view.stopAnimating();
    EXPECT_FALSE(view.isAnimating());
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
    scheduler.advance(milliseconds(999));
    EXPECT_EQ(ticks, 30);
}

TEST_F(GradientEQViewTest, theTimerDiesWithTheView) {
    auto brief = std::make_unique<GradientEQView>(scheduler);
    brief->startAnimating();
    EXPECT_EQ(scheduler.repeatingTimers(), 1);
    brief.reset();
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
    scheduler.advance(milliseconds(100));
}

// Heights worked out by hand: 30 x (level x 0.82 + 0.18) x (sin(phase x speed + offset) / 2 + 0.5).
TEST_F(GradientEQViewTest, barsHaveTheHeightsOfTheirWaves) {
    view.levelSource = [] { return 1.0F; };
    view.tick(); // level 0.45, phase 0.22: the full height is 16.47
    const double heights[] = {10.0321, 13.9475, 5.0, 16.4538, 5.0, 5.0, 8.6926, 14.8413};
    for (int bar = 0; bar < 8; ++bar)
        EXPECT_NEAR(view.barRect(bar, bounds).height(), heights[bar], 1e-4) << "bar " << bar;
    for (int tick = 1; tick < 10; ++tick)
        view.tick(); // level 0.99747, phase 2.2: what was at its least has risen
    const double later[] = {27.0711, 5.0, 13.2782, 5.0, 8.2808, 26.7575, 6.2327, 16.9330};
    for (int bar = 0; bar < 8; ++bar)
        EXPECT_NEAR(view.barRect(bar, bounds).height(), later[bar], 1e-4) << "bar " << bar;
}

TEST_F(GradientEQViewTest, goesOnWhereItStopped) {
    view.levelSource = [] { return 1.0F; };
    view.startAnimating();
    scheduler.advance(GradientEQView::tickInterval * 3);
    const double phase = view.phase();
    const double level = view.smoothedLevel();
    view.stopAnimating();
    view.startAnimating();
    EXPECT_EQ(view.phase(), phase);
    EXPECT_EQ(view.smoothedLevel(), level);
    EXPECT_NEAR(phase, 0.66, 1e-12);
}

TEST_F(GradientEQViewTest, barsStandSideBySideCentredInTheHeight) {
    view.levelSource = [] { return 1.0F; };
    for (int tick = 0; tick < 10; ++tick)
        view.tick();
    for (int bar = 0; bar < 8; ++bar) {
        const QRectF rect = view.barRect(bar, bounds);
        EXPECT_NEAR(rect.left(), 44 + 8.3 * bar, 1e-9);
        EXPECT_EQ(rect.width(), 4.0);
        EXPECT_NEAR(rect.center().y(), 28.0, 1e-9);
    }
}

TEST_F(GradientEQViewTest, inSilenceTheBarsRippleBetweenTheirLeastHeightAndAFifth) {
    double lowest = 30;
    double highest = 0;
    for (int tick = 0; tick < 3000; ++tick) {
        view.tick();
        for (int bar = 0; bar < 8; ++bar) {
            const double height = view.barRect(bar, bounds).height();
            lowest = std::min(lowest, height);
            highest = std::max(highest, height);
        }
    }
    EXPECT_EQ(lowest, 5.0);
    EXPECT_LE(highest, 0.18 * 30 + 1e-9);
    EXPECT_GT(highest, 5.39);
}

TEST_F(GradientEQViewTest, atFullVoiceNoBarLeavesTheMeter) {
    view.levelSource = [] { return 1.0F; };
    double highest = 0;
    for (int tick = 0; tick < 3000; ++tick) {
        view.tick();
        for (int bar = 0; bar < 8; ++bar)
            highest = std::max(highest, view.barRect(bar, bounds).height());
    }
    EXPECT_LE(highest, 30.0);
    EXPECT_GT(highest, 29.9);
}

bool near(const QColor &a, const QColor &b) {
    return std::abs(a.red() - b.red()) < 14 && std::abs(a.green() - b.green()) < 14 &&
           std::abs(a.blue() - b.blue()) < 14;
}

TEST_F(GradientEQViewTest, eachBarRunsThroughTheWholeGradientWithRoundEnds) {
    view.levelSource = [] { return 1.0F; };
    for (int tick = 0; tick < 10; ++tick)
        view.tick();
    constexpr int scale = 16;
    QImage image(62 * scale, 30 * scale, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    QPainter painter(&image);
    painter.scale(scale, scale);
    view.draw(painter, QRectF(0, 0, 62, 30));
    painter.end();
    for (int bar = 0; bar < 8; ++bar) {
        const QRectF rect = view.barRect(bar, QRectF(0, 0, 62, 30));
        const auto at = [&](double x, double part) {
            const double y = rect.top() + rect.height() * part;
            return image.pixelColor(int((rect.left() + x) * scale), int(y * scale));
        };
        EXPECT_TRUE(near(at(2, 0.01), QColor(139, 92, 246))) << "top of bar " << bar;
        EXPECT_TRUE(near(at(2, 0.38), QColor(91, 77, 255))) << "bar " << bar;
        EXPECT_TRUE(near(at(2, 0.68), QColor(79, 140, 255))) << "bar " << bar;
        EXPECT_TRUE(near(at(2, 0.99), QColor(0, 212, 224))) << "bottom of bar " << bar;
        EXPECT_EQ(at(0.1, 0.01), QColor(Qt::black)) << "corner of bar " << bar;
        EXPECT_NE(at(0.1, 0.5), QColor(Qt::black)) << "side of bar " << bar;
    }
}

} // namespace
} // namespace quenda
