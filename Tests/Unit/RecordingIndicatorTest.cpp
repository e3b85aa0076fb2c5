#include "Quenda/RecordingIndicator.h"

#include "Fakes/FakePlatform.h"
#include "Fakes/VirtualScheduler.h"
#include "Quenda/PillPalette.h"
#include "Quenda/PillPanel.h"

#include <QApplication>
#include <QMouseEvent>
#include <QScreen>
#include <QWindow>

#include <gtest/gtest.h>

#include <memory>

namespace quenda {
namespace {

using fakes::FakeWorkspace;
using fakes::VirtualScheduler;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using Mode = RecordingIndicator::Mode;

void clickAt(QWidget &window, const QPoint &position) {
    QWidget *child = window.childAt(position);
    QWidget &target = child ? *child : window;
    const QPointF local = target.mapFrom(&window, position);
    for (const QEvent::Type type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
        QMouseEvent event(type, local, target.mapToGlobal(local), Qt::LeftButton,
                          type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton,
                          Qt::NoModifier);
        QApplication::sendEvent(&target, &event);
    }
}

struct RecordingIndicatorTest : testing::Test {
    VirtualScheduler scheduler;
    FakeWorkspace workspace;
    std::unique_ptr<RecordingIndicator> indicator =
        std::make_unique<RecordingIndicator>(scheduler, workspace);

    PillPanel &panel() { return *indicator->panel(); }
    bool cancelVisible() { return panel().cancelButton()->isVisible(); }
    const QPoint cancelCentre{296, 28};
};

TEST_F(RecordingIndicatorTest, buildsNothingBeforeItIsShown) {
    EXPECT_EQ(indicator->panel(), nullptr);
    EXPECT_FALSE(indicator->isVisible());
    indicator->hide();
    EXPECT_EQ(indicator->panel(), nullptr);
    EXPECT_EQ(scheduler.repeatingTimers() + scheduler.pendingOneShots(), 0);
}

TEST_F(RecordingIndicatorTest, recordingShowsEverything) {
    indicator->show(Mode::recording, [] { return 0.5F; });
    EXPECT_TRUE(indicator->isVisible());
    EXPECT_EQ(panel().label(), QStringLiteral("Listening…"));
    EXPECT_EQ(panel().clock(), QStringLiteral("00:00"));
    EXPECT_TRUE(panel().isClockVisible());
    EXPECT_TRUE(panel().isDotVisible());
    EXPECT_TRUE(cancelVisible());
    EXPECT_EQ(panel().dotColour(), QColor(239, 68, 68));
    EXPECT_TRUE(panel().meter().isAnimating());
}

TEST_F(RecordingIndicatorTest, transcribingHidesTheClockAndCalmsTheDot) {
    indicator->show(Mode::recording, [] { return 0.5F; });
    scheduler.advance(milliseconds(400));
    indicator->show(Mode::transcribing);
    EXPECT_TRUE(indicator->isVisible());
    EXPECT_EQ(panel().label(), QStringLiteral("Transcribing…"));
    EXPECT_FALSE(panel().isClockVisible());
    EXPECT_TRUE(panel().isDotVisible());
    EXPECT_TRUE(cancelVisible());
    EXPECT_EQ(panel().dotColour(), QColor(0, 212, 224));
    scheduler.advance(milliseconds(700));
    EXPECT_EQ(panel().dotOpacity(), 1.0);
}

TEST_F(RecordingIndicatorTest, aNoticeStandsAloneWithTheMeter) {
    indicator->show(Mode::recording);
    indicator->showTransient(QStringLiteral("Inserted ✓"));
    EXPECT_TRUE(indicator->isVisible());
    EXPECT_EQ(panel().label(), QStringLiteral("Inserted ✓"));
    EXPECT_FALSE(panel().isClockVisible());
    EXPECT_FALSE(panel().isDotVisible());
    EXPECT_FALSE(cancelVisible());
    EXPECT_TRUE(panel().meter().isAnimating());
    EXPECT_EQ(scheduler.repeatingTimers(), 1) << "the clock must have stopped";

    indicator->show(Mode::recording);
    EXPECT_TRUE(panel().isClockVisible());
    EXPECT_TRUE(panel().isDotVisible());
    EXPECT_TRUE(cancelVisible());
}

TEST(PillPaletteTest, HasTheProductsColours) {
    EXPECT_EQ(palette::cardBackground, QColor(11, 16, 32));
    EXPECT_EQ(palette::cardBorder, QColor::fromRgbF(1, 1, 1, 0.08F));
    EXPECT_EQ(palette::textPrimary, QColor(255, 255, 255));
    EXPECT_EQ(palette::textMuted, QColor(170, 178, 207));
    EXPECT_EQ(palette::recordRed, QColor(239, 68, 68));
    EXPECT_EQ(palette::cyan, QColor(0, 212, 224));
    EXPECT_EQ(palette::barGradient, (QGradientStops{{0.0, QColor(139, 92, 246)},
                                                    {0.38, QColor(91, 77, 255)},
                                                    {0.68, QColor(79, 140, 255)},
                                                    {1.0, QColor(0, 212, 224)}}));
}

TEST_F(RecordingIndicatorTest, aNoticeMayComeFirst) {
    indicator->showTransient(QStringLiteral("Copied ✓"));
    EXPECT_TRUE(indicator->isVisible());
    EXPECT_FALSE(cancelVisible());
    EXPECT_FALSE(panel().isDotVisible());
    EXPECT_TRUE(panel().meter().isAnimating());
    EXPECT_EQ(panel().pos(),
              PillPanel::placeIn(QGuiApplication::primaryScreen()->availableGeometry()));
}

TEST_F(RecordingIndicatorTest, aNoticeGoesAfter1400Milliseconds) {
    indicator->showTransient(QStringLiteral("Cancelled"));
    scheduler.advance(milliseconds(1399));
    EXPECT_TRUE(indicator->isVisible());
    scheduler.advance(milliseconds(1));
    EXPECT_FALSE(indicator->isVisible());
    EXPECT_EQ(scheduler.repeatingTimers() + scheduler.pendingOneShots(), 0);
}

TEST_F(RecordingIndicatorTest, anOldNoticeDoesNotTakeAwayTheNextRecording) {
    indicator->showTransient(QStringLiteral("Inserted ✓"));
    scheduler.advance(milliseconds(1000));
    indicator->show(Mode::recording);
    scheduler.advance(seconds(5));
    EXPECT_TRUE(indicator->isVisible());
    EXPECT_EQ(panel().label(), QStringLiteral("Listening…"));
}

TEST_F(RecordingIndicatorTest, twoNoticesEndWithTheSecond) {
    indicator->showTransient(QStringLiteral("Cancelled"));
    scheduler.advance(milliseconds(1000));
    indicator->showTransient(QStringLiteral("Copied ✓"));
    scheduler.advance(milliseconds(1399));
    EXPECT_TRUE(indicator->isVisible());
    EXPECT_EQ(panel().label(), QStringLiteral("Copied ✓"));
    scheduler.advance(milliseconds(1));
    EXPECT_FALSE(indicator->isVisible());
}

TEST_F(RecordingIndicatorTest, hidingEndsAPendingNotice) {
    indicator->showTransient(QStringLiteral("Cancelled"));
    scheduler.advance(milliseconds(1000));
    indicator->hide();
    EXPECT_FALSE(indicator->isVisible());
    EXPECT_EQ(scheduler.pendingOneShots(), 0);
    scheduler.advance(milliseconds(300));
    indicator->showTransient(QStringLiteral("Copied ✓"));
    scheduler.advance(milliseconds(200)); // the first notice's end
    EXPECT_TRUE(indicator->isVisible());
}

TEST_F(RecordingIndicatorTest, theWholeWayOfADictation) {
    indicator->show(Mode::recording, [] { return 0.2F; });
    scheduler.advance(seconds(3));
    indicator->show(Mode::transcribing);
    scheduler.advance(seconds(2));
    EXPECT_TRUE(indicator->isVisible());
    indicator->showTransient(QStringLiteral("Inserted ✓"));
    scheduler.advance(milliseconds(1400));
    EXPECT_FALSE(indicator->isVisible());
}

TEST_F(RecordingIndicatorTest, theClockCountsWholeSecondsAndNeverStopsAtAnHour) {
    indicator->show(Mode::recording);
    scheduler.advance(milliseconds(999));
    EXPECT_EQ(panel().clock(), QStringLiteral("00:00"));
    scheduler.advance(milliseconds(1));
    EXPECT_EQ(panel().clock(), QStringLiteral("00:01"));
    scheduler.advance(milliseconds(58999));
    EXPECT_EQ(panel().clock(), QStringLiteral("00:59"));
    scheduler.advance(milliseconds(1));
    EXPECT_EQ(panel().clock(), QStringLiteral("01:00"));
    scheduler.advance(minutes(98) + seconds(59));
    EXPECT_EQ(panel().clock(), QStringLiteral("99:59"));
    scheduler.advance(seconds(1));
    EXPECT_EQ(panel().clock(), QStringLiteral("100:00"));
}

TEST_F(RecordingIndicatorTest, theClockIsSetTwiceASecond) {
    for (const Mode mode : {Mode::recording, Mode::transcribing}) {
        indicator->show(mode);
        EXPECT_EQ(scheduler.repeatingIntervals(),
                  (std::vector{GradientEQView::tickInterval, milliseconds(500)}));
    }
}

TEST_F(RecordingIndicatorTest, theClockFollowsTimeThatPassedNotTheWallClock) {
    indicator->show(Mode::recording);
    scheduler.jumpWallClock(std::chrono::hours(2));
    scheduler.advance(seconds(2));
    EXPECT_EQ(panel().clock(), QStringLiteral("00:02"));
}

TEST_F(RecordingIndicatorTest, everyShowRestartsTheClock) {
    indicator->show(Mode::recording);
    scheduler.advance(milliseconds(7700));
    EXPECT_EQ(panel().clock(), QStringLiteral("00:07"));
    indicator->show(Mode::transcribing);
    EXPECT_EQ(panel().clock(), QStringLiteral("00:00"));
    scheduler.advance(milliseconds(1000));
    EXPECT_EQ(panel().clock(), QStringLiteral("00:01"));
    indicator->show(Mode::recording);
    EXPECT_EQ(panel().clock(), QStringLiteral("00:00"));
}

TEST_F(RecordingIndicatorTest, theLastTimeStaysUntilTheNextShow) {
    indicator->show(Mode::recording);
    scheduler.advance(seconds(12));
    indicator->hide();
    EXPECT_EQ(panel().clock(), QStringLiteral("00:12"));
    scheduler.advance(seconds(12));
    EXPECT_EQ(panel().clock(), QStringLiteral("00:12"));
    indicator->show(Mode::recording);
    EXPECT_EQ(panel().clock(), QStringLiteral("00:00"));
}

TEST_F(RecordingIndicatorTest, aHiddenPillCostsNothing) {
    indicator->show(Mode::recording);
    EXPECT_EQ(scheduler.repeatingTimers(), 2);
    indicator->show(Mode::transcribing);
    EXPECT_EQ(scheduler.repeatingTimers(), 2);
    indicator->showTransient(QStringLiteral("Inserted ✓"));
    indicator->show(Mode::recording);
    indicator->hide();
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
    EXPECT_EQ(scheduler.pendingOneShots(), 0);
    EXPECT_FALSE(panel().meter().isAnimating());
}

TEST_F(RecordingIndicatorTest, oneWindowServesEveryShow) {
    indicator->show(Mode::recording);
    const PillPanel *first = indicator->panel();
    indicator->hide();
    indicator->showTransient(QStringLiteral("Copied ✓"));
    EXPECT_EQ(indicator->panel(), first);
    EXPECT_EQ(workspace.floatingPanels, 1);
}

TEST_F(RecordingIndicatorTest, theMeterHearsTheMicrophoneWhileRecording) {
    float level = 1.0F;
    indicator->show(Mode::recording, [&level] { return level; });
    scheduler.advance(GradientEQView::tickInterval);
    EXPECT_NEAR(panel().meter().smoothedLevel(), 0.45, 1e-6);
    level = 0.0F;
    scheduler.advance(GradientEQView::tickInterval);
    EXPECT_NEAR(panel().meter().smoothedLevel(), 0.45 * 0.88, 1e-6);
}

TEST_F(RecordingIndicatorTest, recordingWithoutALevelSourceIsSilent) {
    indicator->show(Mode::recording);
    scheduler.advance(seconds(1));
    EXPECT_EQ(panel().meter().smoothedLevel(), 0.0);
}

TEST_F(RecordingIndicatorTest, aShowWithoutALevelSourceDropsTheFormerOne) {
    indicator->show(Mode::recording, [] { return 1.0F; });
    indicator->show(Mode::recording);
    EXPECT_EQ(panel().meter().levelSource(), 0.0F);
}

TEST_F(RecordingIndicatorTest, transcribingKeepsACalmWaveWhateverTheMicrophoneSays) {
    indicator->show(Mode::transcribing, [] { return 1.0F; });
    scheduler.advance(seconds(5));
    EXPECT_NEAR(panel().meter().smoothedLevel(), 0.3, 1e-3);
}

TEST_F(RecordingIndicatorTest, aNoticeHasAFaintRipple) {
    indicator->show(Mode::recording, [] { return 1.0F; });
    indicator->showTransient(QStringLiteral("Inserted ✓"));
    EXPECT_NEAR(panel().meter().levelSource(), 0.06, 1e-6);
}

TEST_F(RecordingIndicatorTest, theMetersSourceOutlivesTheIndicatorHarmlessly) {
    indicator->show(Mode::recording, [] { return 1.0F; });
    const GradientEQView::LevelSource source = panel().meter().levelSource;
    EXPECT_EQ(source(), 1.0F);
    indicator.reset();
    EXPECT_EQ(source(), 0.0F);
    EXPECT_EQ(scheduler.repeatingTimers() + scheduler.pendingOneShots(), 0);
    workspace.compositingChanged();
    scheduler.advance(seconds(2));
}

TEST_F(RecordingIndicatorTest, theDotPulsesWhileRecording) {
    indicator->show(Mode::recording);
    EXPECT_EQ(panel().dotOpacity(), 1.0);
    scheduler.advance(milliseconds(450));
    EXPECT_NEAR(panel().dotOpacity(), 0.725, 1e-3);
    scheduler.advance(milliseconds(450));
    EXPECT_NEAR(panel().dotOpacity(), 0.45, 1e-3);
    scheduler.advance(milliseconds(450));
    EXPECT_NEAR(panel().dotOpacity(), 0.725, 1e-3);
    scheduler.advance(milliseconds(450));
    EXPECT_NEAR(panel().dotOpacity(), 1.0, 1e-3);
    scheduler.advance(milliseconds(300));
    indicator->show(Mode::recording);
    EXPECT_EQ(panel().dotOpacity(), 1.0) << "a new show begins a new pulse";
}

TEST_F(RecordingIndicatorTest, thePulseIsSlowAtBothEnds) {
    // A straight line would be at 0.945 and 0.505 here; the curve lags at both ends.
    EXPECT_NEAR(PillPanel::pulseOpacity(milliseconds(90)), 0.989, 0.002);
    EXPECT_NEAR(PillPanel::pulseOpacity(milliseconds(810)), 0.461, 0.002);
    EXPECT_NEAR(PillPanel::pulseOpacity(milliseconds(990)), 0.461, 0.002);
}

TEST_F(RecordingIndicatorTest, theButtonCancels) {
    int cancels = 0;
    indicator->show(Mode::recording);
    clickAt(panel(), cancelCentre); // nobody listens yet
    indicator->onCancel = [&cancels] { ++cancels; };
    clickAt(panel(), cancelCentre);
    EXPECT_EQ(cancels, 1);
    clickAt(panel(), QPoint(60, 28));
    EXPECT_EQ(cancels, 1) << "only the button cancels";
    EXPECT_EQ(panel().cancelButton()->accessibleName(), QStringLiteral("Cancel dictation"));
}

TEST_F(RecordingIndicatorTest, cancellingMayHideThePillAndReplaceTheCallback) {
    indicator->onCancel = [this] {
        indicator->hide();
        indicator->onCancel = {};
    };
    indicator->show(Mode::recording);
    clickAt(panel(), cancelCentre);
    EXPECT_FALSE(indicator->isVisible());
    indicator->show(Mode::recording);
    clickAt(panel(), cancelCentre);
    EXPECT_TRUE(indicator->isVisible());
}

TEST_F(RecordingIndicatorTest, aNoticeHasNothingToClick) {
    int cancels = 0;
    indicator->onCancel = [&cancels] { ++cancels; };
    indicator->showTransient(QStringLiteral("Cancelled"));
    EXPECT_EQ(panel().childAt(cancelCentre), nullptr);
    clickAt(panel(), cancelCentre);
    EXPECT_EQ(cancels, 0);
}

TEST_F(RecordingIndicatorTest, standsAtTheBottomCentreOfTheAvailableArea) {
    EXPECT_EQ(PillPanel::placeIn(QRect(0, 24, 1920, 1016)), QPoint(800, 924));
    EXPECT_EQ(PillPanel::placeIn(QRect(1920, 0, 1280, 984)), QPoint(2400, 868));
    indicator->show(Mode::recording);
    EXPECT_EQ(panel().pos(),
              PillPanel::placeIn(QGuiApplication::primaryScreen()->availableGeometry()));
    EXPECT_EQ(panel().size(), QSize(320, 56));
    panel().move(3, 4);
    indicator->show(Mode::transcribing);
    EXPECT_EQ(panel().pos(),
              PillPanel::placeIn(QGuiApplication::primaryScreen()->availableGeometry()));
}

TEST_F(RecordingIndicatorTest, followsTheAvailableAreaWhileVisible) {
    const QPoint home = PillPanel::placeIn(QGuiApplication::primaryScreen()->availableGeometry());
    indicator->show(Mode::recording);
    panel().move(3, 4);
    Q_EMIT QGuiApplication::primaryScreen()->availableGeometryChanged({});
    EXPECT_EQ(panel().pos(), home);
    panel().move(3, 4);
    Q_EMIT qGuiApp->primaryScreenChanged(QGuiApplication::primaryScreen());
    EXPECT_EQ(panel().pos(), home);
    indicator->hide();
    panel().move(3, 4);
    Q_EMIT QGuiApplication::primaryScreen()->availableGeometryChanged({});
    EXPECT_EQ(panel().pos(), QPoint(3, 4));
}

TEST_F(RecordingIndicatorTest, neverTakesTheKeyboardFocus) {
    indicator->show(Mode::recording);
    clickAt(panel(), cancelCentre);
    EXPECT_EQ(workspace.activations, 0);
    EXPECT_EQ(QApplication::focusWidget(), nullptr);
    EXPECT_TRUE(panel().windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(panel().windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    EXPECT_TRUE(panel().windowFlags().testFlag(Qt::FramelessWindowHint));
    EXPECT_TRUE(panel().testAttribute(Qt::WA_ShowWithoutActivating));
    EXPECT_EQ(panel().focusPolicy(), Qt::NoFocus);
    EXPECT_EQ(panel().cancelButton()->focusPolicy(), Qt::NoFocus);
}

TEST_F(RecordingIndicatorTest, isTranslucentOnlyWhereTheDesktopComposites) {
    workspace.compositing = false;
    indicator->show(Mode::recording);
    EXPECT_FALSE(panel().testAttribute(Qt::WA_TranslucentBackground));
    EXPECT_FALSE(panel().windowHandle()->requestedFormat().hasAlpha());
    EXPECT_EQ(workspace.floatingPanels, 1);

    workspace.compositing = true;
    workspace.compositingChanged();
    EXPECT_TRUE(indicator->isVisible());
    EXPECT_TRUE(panel().testAttribute(Qt::WA_TranslucentBackground));
    EXPECT_TRUE(panel().windowHandle()->requestedFormat().hasAlpha());
    EXPECT_EQ(workspace.floatingPanels, 2);
    EXPECT_EQ(panel().pos(),
              PillPanel::placeIn(QGuiApplication::primaryScreen()->availableGeometry()));

    indicator->hide();
    workspace.compositing = false;
    workspace.compositingChanged();
    EXPECT_FALSE(indicator->isVisible());
    indicator->show(Mode::recording);
    EXPECT_FALSE(panel().windowHandle()->requestedFormat().hasAlpha());
    EXPECT_EQ(workspace.floatingPanels, 3);
    workspace.compositingChanged(); // nothing changed in truth
    EXPECT_EQ(workspace.floatingPanels, 3);
}

} // namespace
} // namespace quenda
