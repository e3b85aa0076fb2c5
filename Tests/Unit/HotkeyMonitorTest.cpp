#include "Quenda/HotkeyMonitor.h"

#include "Fakes/FakeKeyTap.h"
#include "Fakes/TestMain.h"
#include "Fakes/VirtualScheduler.h"
#include "Quenda/Log.h"

#include <QFile>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

namespace quenda {

namespace {

using namespace std::chrono_literals;
using Type = KeyEvent::Type;

struct Row {
    HotkeyChoice choice;
    int keyCode;
    std::uint64_t flag;
    int leftKeyCode; ///< the key of the same flag on the other side, 0 where there is none
};
constexpr std::array kTable{
    Row{HotkeyChoice::rightOption, 0x3D, 0x00080000, keys::kLeftOption},
    Row{HotkeyChoice::rightCommand, 0x36, 0x00100000, keys::kLeftCommand},
    Row{HotkeyChoice::rightControl, 0x3E, 0x00040000, keys::kLeftControl},
    Row{HotkeyChoice::fnGlobe, 0x3F, 0x00800000, 0},
};

class HotkeyMonitorTest : public testing::Test {
protected:
    HotkeyMonitorTest() {
        monitor.onPress = [this] { calls += QLatin1Char('P'); };
        monitor.onRelease = [this] { calls += QLatin1Char('R'); };
        monitor.onEscape = [this] { calls += QLatin1Char('E'); };
    }

    void flagsChanged(int keyCode, std::uint64_t flags) {
        taps.flagsChanged(keyCode, flags);
        scheduler.runPending();
    }
    void escapeDown() {
        taps.keyDown(keys::kEscape);
        scheduler.runPending();
    }
    /// The messages in the log, without their times.
    static QStringList logged() {
        Log::flush();
        QFile file(Log::fileURL());
        QStringList messages;
        if (!file.open(QIODevice::ReadOnly))
            return messages;
        for (const QString &line : QString::fromUtf8(file.readAll()).split(u'\n')) {
            const qsizetype start = line.indexOf(QStringLiteral("hotkey: "));
            if (start >= 0)
                messages.append(line.mid(start));
        }
        return messages;
    }

    fakes::FakeKeyTapFactory taps;
    fakes::VirtualScheduler scheduler;
    HotkeyMonitor monitor{taps, scheduler};
    QString calls; ///< P(ress), R(elease), E(scape) in their order
};

const QString kReenabled = QStringLiteral("hotkey: event tap was disabled — re-enabled");
const QString kRecreating = QStringLiteral("hotkey: event tap dead — recreating");

TEST_F(HotkeyMonitorTest, BeginsStoppedWatchingRightOption) {
    EXPECT_EQ(monitor.key, HotkeyChoice::rightOption);
    EXPECT_FALSE(monitor.escapeEnabled);
    EXPECT_FALSE(monitor.keyIsDown());
    EXPECT_EQ(taps.created, 0);
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
}

TEST_F(HotkeyMonitorTest, StartInstallsAnEnabledTapAndTheWatchdog) {
    EXPECT_TRUE(monitor.start());
    EXPECT_EQ(taps.created, 1);
    EXPECT_TRUE(taps.newestEnabled());
    EXPECT_EQ(scheduler.repeatingTimers(), 1);
}

TEST_F(HotkeyMonitorTest, RefusedTapChangesNothing) {
    taps.refuse = true;
    EXPECT_FALSE(monitor.start());
    EXPECT_EQ(taps.liveTaps(), 0);
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
    EXPECT_THAT(logged(), testing::IsEmpty());

    taps.refuse = false;
    ASSERT_TRUE(monitor.start());
    taps.refuse = true;
    EXPECT_FALSE(monitor.start());
    EXPECT_TRUE(taps.newestEnabled()) << "the running tap stays";
    EXPECT_EQ(scheduler.repeatingTimers(), 1);
}

TEST_F(HotkeyMonitorTest, StopRemovesTapAndWatchdogAndMayBeRepeated) {
    monitor.stop();
    ASSERT_TRUE(monitor.start());
    monitor.stop();
    EXPECT_EQ(taps.liveTaps(), 0);
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
    monitor.stop();
    EXPECT_TRUE(monitor.start());
    EXPECT_EQ(taps.created, 2);
}

TEST_F(HotkeyMonitorTest, SecondStartReplacesTapAndTimer) {
    ASSERT_TRUE(monitor.start());
    ASSERT_TRUE(monitor.start());
    EXPECT_EQ(taps.created, 2);
    EXPECT_TRUE(taps.newestEnabled());
    EXPECT_EQ(scheduler.repeatingTimers(), 1);
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    EXPECT_EQ(calls, QStringLiteral("P"));
}

TEST_F(HotkeyMonitorTest, StopLeavesTheKeyStateAsItIs) {
    ASSERT_TRUE(monitor.start());
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    monitor.stop();
    EXPECT_TRUE(monitor.keyIsDown());
    ASSERT_TRUE(monitor.start());
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    EXPECT_EQ(calls, QStringLiteral("P")) << "already down";
    flagsChanged(keys::kRightOption, 0);
    EXPECT_EQ(calls, QStringLiteral("PR"));
}

TEST_F(HotkeyMonitorTest, EachChoiceHearsItsOwnKeyOnly) {
    ASSERT_TRUE(monitor.start());
    for (const Row &row : kTable) {
        monitor.key = row.choice;
        for (const Row &other : kTable) {
            calls.clear();
            flagsChanged(other.keyCode, other.flag);
            flagsChanged(other.keyCode, 0);
            EXPECT_EQ(calls, other.choice == row.choice ? QStringLiteral("PR") : QString())
                << "watching " << row.keyCode << ", key " << other.keyCode;
        }
        if (row.leftKeyCode != 0) {
            calls.clear();
            flagsChanged(row.leftKeyCode, row.flag);
            flagsChanged(row.leftKeyCode, 0);
            EXPECT_EQ(calls, QString()) << "left key " << row.leftKeyCode;
        }
    }
}

TEST_F(HotkeyMonitorTest, OnlyTheKeysOwnFlagCounts) {
    ASSERT_TRUE(monitor.start());
    for (const Row &row : kTable) {
        monitor.key = row.choice;
        calls.clear();
        flagsChanged(row.keyCode, ~row.flag);
        EXPECT_EQ(calls, QString()) << "every flag but its own means up";
        flagsChanged(row.keyCode, ~std::uint64_t(0));
        EXPECT_EQ(calls, QStringLiteral("P")) << "other flags do not matter";
        flagsChanged(row.keyCode, ~row.flag);
        EXPECT_EQ(calls, QStringLiteral("PR"));
    }
}

TEST_F(HotkeyMonitorTest, RepeatedStatesAreReportedOnce) {
    ASSERT_TRUE(monitor.start());
    flagsChanged(keys::kRightOption, 0);
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    flagsChanged(keys::kRightOption, keys::kFlagAlternate | keys::kFlagControl);
    EXPECT_EQ(calls, QStringLiteral("P"));
    flagsChanged(keys::kRightOption, 0);
    flagsChanged(keys::kRightOption, 0);
    EXPECT_EQ(calls, QStringLiteral("PR"));
}

TEST_F(HotkeyMonitorTest, LeftCommandDuringRightCommandChangesNothing) {
    monitor.key = HotkeyChoice::rightCommand;
    ASSERT_TRUE(monitor.start());
    flagsChanged(keys::kRightCommand, keys::kFlagCommand);
    flagsChanged(keys::kLeftCommand, keys::kFlagCommand);
    flagsChanged(keys::kLeftCommand, keys::kFlagCommand);
    EXPECT_EQ(calls, QStringLiteral("P"));
    flagsChanged(keys::kRightCommand, 0);
    EXPECT_EQ(calls, QStringLiteral("PR"));
}

TEST_F(HotkeyMonitorTest, ReleaseUnderTheLeftKeyIsSeenOnlyOnceTheFlagIsClear) {
    ASSERT_TRUE(monitor.start());
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    flagsChanged(keys::kLeftOption, keys::kFlagAlternate);
    flagsChanged(keys::kRightOption, keys::kFlagAlternate); // right let go, left still held
    EXPECT_EQ(calls, QStringLiteral("P"));
    flagsChanged(keys::kLeftOption, 0);
    EXPECT_EQ(calls, QStringLiteral("P")) << "not an event of the right key";
    EXPECT_TRUE(monitor.keyIsDown());
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    EXPECT_EQ(calls, QStringLiteral("P"));
    flagsChanged(keys::kRightOption, 0);
    EXPECT_EQ(calls, QStringLiteral("PR"));
}

TEST_F(HotkeyMonitorTest, ChangedKeyWhileTheOldOneIsHeld) {
    ASSERT_TRUE(monitor.start());
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    monitor.key = HotkeyChoice::rightControl;
    EXPECT_TRUE(monitor.keyIsDown());
    flagsChanged(keys::kRightOption, 0);
    EXPECT_EQ(calls, QStringLiteral("P")) << "the old key is not watched any more";
    flagsChanged(keys::kRightControl, keys::kFlagControl);
    EXPECT_EQ(calls, QStringLiteral("P")) << "down already";
    flagsChanged(keys::kRightControl, 0);
    EXPECT_EQ(calls, QStringLiteral("PR"));
}

TEST_F(HotkeyMonitorTest, EscapeIsReportedEachTimeWhileWanted) {
    ASSERT_TRUE(monitor.start());
    escapeDown();
    EXPECT_EQ(calls, QString());
    monitor.escapeEnabled = true;
    escapeDown();
    escapeDown();
    EXPECT_EQ(calls, QStringLiteral("EE")) << "repeats too";
    monitor.escapeEnabled = false;
    escapeDown();
    EXPECT_EQ(calls, QStringLiteral("EE"));
}

TEST_F(HotkeyMonitorTest, EscapeIsDecidedWhenThePressComes) {
    ASSERT_TRUE(monitor.start());
    monitor.escapeEnabled = true;
    taps.keyDown(keys::kEscape);
    monitor.escapeEnabled = false;
    scheduler.runPending();
    EXPECT_EQ(calls, QStringLiteral("E"));
}

TEST_F(HotkeyMonitorTest, OtherKeysAndOtherEventsAreIgnored) {
    monitor.escapeEnabled = true;
    ASSERT_TRUE(monitor.start());
    const int enables = taps.enableCalls;
    for (int code = 0; code < 128; ++code) {
        if (code != keys::kEscape)
            taps.keyDown(code, ~std::uint64_t(0));
    }
    taps.flagsChanged(keys::kEscape, ~std::uint64_t(0));
    taps.send({Type(11), keys::kEscape, 0}); // a key going up
    taps.send({Type(11), keys::kRightOption, keys::kFlagAlternate});
    scheduler.runPending();
    EXPECT_EQ(calls, QString());
    EXPECT_EQ(taps.enableCalls, enables);
    EXPECT_FALSE(monitor.keyIsDown());
}

TEST_F(HotkeyMonitorTest, CallbacksNeverRunInsideTheTapsCall) {
    monitor.escapeEnabled = true;
    ASSERT_TRUE(monitor.start());
    taps.flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    taps.keyDown(keys::kEscape);
    taps.flagsChanged(keys::kRightOption, 0);
    EXPECT_EQ(calls, QString());
    EXPECT_FALSE(monitor.keyIsDown());
    scheduler.runPending();
    EXPECT_EQ(calls, QStringLiteral("PER"));
}

TEST_F(HotkeyMonitorTest, AbsentCallbacksAreHarmlessAndLateOnesCount) {
    monitor.onPress = nullptr;
    monitor.onEscape = nullptr;
    monitor.onRelease = nullptr;
    monitor.escapeEnabled = true;
    ASSERT_TRUE(monitor.start());
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    escapeDown();
    EXPECT_TRUE(monitor.keyIsDown());
    taps.flagsChanged(keys::kRightOption, 0);
    monitor.onRelease = [this] { calls += QLatin1Char('r'); };
    scheduler.runPending();
    EXPECT_EQ(calls, QStringLiteral("r"));
}

TEST_F(HotkeyMonitorTest, NothingIsCalledOnceTheMonitorIsGone) {
    auto shortLived = std::make_unique<HotkeyMonitor>(taps, scheduler);
    int presses = 0;
    shortLived->onPress = [&presses] { ++presses; };
    ASSERT_TRUE(shortLived->start());
    taps.flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    shortLived.reset();
    scheduler.advance(60s);
    EXPECT_EQ(presses, 0);
    EXPECT_EQ(taps.liveTaps(), 0);
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
}

TEST_F(HotkeyMonitorTest, CallbackMayStopAndRestartTheMonitor) {
    monitor.onPress = [this] {
        monitor.stop();
        EXPECT_TRUE(monitor.start());
        monitor.onPress = nullptr; // while it runs
        calls += QLatin1Char('P');
    };
    ASSERT_TRUE(monitor.start());
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    flagsChanged(keys::kRightOption, 0);
    EXPECT_EQ(calls, QStringLiteral("PR"));
    EXPECT_EQ(taps.created, 2);
    EXPECT_EQ(taps.liveTaps(), 1);
}

TEST_F(HotkeyMonitorTest, WhatWasSeenBeforeStopIsStillReported) {
    ASSERT_TRUE(monitor.start());
    taps.flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    monitor.stop();
    scheduler.runPending();
    EXPECT_EQ(calls, QStringLiteral("P"));
}

TEST_F(HotkeyMonitorTest, DisabledNoticesEnableTheTapSilently) {
    for (const Type notice : {Type::TapDisabledByTimeout, Type::TapDisabledByUserInput}) {
        ASSERT_TRUE(monitor.start());
        taps.send({notice, 0, 0});
        EXPECT_TRUE(taps.newestEnabled());
        scheduler.runPending();
        monitor.stop();
    }
    EXPECT_EQ(calls, QString());
    EXPECT_THAT(logged(), testing::IsEmpty());
}

TEST_F(HotkeyMonitorTest, WatchdogEnablesADisabledTap) {
    ASSERT_TRUE(monitor.start());
    taps.disableSilently();
    scheduler.advance(29999ms);
    EXPECT_FALSE(taps.newestEnabled());
    scheduler.advance(1ms);
    EXPECT_TRUE(taps.newestEnabled());
    EXPECT_EQ(taps.created, 1);
    EXPECT_THAT(logged(), testing::ElementsAre(kReenabled));

    scheduler.advance(30s);
    EXPECT_THAT(logged(), testing::SizeIs(1)) << "an enabled tap is left alone";
    taps.disableSilently();
    scheduler.advance(30s);
    EXPECT_THAT(logged(), testing::ElementsAre(kReenabled, kReenabled));
}

TEST_F(HotkeyMonitorTest, WatchdogLeavesAHealthyTapAlone) {
    ASSERT_TRUE(monitor.start());
    const int enables = taps.enableCalls;
    scheduler.advance(5min);
    EXPECT_EQ(taps.enableCalls, enables);
    EXPECT_EQ(taps.created, 1);
    EXPECT_THAT(logged(), testing::IsEmpty());
}

TEST_F(HotkeyMonitorTest, WatchdogRecreatesADeadTap) {
    ASSERT_TRUE(monitor.start());
    taps.disableSilently();
    taps.enableRefused = true;
    scheduler.advance(30s);
    EXPECT_EQ(taps.created, 2);
    EXPECT_EQ(taps.liveTaps(), 1);
    EXPECT_THAT(logged(), testing::ElementsAre(kRecreating));

    taps.enableRefused = false;
    scheduler.advance(29999ms);
    EXPECT_FALSE(taps.newestEnabled()) << "the new watchdog counts from the recreation";
    scheduler.advance(1ms);
    EXPECT_TRUE(taps.newestEnabled());
    EXPECT_EQ(scheduler.repeatingTimers(), 1);
    EXPECT_THAT(logged(), testing::ElementsAre(kRecreating, kReenabled));
    flagsChanged(keys::kRightOption, keys::kFlagAlternate);
    EXPECT_EQ(calls, QStringLiteral("P"));
}

TEST_F(HotkeyMonitorTest, RefusedRecreationLeavesTheMonitorStopped) {
    ASSERT_TRUE(monitor.start());
    taps.disableSilently();
    taps.enableRefused = true;
    taps.refuse = true;
    scheduler.advance(30s);
    EXPECT_EQ(taps.liveTaps(), 0);
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
    EXPECT_THAT(logged(), testing::ElementsAre(kRecreating));

    scheduler.advance(5min);
    EXPECT_THAT(logged(), testing::SizeIs(1)) << "silently, until it is started again";
    taps.enableRefused = false;
    taps.refuse = false;
    EXPECT_TRUE(monitor.start());
    EXPECT_TRUE(taps.newestEnabled());
}

} // namespace

} // namespace quenda
