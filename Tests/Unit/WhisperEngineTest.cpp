// The states, the way up (executable, model, command line, polling) and the way down.
#include "Fakes/EngineFixture.h"

using namespace quenda;
using namespace quenda::fakes;
using namespace std::chrono_literals;
using Kind = WhisperEngine::State::Kind;

namespace {

class WhisperEngineTest : public EngineFixture {};

// ---- State ----

TEST_F(WhisperEngineTest, statesHaveTheirTexts) {
    using State = WhisperEngine::State;
    EXPECT_EQ(State::failed(QStringLiteral("why")).text(), QStringLiteral("why"));
    EXPECT_EQ(State::of(Kind::stopped).text(), QStringLiteral("Stopped"));
    EXPECT_EQ(State::of(Kind::starting).text(), QStringLiteral("Loading model…"));
    EXPECT_EQ(State::of(Kind::ready).text(), QStringLiteral("Ready"));
    EXPECT_EQ(State::of(Kind::idle).text(), QStringLiteral("Idle — model unloaded (wakes on use)"));
    EXPECT_EQ(State::failed(QStringLiteral("a")), State::failed(QStringLiteral("a")));
    EXPECT_NE(State::failed(QStringLiteral("a")), State::failed(QStringLiteral("b")));
    EXPECT_NE(State::of(Kind::ready), State::of(Kind::idle));
}

TEST_F(WhisperEngineTest, isBornStoppedAndSilent) {
    EXPECT_EQ(engine->state().kind, Kind::stopped);
    EXPECT_EQ(engine->baseURL(), QStringLiteral("http://127.0.0.1:0"));
    EXPECT_TRUE(changes.empty());
    EXPECT_TRUE(processes.children.empty());
    EXPECT_EQ(scheduler.repeatingTimers(), 1);
    engine.reset();
    EXPECT_EQ(scheduler.repeatingTimers(), 0);
}

TEST_F(WhisperEngineTest, observersAreToldBeforeAndAfterAChange) {
    std::vector<Kind> before;
    std::vector<Kind> after;
    const Subscription will =
        engine->observableState().onWillChange([&] { before.push_back(engine->state().kind); });
    const Subscription did = engine->observableState().subscribe(
        [&](const WhisperEngine::State &state) { after.push_back(state.kind); });
    startUntilReady();
    engine->stop();
    EXPECT_EQ(before, (std::vector{Kind::stopped, Kind::starting, Kind::ready}));
    EXPECT_EQ(after, (std::vector{Kind::stopped, Kind::starting, Kind::ready, Kind::stopped}));
}

// ---- Start ----

TEST_F(WhisperEngineTest, startWithoutAnyServerFails) {
    store->update([](Config &config) { config.whisperServerPath.clear(); });
    engine->start();
    expectFailed(kNotFound);
    EXPECT_TRUE(processes.commands.isEmpty());
    EXPECT_TRUE(processes.children.empty());
    EXPECT_EQ(engineLog(), QStringList{QStringLiteral("engine: ") + kNotFound});
}

TEST_F(WhisperEngineTest, startWithoutTheModelFileFails) {
    ASSERT_TRUE(QFile::remove(model));
    engine->start();
    expectFailed(kNoModel);
    EXPECT_TRUE(processes.commands.isEmpty());
    EXPECT_TRUE(processes.children.empty());
    EXPECT_EQ(changes, (std::vector{WhisperEngine::State::failed(kNoModel)}));
}

TEST_F(WhisperEngineTest, aMissingServerIsReportedBeforeAMissingModel) {
    ASSERT_TRUE(QFile::remove(model));
    ASSERT_TRUE(QFile::remove(server));
    engine->start();
    expectFailed(kNotFound);
}

TEST_F(WhisperEngineTest, startLaunchesAndPollsUntilTheServerAnswers) {
    engine->start();
    EXPECT_EQ(engine->state().kind, Kind::starting);
    EXPECT_EQ(engine->baseURL(), QStringLiteral("http://127.0.0.1:8123"));
    ASSERT_EQ(processes.commands.size(), 1);
    EXPECT_EQ(processes.commands[0].first, QStringLiteral("/usr/bin/pkill"));
    EXPECT_EQ(processes.commands[0].second,
              (QStringList{QStringLiteral("-f"), QStringLiteral("whisper-server.*--port 8123")}));
    ASSERT_EQ(processes.children.size(), 1u);
    EXPECT_EQ(child(0).request.executable, server);

    ASSERT_EQ(http.exchanges.size(), 1u);
    const HttpRequest poll = http.exchanges[0].request;
    EXPECT_EQ(poll.url.toString(), QStringLiteral("http://127.0.0.1:8123"));
    EXPECT_EQ(poll.method, "GET");
    EXPECT_EQ(poll.timeout, 2s);
    EXPECT_EQ(poll.route, HttpRequest::Route::Direct);
    EXPECT_TRUE(poll.body.isEmpty());

    refuse();
    scheduler.advance(499ms);
    EXPECT_EQ(http.exchanges.size(), 1u);
    scheduler.advance(1ms);
    EXPECT_EQ(http.exchanges.size(), 2u);
    http.answer(200);
    EXPECT_EQ(engine->state().kind, Kind::ready);
    scheduler.advance(10s);
    EXPECT_EQ(http.exchanges.size(), 2u); // polling has ended
    EXPECT_EQ(engineLog(), (QStringList{QStringLiteral("engine: Loading model…"),
                                        QStringLiteral("engine: launched whisper-server pid=1000"),
                                        QStringLiteral("engine: Ready")}));
    EXPECT_EQ(changes, (std::vector{WhisperEngine::State::of(Kind::starting),
                                    WhisperEngine::State::of(Kind::ready)}));
}

TEST_F(WhisperEngineTest, startDoesNothingWhileStartingOrReady) {
    engine->start();
    engine->start();
    http.answer(200);
    engine->start();
    EXPECT_EQ(processes.children.size(), 1u);
    EXPECT_EQ(processes.commands.size(), 1);
    EXPECT_EQ(http.exchanges.size(), 1u);
    EXPECT_EQ(engineLog().size(), 3); // loading, launched, ready
}

TEST_F(WhisperEngineTest, aFailureToRunPkillIsIgnored) {
    processes.cannotRun = true;
    startUntilReady();
}

TEST_F(WhisperEngineTest, aServerThatCannotBeLaunchedFails) {
    processes.launchError = Error{QStringLiteral("POSIX"), 8, QStringLiteral("Exec format error")};
    engine->start();
    expectFailed(QStringLiteral("Could not launch whisper-server: Exec format error"));
    EXPECT_EQ(changes.size(), 2u); // first it was starting
    EXPECT_EQ(changes[0].kind, Kind::starting);
    EXPECT_TRUE(http.exchanges.empty());
    scheduler.advance(10s);
    EXPECT_EQ(changes.size(), 2u); // no crash, no restart
    processes.launchError.reset();
    startUntilReady();
}

TEST_F(WhisperEngineTest, theServersOutputGoesToItsOwnLogInTheLogFolder) {
    engine->start();
    EXPECT_EQ(child(0).request.outputFile, Log::dir() + QStringLiteral("/whisper-server.log"));
    EXPECT_TRUE(QFileInfo(Log::dir()).isDir());
}

TEST_F(WhisperEngineTest, itReadsTheSettingsAtEachStart) {
    startUntilReady();
    engine->stop();
    const QString other = testHome() + QStringLiteral("/other model.bin");
    writeFile(other);
    store->update([&](Config &config) {
        config.modelPath = other;
        config.serverPort = 9000;
    });
    EXPECT_EQ(engine->baseURL(), QStringLiteral("http://127.0.0.1:8123"));
    engine->start();
    EXPECT_EQ(engine->baseURL(), QStringLiteral("http://127.0.0.1:9000"));
    EXPECT_EQ(processes.commands[1].second[1], QStringLiteral("whisper-server.*--port 9000"));
    EXPECT_TRUE(child(1).request.arguments.contains(other));
    // A later change of the port does not redirect what the running server is asked.
    store->update([](Config &config) { config.serverPort = 9001; });
    EXPECT_EQ(engine->baseURL(), QStringLiteral("http://127.0.0.1:9000"));
}

// ---- The command line ----

TEST_F(WhisperEngineTest, withoutAVADModelTheArgumentsEndAtNoTimestamps) {
    bundle.resources = testHome() + QStringLiteral("/resources");
    engine->start();
    EXPECT_EQ(child(0).request.arguments,
              (QStringList{QStringLiteral("-m"), model, QStringLiteral("--host"),
                           QStringLiteral("127.0.0.1"), QStringLiteral("--port"),
                           QStringLiteral("8123"), QStringLiteral("--no-timestamps")}));
}

TEST_F(WhisperEngineTest, theBundlesVADModelComesBeforeTheVendorFolders) {
    const QString bundled = testHome() + QStringLiteral("/resources/bin/ggml-silero-v5.1.2.bin");
    const QString vendored = QDir::currentPath() + QStringLiteral("/vendor/ggml-silero-v5.1.2.bin");
    writeFile(bundled);
    writeFile(vendored);
    const QStringList common{QStringLiteral("-m"),
                             model,
                             QStringLiteral("--host"),
                             QStringLiteral("127.0.0.1"),
                             QStringLiteral("--port"),
                             QStringLiteral("8123"),
                             QStringLiteral("--no-timestamps"),
                             QStringLiteral("--vad"),
                             QStringLiteral("--vad-model")};

    bundle.resources = testHome() + QStringLiteral("/resources");
    engine->start();
    EXPECT_EQ(child(0).request.arguments, common + QStringList{bundled});

    engine->stop();
    ASSERT_TRUE(QFile::remove(bundled));
    engine->start();
    EXPECT_EQ(child(1).request.arguments, common + QStringList{vendored});

    engine->stop();
    bundle.resources.reset();
    engine->start();
    EXPECT_EQ(child(2).request.arguments, common + QStringList{vendored});
}

TEST_F(WhisperEngineTest, theFirstExecutableCandidateIsTheServer) {
    const QString resources = testHome() + QStringLiteral("/resources");
    const QString bundled = resources + QStringLiteral("/bin/whisper-server");
    const QString first = testHome() + QStringLiteral("/first/whisper-server");
    const QString second = testHome() + QStringLiteral("/second/whisper-server");
    const QStringList inOrder{server, bundled, first, second};
    for (const QString &path : inOrder)
        writeFile(path, true);
    bundle.resources = resources;
    systemServers = {first, second};
    make();
    for (qsizetype i = 0; i < inOrder.size(); ++i) {
        engine->start();
        ASSERT_EQ(processes.children.size(), size_t(i + 1));
        EXPECT_EQ(child(size_t(i)).request.executable, inOrder[i]);
        engine->stop();
        // Not executable any more: skipped without a word.
        ASSERT_TRUE(QFile(inOrder[i]).setPermissions(QFile::ReadOwner));
    }
    changes.clear();
    engine->start();
    expectFailed(kNotFound);
    EXPECT_EQ(changes.size(), 1u);
}

TEST_F(WhisperEngineTest, aFolderIsNoServer) {
    store->update([](Config &config) { config.whisperServerPath = testHome(); });
    engine->start();
    expectFailed(kNotFound);
}

TEST_F(WhisperEngineTest, theUsualInstallationsAreLookedAtLast) {
    const WhisperEngine::Environment environment{*store, scheduler, processes, http, bundle};
    EXPECT_EQ(environment.systemServerPaths,
              (QStringList{QStringLiteral("/opt/homebrew/bin/whisper-server"),
                           QStringLiteral("/usr/local/bin/whisper-server")}));
}

// ---- Polling ----

TEST_F(WhisperEngineTest, serverErrorsKeepItPollingAndOtherAnswersMeanReady) {
    engine->start();
    for (const int status : {503, 500, 599}) {
        http.answer(status);
        EXPECT_EQ(engine->state().kind, Kind::starting) << status;
        scheduler.advance(500ms);
    }
    http.answer(404);
    EXPECT_EQ(engine->state().kind, Kind::ready);
    engine->stop();
    engine->start();
    http.answer(499);
    EXPECT_EQ(engine->state().kind, Kind::ready);
}

TEST_F(WhisperEngineTest, anAnswerThatWasCutOffIsNoAnswer) {
    engine->start();
    ASSERT_NE(http.oldestOpen(), nullptr);
    http.oldestOpen()->answered = true;
    http.exchanges[0].completion({200, {}, Error{QStringLiteral("Network"), 2, QString()}});
    EXPECT_EQ(engine->state().kind, Kind::starting);
}

TEST_F(WhisperEngineTest, itGivesUpAfter241Attempts) {
    engine->start();
    for (int attempt = 0; attempt < 240; ++attempt) {
        refuse();
        scheduler.advance(500ms);
    }
    EXPECT_EQ(http.exchanges.size(), 241u);
    EXPECT_EQ(engine->state().kind, Kind::starting);
    refuse();
    scheduler.advance(499ms);
    EXPECT_EQ(engine->state().kind, Kind::starting);
    scheduler.advance(1ms);
    expectFailed(kNotInTime);
    EXPECT_EQ(http.exchanges.size(), 241u);
    EXPECT_FALSE(child(0).terminated);
    scheduler.advance(10s);
    expectFailed(kNotInTime);
}

TEST_F(WhisperEngineTest, theLastAttemptMayStillSucceed) {
    engine->start();
    for (int attempt = 0; attempt < 240; ++attempt) {
        refuse();
        scheduler.advance(500ms);
    }
    http.answer(200);
    EXPECT_EQ(engine->state().kind, Kind::ready);
}

TEST_F(WhisperEngineTest, stopEndsThePolling) {
    engine->start();
    refuse();
    engine->stop();
    scheduler.advance(10s);
    EXPECT_EQ(http.exchanges.size(), 1u);

    engine->start();
    engine->stop();
    http.answer(200); // comes too late
    EXPECT_EQ(engine->state().kind, Kind::stopped);
}

TEST_F(WhisperEngineTest, aQuickRestartLeavesOneChainOfPolls) {
    engine->start();
    refuse(); // the next poll is due in half a second
    engine->stop();
    engine->start();
    ASSERT_EQ(http.exchanges.size(), 2u);
    scheduler.advance(5s);
    EXPECT_EQ(http.exchanges.size(), 2u);
    http.answer(200);
    EXPECT_EQ(engine->state().kind, Kind::ready);
}

TEST_F(WhisperEngineTest, anAnswerToThePollOfAnEarlierServerDoesNotCount) {
    engine->start();
    engine->stop();
    engine->start();
    ASSERT_EQ(http.exchanges.size(), 2u);
    http.answer(200); // of the first
    EXPECT_EQ(engine->state().kind, Kind::starting);
    http.answer(200); // of the second
    EXPECT_EQ(engine->state().kind, Kind::ready);
}

// ---- Stop ----

TEST_F(WhisperEngineTest, stopTerminatesTheChildOnPurpose) {
    startUntilReady();
    const qsizetype lines = engineLog().size();
    changes.clear();
    engine->stop();
    EXPECT_EQ(engine->state().kind, Kind::stopped);
    EXPECT_EQ(changes, (std::vector{WhisperEngine::State::of(Kind::stopped)}));
    EXPECT_TRUE(child(0).handlerCleared);
    EXPECT_TRUE(child(0).terminated);
    child(0).exit(15);
    scheduler.advance(10s);
    EXPECT_EQ(engine->state().kind, Kind::stopped);
    EXPECT_EQ(engineLog().size(), lines); // neither the stop nor the exit is logged
    EXPECT_EQ(processes.children.size(), 1u);
}

TEST_F(WhisperEngineTest, stopWithoutAChildIsToldAsWell) {
    engine->stop();
    EXPECT_EQ(changes, (std::vector{WhisperEngine::State::of(Kind::stopped)}));
}

TEST_F(WhisperEngineTest, stopTellsTheStateBeforeItTouchesTheChild) {
    startUntilReady();
    bool terminatedThen = true;
    engine->onStateChange = [&](const WhisperEngine::State &) {
        terminatedThen = child(0).terminated;
    };
    engine->stop();
    EXPECT_FALSE(terminatedThen);
    EXPECT_TRUE(child(0).terminated);
}

TEST_F(WhisperEngineTest, stopCancelsARestart) {
    startUntilReady();
    child(0).exit(1);
    scheduler.advance(1s);
    engine->stop();
    scheduler.advance(10s);
    EXPECT_EQ(engine->state().kind, Kind::stopped);
    EXPECT_EQ(processes.children.size(), 1u);
}

TEST_F(WhisperEngineTest, anExitWhileStoppedIsIgnored) {
    startUntilReady();
    engine->stop();
    child(0).handlerCleared = false; // as if the exit had been on its way already
    child(0).exit(15);
    EXPECT_EQ(engine->state().kind, Kind::stopped);
}

} // namespace
