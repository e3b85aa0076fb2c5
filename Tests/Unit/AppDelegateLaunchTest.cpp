// Construction, launch sequence and end of the program.

#include "Fakes/ControllerFixture.h"

#include <QCoreApplication>
#include <QFile>

using namespace quenda;
using namespace std::chrono_literals;
using Kind = WhisperEngine::State::Kind;

namespace {

class AppDelegateLaunch : public fakes::ControllerFixture {};

TEST_F(AppDelegateLaunch, WritesTheSettingsAndTheLaunchLine) {
    launch();
    EXPECT_TRUE(QFile::exists(Config::configURL()));
    EXPECT_TRUE(logLines().contains(QStringLiteral("app: launched Quenda 1.4.0")));
}

TEST_F(AppDelegateLaunch, MissingVersionIsDev) {
    fake.bundle->versionText.reset();
    launch();
    EXPECT_TRUE(logLines().contains(QStringLiteral("app: launched Quenda dev")));
}

TEST_F(AppDelegateLaunch, EngineIsStartedBeforeTheLaunchLine) {
    launch();
    const QStringList lines = logLines();
    const auto engineLine = lines.indexOf(QStringLiteral(
        "engine: whisper-server not found. Reinstall Quenda or run: brew install whisper-cpp"));
    ASSERT_GE(engineLine, 0);
    EXPECT_LT(engineLine, lines.indexOf(QStringLiteral("app: launched Quenda 1.4.0")));
}

TEST_F(AppDelegateLaunch, TakesTheConfiguredKey) {
    Config settings = Config::defaults();
    settings.hotkey = HotkeyChoice::fnGlobe;
    writeConfig(settings);
    launch();
    EXPECT_EQ(controller->hotkey().key, HotkeyChoice::fnGlobe);
}

TEST_F(AppDelegateLaunch, AsksForTheMicrophoneOnlyWhileUndetermined) {
    launch();
    EXPECT_EQ(fake.microphonePermission->requests, 0);
    fake.microphonePermission->authorization = AuthorizationStatus::NotDetermined;
    launch();
    EXPECT_EQ(fake.microphonePermission->requests, 1);
}

TEST_F(AppDelegateLaunch, TerminateSignalEndsThroughTheOnePath) {
    launchReady();
    ASSERT_TRUE(fake.sessionEvents->terminate);
    fake.sessionEvents->terminate();
    EXPECT_EQ(terminations, 1);
    controller->applicationWillTerminate();
    EXPECT_EQ(engineKind(), Kind::stopped);
    EXPECT_TRUE(fake.processes->children.at(0)->terminated);
    EXPECT_TRUE(fake.processes->children.at(0)->handlerCleared);
    EXPECT_EQ(fake.keyTaps->liveTaps(), 0);
}

TEST_F(AppDelegateLaunch, SecondTerminationIsHarmless) {
    launchReady();
    controller->applicationWillTerminate();
    controller->applicationWillTerminate();
    EXPECT_EQ(engineKind(), Kind::stopped);
}

TEST_F(AppDelegateLaunch, HandlersOfAGoneControllerDoNothing) {
    launchReady();
    const auto wake = fake.sessionEvents->wake;
    const auto terminate = fake.sessionEvents->terminate;
    controller.reset();
    wake();
    terminate();
    EXPECT_EQ(terminations, 0);
}

TEST_F(AppDelegateLaunch, WakeWithoutADictationOnlyLogs) {
    launchReady();
    fake.sessionEvents->wake();
    EXPECT_EQ(logLines().last(), QStringLiteral("app: system woke from sleep"));
    EXPECT_TRUE(pillText().isNull());
}

TEST_F(AppDelegateLaunch, DeviceChangeWithoutADictationOnlyLogs) {
    launchReady();
    fake.audioInput->changeDefaultDevice(std::nullopt);
    advance(0ms);
    QCoreApplication::processEvents();
    EXPECT_EQ(logLines().last(), QStringLiteral("audio: default input device changed to none"));
    EXPECT_TRUE(pillText().isNull());
}

TEST_F(AppDelegateLaunch, TrustedProcessStartsTheHotkeyAtOnce) {
    launch();
    EXPECT_EQ(fake.keyTaps->created, 1);
    EXPECT_TRUE(fake.keyTaps->newestEnabled());
    advance(10s);
    EXPECT_EQ(fake.keyTaps->created, 1);
}

TEST_F(AppDelegateLaunch, UntrustedProcessIsAskedOnceAndPolledUntilTrusted) {
    fake.accessibility->trusted = false;
    launch();
    EXPECT_EQ(fake.accessibility->prompts, 1);
    EXPECT_EQ(fake.keyTaps->created, 0);
    advance(6s);
    EXPECT_EQ(fake.accessibility->prompts, 1);
    EXPECT_EQ(fake.accessibility->trustChecks, 3);
    fake.accessibility->trusted = true;
    advance(2999ms);
    EXPECT_EQ(fake.keyTaps->created, 0);
    advance(1ms);
    EXPECT_EQ(fake.keyTaps->created, 1);
}

TEST_F(AppDelegateLaunch, FifteenthFailedCheckSuspectsAStaleEntryOnce) {
    fake.accessibility->trusted = false;
    launch();
    advance(41s);
    EXPECT_TRUE(alerts().isEmpty());
    advance(1s);
    EXPECT_EQ(alertTitle(), QStringLiteral("Accessibility permission needs a reset"));
    EXPECT_EQ(alertText(),
              QStringLiteral(
                  "If Quenda already shows as enabled in System Settings → Privacy & Security → "
                  "Accessibility, that entry belongs to an older build. Select Quenda in the list, "
                  "remove it with the − button, then relaunch Quenda and enable the fresh entry it "
                  "creates."));
    dismissAlerts();
    advance(10min);
    EXPECT_TRUE(alerts().isEmpty());
    EXPECT_GT(fake.accessibility->trustChecks, 200);
}

TEST_F(AppDelegateLaunch, RefusedListenerIsAnAlert) {
    fake.keyTaps->refuse = true;
    launch();
    EXPECT_EQ(alertTitle(), QStringLiteral("Could not listen for the hotkey"));
    EXPECT_EQ(
        alertText(),
        QStringLiteral("Quenda could not create its keyboard listener. Make sure it is "
                       "enabled in System Settings → Privacy & Security → Accessibility, then "
                       "relaunch."));
}

} // namespace
