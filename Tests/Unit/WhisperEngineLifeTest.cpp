// What happens to a server by itself: it crashes, or nobody needs it for a while.
#include "Fakes/EngineFixture.h"

#include <limits>

using namespace quenda;
using namespace quenda::fakes;
using namespace std::chrono_literals;
using Kind = WhisperEngine::State::Kind;

namespace {

class WhisperEngineLifeTest : public EngineFixture {};

// ---- Crashes ----

TEST_F(WhisperEngineLifeTest, aCrashRestartsAfterTwoSeconds) {
    startUntilReady();
    child(0).exit(11);
    expectFailed(kRestarting);
    EXPECT_EQ(engineLog().mid(3),
              (QStringList{QStringLiteral("engine: whisper-server exited unexpectedly (status 11, "
                                          "crash 1 in window)"),
                           QStringLiteral("engine: ") + kRestarting}));
    scheduler.advance(1999ms);
    EXPECT_EQ(processes.children.size(), 1u);
    scheduler.advance(1ms);
    EXPECT_EQ(processes.children.size(), 2u);
    EXPECT_EQ(engine->state().kind, Kind::starting);
    http.answer(200);
    EXPECT_EQ(engine->state().kind, Kind::ready);
}

TEST_F(WhisperEngineLifeTest, aCrashWhileStartingRestartsAndEndsThePolling) {
    engine->start();
    child(0).exit(3);
    expectFailed(kRestarting);
    http.answer(200); // somebody else's
    expectFailed(kRestarting);
    scheduler.advance(2s);
    EXPECT_EQ(engine->state().kind, Kind::starting);
    EXPECT_EQ(http.exchanges.size(), 2u);
}

TEST_F(WhisperEngineLifeTest, theRestartIsLeftOutWhenItIsUpAgain) {
    startUntilReady();
    child(0).exit(1);
    scheduler.advance(1s);
    startUntilReady(); // by hand
    scheduler.advance(10s);
    EXPECT_EQ(processes.children.size(), 2u);
}

TEST_F(WhisperEngineLifeTest, theRestartAlsoFollowsAnotherFailure) {
    startUntilReady();
    child(0).exit(1);
    ASSERT_TRUE(QFile::remove(model));
    engine->start();
    expectFailed(kNoModel);
    writeFile(model);
    scheduler.advance(2s);
    EXPECT_EQ(engine->state().kind, Kind::starting);
}

TEST_F(WhisperEngineLifeTest, theFourthCrashInTheWindowIsTheLast) {
    startUntilReady();
    for (size_t crash = 0; crash < 3; ++crash) {
        child(crash).exit(1);
        expectFailed(kRestarting);
        scheduler.advance(2s);
        http.answer(200);
        ASSERT_EQ(engine->state().kind, Kind::ready);
    }
    child(3).exit(1);
    expectFailed(kKeepsCrashing);
    EXPECT_TRUE(engineLog().contains(QStringLiteral(
        "engine: whisper-server exited unexpectedly (status 1, crash 4 in window)")));
    scheduler.advance(50s);
    expectFailed(kKeepsCrashing);
    EXPECT_EQ(processes.children.size(), 4u);

    startUntilReady(); // by the controller: allowed, but the next crash is the fifth
    child(4).exit(1);
    expectFailed(kKeepsCrashing);
    scheduler.advance(10s);
    EXPECT_EQ(processes.children.size(), 5u);
}

TEST_F(WhisperEngineLifeTest, theWindowRunsFromCrashToCrash) {
    const auto crash = [this] {
        if (engine->state().kind != Kind::ready)
            startUntilReady();
        child(processes.children.size() - 1).exit(1);
        return engineLog().filter(QStringLiteral("exited unexpectedly")).last();
    };
    const auto number = [](int n) {
        return QStringLiteral("engine: whisper-server exited unexpectedly (status 1, crash %1 in "
                              "window)")
            .arg(n);
    };
    EXPECT_EQ(crash(), number(1));
    startUntilReady();
    scheduler.advance(59900ms);
    EXPECT_EQ(crash(), number(2));
    startUntilReady();
    scheduler.advance(59999ms); // from the second one, not from the first
    EXPECT_EQ(crash(), number(3));
    startUntilReady();
    scheduler.advance(60s);
    EXPECT_EQ(crash(), number(1));
    expectFailed(kRestarting);
}

TEST_F(WhisperEngineLifeTest, theWallClockDoesNotMoveTheWindow) {
    startUntilReady();
    child(0).exit(1);
    scheduler.advance(2s);
    http.answer(200);
    scheduler.jumpWallClock(std::chrono::hours(3));
    child(1).exit(1);
    EXPECT_TRUE(engineLog().last().contains(kRestarting));
    EXPECT_FALSE(engineLog().filter(QStringLiteral("crash 2 in window")).isEmpty());
}

TEST_F(WhisperEngineLifeTest, aChildThatOutlivedItsTimeCountsAsACrashOfTheNextStart) {
    engine->start();
    for (int attempt = 0; attempt <= 240; ++attempt) {
        refuse();
        scheduler.advance(500ms);
    }
    expectFailed(kNotInTime);
    engine->start();
    EXPECT_EQ(engine->state().kind, Kind::starting);
    EXPECT_FALSE(child(0).handlerCleared);
    EXPECT_FALSE(child(0).terminated);
    child(0).exit(15); // pkill has ended it
    expectFailed(kRestarting);
    scheduler.advance(2s);
    EXPECT_EQ(processes.children.size(), 3u);
    EXPECT_EQ(engine->state().kind, Kind::starting);
}

TEST_F(WhisperEngineLifeTest, anExitAfterItsEndIsNobodysConcern) {
    startUntilReady();
    engine.reset();
    child(0).exit(1);
    scheduler.advance(10s);
    EXPECT_EQ(processes.children.size(), 1u);
}

// ---- Idle ----

TEST_F(WhisperEngineLifeTest, unloadsAfterMoreThanTheIdleTime) {
    scheduler.advance(30s); // the checks fall between the minutes since it got ready
    startUntilReady();
    scheduler.advance(15min);
    EXPECT_EQ(engine->state().kind, Kind::ready);
    scheduler.advance(29s);
    EXPECT_EQ(engine->state().kind, Kind::ready);
    changes.clear();
    scheduler.advance(1s);
    EXPECT_EQ(engine->state().kind, Kind::idle);
    EXPECT_EQ(changes, (std::vector{WhisperEngine::State::of(Kind::idle)}));
    EXPECT_TRUE(child(0).handlerCleared);
    EXPECT_TRUE(child(0).terminated);
    EXPECT_EQ(engineLog().mid(3),
              (QStringList{QStringLiteral("engine: idle for 15m — unloading model to free memory"),
                           QStringLiteral("engine: Idle — model unloaded (wakes on use)")}));
    child(0).exit(15);
    EXPECT_EQ(engine->state().kind, Kind::idle);
    engine->start();
    EXPECT_EQ(engine->state().kind, Kind::starting);
    EXPECT_EQ(processes.children.size(), 2u);
}

TEST_F(WhisperEngineLifeTest, theTimeOfLoadingIsNotIdleTime) {
    store->update([](Config &config) { config.idleUnloadMinutes = 1; });
    engine->start();
    scheduler.advance(90s);
    http.answer(200);
    ASSERT_EQ(engine->state().kind, Kind::ready);
    scheduler.advance(30s); // a check: two minutes after the start, half a one after the loading
    EXPECT_EQ(engine->state().kind, Kind::ready);
    scheduler.advance(60s);
    EXPECT_EQ(engine->state().kind, Kind::idle);
}

TEST_F(WhisperEngineLifeTest, exactlyTheIdleTimeIsNotYetMore) {
    store->update([](Config &config) { config.idleUnloadMinutes = 1; });
    startUntilReady();
    scheduler.advance(60s); // the check comes exactly one minute after it got ready
    EXPECT_EQ(engine->state().kind, Kind::ready);
    scheduler.advance(60s);
    EXPECT_EQ(engine->state().kind, Kind::idle);
}

TEST_F(WhisperEngineLifeTest, aRequestKeepsItLoaded) {
    scheduler.advance(30s);
    startUntilReady();
    scheduler.advance(14min);
    transcribe();
    http.answer(200, R"({"text":"x"})");
    scheduler.advance(15min);
    EXPECT_EQ(engine->state().kind, Kind::ready);
    scheduler.advance(1min);
    EXPECT_EQ(engine->state().kind, Kind::idle);
}

TEST_F(WhisperEngineLifeTest, neverUnloadsWithoutAnIdleTime) {
    for (const qint64 minutes : {qint64(0), qint64(-5), std::numeric_limits<qint64>::min()}) {
        store->update([=](Config &config) { config.idleUnloadMinutes = minutes; });
        startUntilReady();
        scheduler.advance(24h);
        EXPECT_EQ(engine->state().kind, Kind::ready);
        engine->stop();
    }
    store->update(
        [](Config &config) { config.idleUnloadMinutes = std::numeric_limits<qint64>::max(); });
    startUntilReady();
    scheduler.advance(24h);
    EXPECT_EQ(engine->state().kind, Kind::ready);
}

TEST_F(WhisperEngineLifeTest, onlyAReadyServerIsUnloaded) {
    store->update([](Config &config) { config.idleUnloadMinutes = 1; });
    engine->start(); // nothing answers
    scheduler.advance(5min);
    EXPECT_EQ(engine->state().kind, Kind::starting);
    engine->stop();
    scheduler.advance(5min);
    EXPECT_EQ(engine->state().kind, Kind::stopped);
}

} // namespace
