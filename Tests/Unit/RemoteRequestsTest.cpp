// What other processes ask the controller for.

#include "Fakes/ControllerFixture.h"
#include "Quenda/AboutView.h"
#include "Quenda/SettingsView.h"
#include "Quenda/WelcomeView.h"

namespace quenda {
namespace {

using namespace std::chrono_literals;

class RemoteRequestsTest : public fakes::ControllerFixture {
protected:
    std::string refusal(RemoteCommand command, quint32 entry = 0) {
        const RemoteAnswer answer = fake.remoteControl->ask(command, entry);
        return answer.refusal.toStdString();
    }
    QVariant status(const char *name) {
        return fake.remoteControl->ask(RemoteCommand::Status).status.value(QLatin1String(name));
    }
    void launchIn(ActivationMode mode, double cap = 180) {
        Config config = Config::defaults();
        config.activationMode = mode;
        config.maxDictationSeconds = cap;
        config.playSoundCues = true;
        writeConfig(config);
        launchReady();
    }
    void speak(double seconds = 1.0) {
        fake.audioInput->speak(seconds, 0.5F);
        advance(std::chrono::milliseconds(qint64(seconds * 1000)));
    }
    void dictateByCommand(const QString &text) {
        ASSERT_EQ(refusal(RemoteCommand::Start), "");
        speak();
        ASSERT_EQ(refusal(RemoteCommand::Stop), "");
        answerTranscript(text);
    }
};

TEST_F(RemoteRequestsTest, NothingIsTakenBeforeTheLaunchNorAfterTheEnd) {
    EXPECT_FALSE(fake.remoteControl->handler);
    launchReady();
    EXPECT_TRUE(fake.remoteControl->handler);
    controller.reset();
    EXPECT_FALSE(fake.remoteControl->handler);
}

TEST_F(RemoteRequestsTest, StartAndStopDictateInBothModes) {
    for (const ActivationMode mode : {ActivationMode::hold, ActivationMode::toggle}) {
        launchIn(mode);
        EXPECT_EQ(refusal(RemoteCommand::Start), "");
        EXPECT_TRUE(controller->isDictating());
        EXPECT_TRUE(controller->statusItemShowsRecording());
        EXPECT_TRUE(controller->hotkey().escapeEnabled);
        speak();
        EXPECT_EQ(refusal(RemoteCommand::Stop), "");
        EXPECT_FALSE(controller->isDictating());
        answerTranscript(QStringLiteral("by command"));
        EXPECT_EQ(controller->history(), QStringList{QStringLiteral("by command")});
        EXPECT_EQ(fake.sounds->played,
                  (QStringList{QStringLiteral("Pop"), QStringLiteral("Tink")}));
        controller.reset();
        fake.sounds->played.clear();
    }
}

TEST_F(RemoteRequestsTest, StartWhileDictatingChangesNothing) {
    for (const ActivationMode mode : {ActivationMode::hold, ActivationMode::toggle}) {
        launchIn(mode);
        ASSERT_EQ(refusal(RemoteCommand::Start), "");
        EXPECT_EQ(refusal(RemoteCommand::Start), "A dictation is running already.");
        EXPECT_TRUE(controller->isDictating());
        controller.reset();
    }
}

TEST_F(RemoteRequestsTest, StopAndCancelWhileIdleAreRefused) {
    launchReady();
    EXPECT_EQ(refusal(RemoteCommand::Stop), "No dictation is running.");
    EXPECT_EQ(refusal(RemoteCommand::Cancel), "No dictation is running.");
    EXPECT_EQ(fake.sounds->beeps, 0);
    EXPECT_TRUE(pillText().isEmpty());
}

TEST_F(RemoteRequestsTest, ATapByCommandIsDroppedInHoldModeAsOneOfTheKey) {
    launchIn(ActivationMode::hold);
    ASSERT_EQ(refusal(RemoteCommand::Start), "");
    fake.audioInput->speak(1.0, 0.5F);
    advance(100ms);
    EXPECT_EQ(refusal(RemoteCommand::Stop), "");
    EXPECT_FALSE(status("transcribing").toBool());
    EXPECT_TRUE(pillText().isEmpty());
}

TEST_F(RemoteRequestsTest, TheKeyEndsWhatACommandBegan) {
    launchIn(ActivationMode::hold);
    ASSERT_EQ(refusal(RemoteCommand::Toggle), "");
    speak();
    pressKey();
    EXPECT_TRUE(controller->isDictating());
    releaseKey();
    EXPECT_FALSE(controller->isDictating());
    answerTranscript(QStringLiteral("by both"));
    controller.reset();

    launchIn(ActivationMode::toggle);
    ASSERT_EQ(refusal(RemoteCommand::Start), "");
    speak();
    pressKey();
    EXPECT_FALSE(controller->isDictating());
}

TEST_F(RemoteRequestsTest, ToggleBeginsAndEnds) {
    for (const ActivationMode mode : {ActivationMode::hold, ActivationMode::toggle}) {
        launchIn(mode);
        EXPECT_EQ(refusal(RemoteCommand::Toggle), "");
        EXPECT_TRUE(controller->isDictating());
        speak();
        EXPECT_EQ(refusal(RemoteCommand::Toggle), "");
        EXPECT_FALSE(controller->isDictating());
        answerTranscript(QStringLiteral("toggled"));
        EXPECT_EQ(controller->history(), QStringList{QStringLiteral("toggled")});
        controller.reset();
    }
}

TEST_F(RemoteRequestsTest, AToggledDictationEndsAtTheCapInBothModes) {
    for (const ActivationMode mode : {ActivationMode::hold, ActivationMode::toggle}) {
        launchIn(mode, 60);
        ASSERT_EQ(refusal(RemoteCommand::Toggle), "");
        advance(59999ms);
        EXPECT_TRUE(controller->isDictating());
        advance(1ms);
        EXPECT_FALSE(controller->isDictating());
        controller.reset();
    }
}

TEST_F(RemoteRequestsTest, AStartedDictationHasTheCapOfTheMode) {
    launchIn(ActivationMode::hold, 60);
    ASSERT_EQ(refusal(RemoteCommand::Start), "");
    advance(120s);
    EXPECT_TRUE(controller->isDictating());
    controller.reset();

    launchIn(ActivationMode::toggle, 60);
    ASSERT_EQ(refusal(RemoteCommand::Start), "");
    advance(60s);
    EXPECT_FALSE(controller->isDictating());
}

TEST_F(RemoteRequestsTest, CancelDropsAsEscapeDoes) {
    launchIn(ActivationMode::hold);
    ASSERT_EQ(refusal(RemoteCommand::Start), "");
    speak();
    EXPECT_EQ(refusal(RemoteCommand::Cancel), "");
    EXPECT_FALSE(controller->isDictating());
    EXPECT_EQ(pillText(), QStringLiteral("Cancelled"));
    EXPECT_FALSE(status("transcribing").toBool());
    EXPECT_EQ(fake.sounds->played, (QStringList{QStringLiteral("Pop"), QStringLiteral("Bottle")}));
}

TEST_F(RemoteRequestsTest, StartWithoutAnEngineSaysWhatTheMenuSays) {
    launch(); // neither server nor model
    EXPECT_EQ(refusal(RemoteCommand::Start),
              "Quenda is not ready to dictate: Engine problem — open Settings");
    EXPECT_EQ(refusal(RemoteCommand::Toggle),
              "Quenda is not ready to dictate: Engine problem — open Settings");
    EXPECT_EQ(fake.sounds->beeps, 2);
    EXPECT_EQ(status("state"), QStringLiteral("failed"));
}

TEST_F(RemoteRequestsTest, StartWithoutAMicrophoneIsRefused) {
    launchReady();
    fake.audioInput->startError = quendaError(1, QStringLiteral("no microphone"));
    EXPECT_EQ(refusal(RemoteCommand::Start), "The recording could not be started.");
    EXPECT_EQ(alertTitle(), QStringLiteral("Could not start recording"));
    EXPECT_FALSE(controller->isDictating());
}

TEST_F(RemoteRequestsTest, RetrySendsTheFailedDictationAgain) {
    launchReady();
    EXPECT_EQ(refusal(RemoteCommand::Retry), "There is no failed dictation to send again.");
    ASSERT_EQ(refusal(RemoteCommand::Start), "");
    speak();
    ASSERT_EQ(refusal(RemoteCommand::Stop), "");
    while (http.oldestOpen() && http.oldestOpen()->request.method == "GET")
        http.fail(quendaError(1, QStringLiteral("not reached")));
    http.fail(quendaError(1, QStringLiteral("lost")));
    advance(0ms);
    dismissAlerts();
    ASSERT_TRUE(controller->canRetryDictation());
    EXPECT_EQ(refusal(RemoteCommand::Retry), "");
    EXPECT_EQ(refusal(RemoteCommand::Retry),
              "Not now: a dictation is being recorded or sent again already.");
    EXPECT_TRUE(status("transcribing").toBool());
    answerTranscript(QStringLiteral("saved"));
    EXPECT_EQ(controller->history(), QStringList{QStringLiteral("saved")});
}

TEST_F(RemoteRequestsTest, StatusFollowsTheDictation) {
    launchReady();
    EXPECT_EQ(status("state"), QStringLiteral("ready"));
    EXPECT_EQ(status("statusLine"), QStringLiteral("Ready — ggml-large-v3-turbo.bin"));
    EXPECT_EQ(status("provider"), QStringLiteral("local"));
    EXPECT_EQ(status("providerName"), QStringLiteral("On-device (private)"));
    EXPECT_EQ(status("hotkey"), QStringLiteral("rightOption"));
    EXPECT_EQ(status("hotkeyHint"), QStringLiteral("Hold Right Option (⌥) to dictate"));
    EXPECT_EQ(status("activationMode"), QStringLiteral("hold"));
    EXPECT_EQ(status("version"), QStringLiteral("1.4.0"));
    EXPECT_EQ(status("keyHeard"), true);
    EXPECT_EQ(status("recording"), false);
    EXPECT_EQ(status("transcribing"), false);
    pressKey();
    EXPECT_EQ(status("recording"), true);
    speak();
    releaseKey();
    EXPECT_EQ(status("recording"), false);
    EXPECT_EQ(status("transcribing"), true);
    answerTranscript(QStringLiteral("words"));
    EXPECT_EQ(status("transcribing"), false);
    fake.keyTaps->disableSilently();
    EXPECT_EQ(status("keyHeard"), false);
}

TEST_F(RemoteRequestsTest, TranscribingEndsWithAFailureToo) {
    launchReady();
    dictate();
    ASSERT_EQ(status("transcribing"), true);
    controller->restartEngine();
    advance(0ms);
    while (http.oldestOpen())
        http.fail(quendaError(1, QStringLiteral("gone")));
    advance(1s);
    EXPECT_EQ(status("transcribing"), false);
}

TEST_F(RemoteRequestsTest, StatusOfACloudService) {
    Config config = Config::defaults();
    config.provider = TranscriptionProvider::groq;
    writeConfig(config);
    launch();
    EXPECT_EQ(status("state"), QStringLiteral("keyMissing"));
    EXPECT_EQ(status("provider"), QStringLiteral("groq"));
    controller->store().update([](Config &changed) {
        changed.apiKeys.insert(QStringLiteral("groq"), QStringLiteral("sk-secret"));
    });
    EXPECT_EQ(status("state"), QStringLiteral("ready"));
    for (const QVariant &fact : fake.remoteControl->ask(RemoteCommand::Status).status)
        EXPECT_FALSE(fact.toString().contains(QStringLiteral("sk-secret")));
}

TEST_F(RemoteRequestsTest, HistoryIsNewestFirstAndCopied) {
    launchReady();
    EXPECT_EQ(refusal(RemoteCommand::CopyHistory, 1), "There are no dictations yet.");
    dictateByCommand(QStringLiteral("first"));
    dictateByCommand(QStringLiteral("second"));
    const QStringList both{QStringLiteral("second"), QStringLiteral("first")};
    EXPECT_EQ(fake.remoteControl->ask(RemoteCommand::History).entries, both);
    EXPECT_EQ(refusal(RemoteCommand::CopyHistory, 2), "");
    EXPECT_EQ(fake.pasteboard->string(), QStringLiteral("first"));
    EXPECT_EQ(pillText(), QStringLiteral("Copied ✓"));
    const std::string missing = "There is no dictation number ";
    EXPECT_EQ(refusal(RemoteCommand::CopyHistory, 3), missing + "3; the history holds 2.");
    EXPECT_EQ(refusal(RemoteCommand::CopyHistory, 0), missing + "0; the history holds 2.");
    EXPECT_EQ(refusal(RemoteCommand::CopyHistory, 4294967295U),
              missing + "4294967295; the history holds 2.");
    EXPECT_EQ(fake.pasteboard->string(), QStringLiteral("first"));
    for (const QString &line : logLines())
        EXPECT_FALSE(line.contains(QStringLiteral("second"))) << line.toStdString();
}

TEST_F(RemoteRequestsTest, WindowsOpen) {
    launchReady();
    EXPECT_EQ(refusal(RemoteCommand::ShowSettings), "");
    EXPECT_TRUE(controller->settingsWindow()->isVisible());
    EXPECT_EQ(refusal(RemoteCommand::ShowWelcome), "");
    EXPECT_TRUE(controller->welcomeWindow()->isVisible());
    EXPECT_EQ(refusal(RemoteCommand::ShowAbout), "");
    EXPECT_TRUE(controller->aboutWindow()->isVisible());
}

TEST_F(RemoteRequestsTest, QuitEndsOnceTheAnswerIsOut) {
    launchReady();
    EXPECT_EQ(refusal(RemoteCommand::Quit), "");
    EXPECT_EQ(terminations, 0);
    advance(0ms);
    EXPECT_EQ(terminations, 1);
}

class KeyReachTest : public RemoteRequestsTest {
protected:
    void launchWith(KeyReach reach, bool trusted) {
        fake.keyTaps->keyReach = reach;
        fake.accessibility->trusted = trusted;
        fake.workspace->bindingAdvice = QStringLiteral("In the control centre.");
        launchReady();
        advance(1000ms);
    }
};

const QString kNotice = QStringLiteral("The dictation key cannot be heard here");

TEST_F(KeyReachTest, OnlyOnceTheProgramSaysWhatToBindWhere) {
    launchWith(KeyReach::OwnKindOfWindows, true);
    EXPECT_EQ(alertTitle(), kNotice);
    EXPECT_TRUE(alertText().contains(QStringLiteral("quenda toggle")));
    EXPECT_TRUE(alertText().endsWith(QStringLiteral("\n\nIn the control centre.")));
    EXPECT_EQ(controller->settingsWindow(), nullptr);
    dismissAlerts();
    controller.reset();
    launchWith(KeyReach::OwnKindOfWindows, true);
    EXPECT_TRUE(alerts().isEmpty());
}

TEST_F(KeyReachTest, WhereTheKeyIsHeardNothingIsSaid) {
    launchWith(KeyReach::Everywhere, true);
    EXPECT_TRUE(alerts().isEmpty());
    EXPECT_FALSE(logLines().join(QLatin1Char('\n')).contains(QStringLiteral("hotkey:")));
}

TEST_F(KeyReachTest, AKeyHeardInSomeWindowsStillDictatesThere) {
    launchWith(KeyReach::OwnKindOfWindows, true);
    pressKey();
    EXPECT_TRUE(controller->isDictating());
    EXPECT_EQ(status("keyHeard"), false);
}

TEST_F(KeyReachTest, WhereNoKeyCanBeHeardNothingNags) {
    launchWith(KeyReach::Nowhere, false);
    EXPECT_EQ(alertTitle(), kNotice);
    EXPECT_EQ(controller->settingsWindow(), nullptr);
    EXPECT_EQ(fake.keyTaps->created, 0);
    dismissAlerts();
    advance(10min);
    EXPECT_TRUE(alerts().isEmpty());
    dictateByCommand(QStringLiteral("all the same"));
    EXPECT_EQ(controller->history(), QStringList{QStringLiteral("all the same")});
}

TEST_F(KeyReachTest, OnTheFirstLaunchTheNoticeStandsBeforeTheWelcome) {
    defaults->setValue(QStringLiteral("hasSeenWelcome"), false);
    launchWith(KeyReach::Nowhere, false);
    EXPECT_TRUE(controller->welcomeWindow()->isVisible());
    EXPECT_EQ(alertTitle(), kNotice);
}

} // namespace
} // namespace quenda
