// One dictation through the controller, row by row of its state table.

#include "Fakes/ControllerFixture.h"

#include <QCoreApplication>
#include <QFile>
#include <QLabel>

#include <cmath>

using namespace quenda;
using namespace std::chrono_literals;
using Kind = WhisperEngine::State::Kind;

namespace {

class DictationSession : public fakes::ControllerFixture {
protected:
    void setMode(ActivationMode mode) {
        controller->store().update([mode](Config &config) { config.activationMode = mode; });
    }
    void setCues(bool on) {
        controller->store().update([on](Config &config) { config.playSoundCues = on; });
    }
    QStringList cues() const { return fake.sounds->played; }
    int openInferences() const {
        int open = 0;
        for (const auto &exchange : http.exchanges)
            open += !exchange.answered && exchange.request.method == "POST" ? 1 : 0;
        return open;
    }
    int inferences() const {
        int sent = 0;
        for (const auto &exchange : http.exchanges)
            sent += exchange.request.method == "POST" ? 1 : 0;
        return sent;
    }
    // A tone that reaches exactly `peak`, and no resampling in between.
    void hear(double seconds, float peak) {
        fake.audioInput->deliver(std::vector<float>(size_t(seconds * 16000), peak));
    }
};

TEST_F(DictationSession, PressInHoldModeStartsRecordingWithEverythingThatBelongsToIt) {
    launchReady();
    setCues(true);
    pressKey();
    EXPECT_TRUE(controller->isDictating());
    EXPECT_TRUE(controller->recorder().isRecording());
    EXPECT_EQ(pillText(), QStringLiteral("Listening…"));
    EXPECT_TRUE(controller->hotkey().escapeEnabled);
    EXPECT_TRUE(controller->statusItemShowsRecording());
    EXPECT_EQ(cues(), QStringList{QStringLiteral("Pop")});
}

TEST_F(DictationSession, ReleaseInHoldModeFinishesAndTranscribes) {
    launchReady();
    setCues(true);
    dictate();
    EXPECT_FALSE(controller->isDictating());
    EXPECT_FALSE(controller->recorder().isRecording());
    EXPECT_FALSE(controller->hotkey().escapeEnabled);
    EXPECT_FALSE(controller->statusItemShowsRecording());
    EXPECT_EQ(cues(), (QStringList{QStringLiteral("Pop"), QStringLiteral("Tink")}));
    EXPECT_EQ(pillText(), QStringLiteral("Transcribing…"));
    EXPECT_EQ(openInferences(), 1);
    EXPECT_EQ(fake.pasteboard->prepared, 1);
}

TEST_F(DictationSession, TranscriptIsInsertedRememberedAndAnnounced) {
    launchReady();
    dictate(1.0);
    advance(400ms);
    answerTranscript(QStringLiteral("Hello there."));
    EXPECT_EQ(fake.keyPoster->posted, 1);
    EXPECT_EQ(fake.pasteboard->string(), QStringLiteral("Hello there."));
    EXPECT_EQ(controller->history(), QStringList{QStringLiteral("Hello there.")});
    EXPECT_EQ(pillText(), QStringLiteral("Inserted ✓"));
    EXPECT_TRUE(logLines().contains(QStringLiteral("dictation: 1.0s audio → 12 chars in 0.4s")))
        << qPrintable(logLines().join(QLatin1Char('\n')));
    advance(1400ms);
    EXPECT_TRUE(pillText().isNull());
}

TEST_F(DictationSession, CharactersInTheLogAreThoseThatAPersonCounts) {
    launchReady();
    dictate();
    answerTranscript(QString::fromUtf8("नमस्ते 👩‍👩‍👧"));
    EXPECT_FALSE(logLines().filter(QStringLiteral("→ 5 chars in")).isEmpty())
        << qPrintable(logLines().join(QLatin1Char('\n')));
}

TEST_F(DictationSession, NoFocusLeavesTheTranscriptOnTheClipboard) {
    launchReady();
    fake.accessibility->focused = false;
    dictate();
    answerTranscript(QStringLiteral("Hello"));
    EXPECT_EQ(pillText(), QStringLiteral("No text field — copied to clipboard"));
    advance(5s);
    EXPECT_EQ(fake.pasteboard->string(), QStringLiteral("Hello"));
}

TEST_F(DictationSession, PressWhileDictatingInHoldModeDoesNothing) {
    launchReady();
    pressKey();
    controller->beginDictation();
    EXPECT_TRUE(controller->isDictating());
    EXPECT_EQ(fake.audioInput->captures, 1);
}

TEST_F(DictationSession, ToggleModeStartsOnOnePressAndEndsOnTheNext) {
    launchReady();
    setMode(ActivationMode::toggle);
    pressKey();
    EXPECT_TRUE(controller->isDictating());
    releaseKey();
    EXPECT_TRUE(controller->isDictating());
    fake.audioInput->speak(1.0);
    pressKey();
    EXPECT_FALSE(controller->isDictating());
    EXPECT_EQ(openInferences(), 1);
    releaseKey();
    EXPECT_FALSE(controller->isDictating());
}

TEST_F(DictationSession, CapEndsAToggledDictation) {
    Config settings = Config::defaults();
    settings.activationMode = ActivationMode::toggle;
    settings.maxDictationSeconds = 60.9;
    writeConfig(settings);
    launchReady();
    pressKey();
    releaseKey();
    fake.audioInput->speak(1.0);
    advance(60899ms);
    EXPECT_TRUE(controller->isDictating());
    advance(1ms);
    EXPECT_FALSE(controller->isDictating());
    EXPECT_TRUE(logLines().contains(QStringLiteral("dictation: auto-stopped at 60s cap")));
    EXPECT_EQ(openInferences(), 1);
}

TEST_F(DictationSession, CapOfAFinishedDictationDoesNotEndTheNext) {
    Config settings = Config::defaults();
    settings.activationMode = ActivationMode::toggle;
    settings.maxDictationSeconds = 60;
    writeConfig(settings);
    launchReady();
    pressKey();
    releaseKey();
    advance(50s);
    pressKey();
    releaseKey();
    pressKey();
    releaseKey();
    advance(20s);
    EXPECT_TRUE(controller->isDictating());
    advance(40s);
    EXPECT_FALSE(controller->isDictating());
}

TEST_F(DictationSession, HoldModeHasNoCap) {
    launchReady();
    pressKey();
    advance(1h);
    EXPECT_TRUE(controller->isDictating());
}

TEST_F(DictationSession, AbsurdCapFromTheSettingsFileIsHarmless) {
    Config settings = Config::defaults();
    settings.activationMode = ActivationMode::toggle;
    settings.maxDictationSeconds = 1e300;
    writeConfig(settings);
    launchReady();
    pressKey();
    advance(1h);
    EXPECT_TRUE(controller->isDictating());
}

TEST_F(DictationSession, EscapeCancelsWithANotice) {
    launchReady();
    setCues(true);
    pressKey();
    fake.audioInput->speak(1.0);
    pressEscape();
    EXPECT_FALSE(controller->isDictating());
    EXPECT_FALSE(controller->recorder().isRecording());
    EXPECT_FALSE(controller->hotkey().escapeEnabled);
    EXPECT_FALSE(controller->statusItemShowsRecording());
    EXPECT_EQ(pillText(), QStringLiteral("Cancelled"));
    EXPECT_EQ(cues(), (QStringList{QStringLiteral("Pop"), QStringLiteral("Bottle")}));
    releaseKey();
    EXPECT_EQ(inferences(), 0);
}

TEST_F(DictationSession, EscapeWhileNotDictatingDoesNothing) {
    launchReady();
    pressEscape();
    EXPECT_TRUE(pillText().isNull());
    controller->hotkey().onEscape();
    EXPECT_TRUE(pillText().isNull());
}

TEST_F(DictationSession, PillButtonCancelsWithoutANotice) {
    launchReady();
    pressKey();
    controller->indicator().onCancel();
    EXPECT_FALSE(controller->isDictating());
    EXPECT_TRUE(pillText().isNull());
    EXPECT_EQ(inferences(), 0);
}

TEST_F(DictationSession, WakeCancels) {
    launchReady();
    pressKey();
    fake.sessionEvents->wake();
    EXPECT_FALSE(controller->isDictating());
    EXPECT_EQ(pillText(), QStringLiteral("Cancelled — Mac went to sleep"));
    EXPECT_TRUE(logLines().contains(QStringLiteral("app: system woke from sleep")));
}

TEST_F(DictationSession, InputDeviceChangeCancels) {
    launchReady();
    pressKey();
    fake.audioInput->changeDefaultDevice(QStringLiteral("Headset"));
    advance(0ms);
    QCoreApplication::processEvents();
    EXPECT_FALSE(controller->isDictating());
    EXPECT_EQ(pillText(), QStringLiteral("Cancelled — microphone changed"));
    EXPECT_TRUE(
        logLines().contains(QStringLiteral("audio: default input device changed to Headset")));
}

TEST_F(DictationSession, CancelWithoutADictationPlaysNothing) {
    launchReady();
    setCues(true);
    controller->cancelDictation();
    controller->finishDictation();
    EXPECT_TRUE(cues().isEmpty());
}

TEST_F(DictationSession, BriefTapInHoldModeIsDroppedSilently) {
    launchReady();
    setCues(true);
    controller->store().update([](Config &config) { config.minHoldSeconds = 0.3; });
    pressKey();
    fake.audioInput->speak(1.0);
    advance(100ms);
    releaseKey();
    EXPECT_EQ(cues(), (QStringList{QStringLiteral("Pop"), QStringLiteral("Tink")}));
    EXPECT_TRUE(pillText().isNull());
    EXPECT_EQ(inferences(), 0);
}

TEST_F(DictationSession, HoldOfExactlyTheMinimumCounts) {
    launchReady();
    controller->store().update([](Config &config) { config.minHoldSeconds = 0.3; });
    pressKey();
    fake.audioInput->speak(1.0);
    advance(300ms);
    releaseKey();
    EXPECT_EQ(inferences(), 1);
}

TEST_F(DictationSession, NoMinimumHoldInToggleMode) {
    launchReady();
    setMode(ActivationMode::toggle);
    pressKey();
    fake.audioInput->speak(1.0);
    releaseKey();
    pressKey();
    EXPECT_EQ(inferences(), 1);
}

TEST_F(DictationSession, ShortRecordingIsDroppedSilently) {
    launchReady();
    pressKey();
    fake.audioInput->deliver(std::vector<float>(4799, 0.5F));
    advance(1s);
    releaseKey();
    EXPECT_TRUE(pillText().isNull());
    EXPECT_TRUE(alerts().isEmpty());
    EXPECT_EQ(inferences(), 0);

    pressKey();
    fake.audioInput->deliver(std::vector<float>(4800, 0.5F));
    advance(1s);
    releaseKey();
    EXPECT_EQ(inferences(), 1);
}

TEST_F(DictationSession, BriefHoldIsLookedAtBeforeSilence) {
    launchReady();
    pressKey();
    hear(1.0, 0.0F);
    advance(100ms);
    releaseKey();
    EXPECT_TRUE(alerts().isEmpty());
}

TEST_F(DictationSession, ShortnessIsLookedAtBeforeSilence) {
    launchReady();
    pressKey();
    hear(0.1, 0.0F);
    advance(1s);
    releaseKey();
    EXPECT_TRUE(alerts().isEmpty());
}

TEST_F(DictationSession, PureSilenceSuspectsThePermission) {
    launchReady();
    pressKey();
    hear(1.0, 0.0F);
    advance(1s);
    releaseKey();
    EXPECT_EQ(alertTitle(), QStringLiteral("Quenda can't hear anything"));
    EXPECT_EQ(alertText(),
              QStringLiteral("The microphone is delivering pure silence, which usually means macOS "
                             "revoked Quenda's Microphone permission after an update. Toggle "
                             "Quenda off and on in System Settings → Privacy & Security → "
                             "Microphone, then try again."));
    EXPECT_EQ(fake.workspace->activations, 1);
    EXPECT_TRUE(pillText().isNull());
    EXPECT_EQ(inferences(), 0);
}

TEST_F(DictationSession, QuietRecordingIsToldAndDropped) {
    launchReady();
    pressKey();
    hear(1.0, 0.01F);
    advance(1s);
    releaseKey();
    EXPECT_EQ(pillText(), QStringLiteral("Didn't hear anything"));
    EXPECT_EQ(inferences(), 0);
}

TEST_F(DictationSession, PeakOfExactlyTheThresholdIsTranscribed) {
    launchReady();
    pressKey();
    hear(1.0, 0.015F);
    advance(1s);
    releaseKey();
    EXPECT_EQ(pillText(), QStringLiteral("Transcribing…"));
    EXPECT_EQ(inferences(), 1);
}

TEST_F(DictationSession, NotReadyEngineBeeps) {
    launch(); // neither server nor model: failed
    ASSERT_EQ(engineKind(), Kind::failed);
    pressKey();
    EXPECT_FALSE(controller->isDictating());
    EXPECT_EQ(fake.sounds->beeps, 1);
    EXPECT_EQ(fake.audioInput->captures, 0);
}

TEST_F(DictationSession, ReadinessFollowsTheEngineState) {
    installEngine();
    launch();
    EXPECT_EQ(engineKind(), Kind::starting);
    EXPECT_TRUE(controller->transcriberIsReady());
    becomeReady();
    EXPECT_TRUE(controller->transcriberIsReady());
    controller->engine().stop();
    EXPECT_FALSE(controller->transcriberIsReady());
}

TEST_F(DictationSession, CloudProviderIsReadyWithAKey) {
    launch();
    for (const TranscriptionProvider provider :
         {TranscriptionProvider::openai, TranscriptionProvider::groq,
          TranscriptionProvider::custom}) {
        controller->store().update([provider](Config &config) {
            config.provider = provider;
            config.apiKeys.clear();
        });
        EXPECT_FALSE(controller->transcriberIsReady());
        controller->store().update(
            [provider](Config &config) { config.apiKeys.insert(rawValue(provider), QString()); });
        EXPECT_FALSE(controller->transcriberIsReady());
        controller->store().update([provider](Config &config) {
            config.apiKeys.insert(rawValue(provider), QStringLiteral("sk-1"));
        });
        EXPECT_TRUE(controller->transcriberIsReady());
    }
}

TEST_F(DictationSession, SleepingEngineRecordsAtOnceAndWakes) {
    Config settings = Config::defaults();
    settings.idleUnloadMinutes = 1;
    writeConfig(settings);
    launchReady();
    advance(3min);
    ASSERT_EQ(engineKind(), Kind::idle);
    pressKey();
    EXPECT_TRUE(controller->recorder().isRecording());
    EXPECT_EQ(engineKind(), Kind::starting);
    fake.audioInput->speak(1.0);
    advance(100ms);
    becomeReady();
    advance(1s);
    releaseKey();
    EXPECT_EQ(openInferences(), 1);
    answerTranscript(QStringLiteral("Good morning."));
    EXPECT_EQ(fake.pasteboard->string(), QStringLiteral("Good morning."));
}

TEST_F(DictationSession, RecordingThatCannotStartIsAnAlert) {
    launchReady();
    fake.audioInput->format = {};
    pressKey();
    EXPECT_FALSE(controller->isDictating());
    EXPECT_EQ(alertTitle(), QStringLiteral("Could not start recording"));
    EXPECT_EQ(alertText(), QStringLiteral("No audio input device available."));
    EXPECT_TRUE(logLines().contains(
        QStringLiteral("audio: recording failed to start — No audio input device available.")));
    EXPECT_TRUE(pillText().isNull());
    EXPECT_FALSE(controller->hotkey().escapeEnabled);
}

TEST_F(DictationSession, MarkupInAnErrorIsShownAsItCame) {
    launchReady();
    controller->store().update([](Config &config) {
        config.provider = TranscriptionProvider::custom;
        config.apiKeys.insert(QStringLiteral("custom"), QStringLiteral("key"));
        config.customBaseURL = QStringLiteral("https://example.org/v1");
    });
    dictate();
    http.answer(400, R"({"error":{"message":"<img src='/etc/hostname'><b>no</b>"}})");
    advance(0ms);
    ASSERT_EQ(alerts().size(), 1);
    for (const QLabel *label : alerts().first()->findChildren<QLabel *>())
        EXPECT_EQ(label->textFormat(), Qt::PlainText) << qPrintable(label->objectName());
    EXPECT_TRUE(alertText().contains(QStringLiteral("<b>no</b>"))) << qPrintable(alertText());
}

TEST_F(DictationSession, EndlessErrorIsCutToWhatAScreenHolds) {
    launchReady();
    dictate();
    http.fail({QStringLiteral("test"), 1, QString(200'000, QLatin1Char('x'))});
    ASSERT_EQ(alerts().size(), 1);
    EXPECT_EQ(alertText(), QString(1000, QLatin1Char('x')) + QStringLiteral("…"));
}

TEST_F(DictationSession, FailedTranscriptionIsAnAlert) {
    launchReady();
    dictate();
    advance(2500ms);
    http.answer(500, "{\"error\":\"failed to process audio\"}");
    EXPECT_EQ(alertTitle(), QStringLiteral("Transcription failed"));
    EXPECT_EQ(alertText(), QStringLiteral("Unexpected response from whisper-server."));
    EXPECT_TRUE(logLines().contains(
        QStringLiteral("dictation: failed after 2.5s — Unexpected response from whisper-server.")));
    EXPECT_TRUE(pillText().isNull());
    EXPECT_TRUE(controller->history().isEmpty());
}

TEST_F(DictationSession, KeyQuotedBackByTheServiceStaysOutOfTheLog) {
    Config settings = Config::defaults();
    settings.provider = TranscriptionProvider::groq;
    settings.apiKeys.insert(QStringLiteral("groq"), QStringLiteral("gsk-very-secret"));
    writeConfig(settings);
    launch();
    dictate();
    http.answer(401, "{\"error\":{\"message\":\"Invalid API key gsk-very-secret\"}}");
    EXPECT_EQ(alertText(), QStringLiteral("Invalid API key gsk-very-secret"));
    EXPECT_TRUE(logLines().filter(QStringLiteral("gsk-very-secret")).isEmpty());
    EXPECT_FALSE(logLines().filter(QStringLiteral("Invalid API key …")).isEmpty());
}

TEST_F(DictationSession, LoggedTimesHalfWayGoToTheEvenTenth) {
    launchReady();
    dictate(1.25);
    advance(250ms);
    answerTranscript(QString());
    EXPECT_TRUE(logLines().contains(QStringLiteral("dictation: 1.2s audio → empty in 0.2s")));
}

TEST_F(DictationSession, EmptyTranscriptIsLoggedAndNotInserted) {
    launchReady();
    dictate(1.5);
    advance(300ms);
    answerTranscript(QStringLiteral("[BLANK_AUDIO]"));
    EXPECT_TRUE(logLines().contains(QStringLiteral("dictation: 1.5s audio → empty in 0.3s")));
    EXPECT_TRUE(pillText().isNull());
    EXPECT_TRUE(controller->history().isEmpty());
    EXPECT_EQ(fake.keyPoster->posted, 0);
}

TEST_F(DictationSession, TranscriptOfFillersOnlyVanishesWithoutALine) {
    launchReady();
    controller->store().update([](Config &config) { config.removeFillerWords = true; });
    dictate();
    const qsizetype before = logLines().size();
    answerTranscript(QStringLiteral("um"));
    EXPECT_TRUE(pillText().isNull());
    EXPECT_TRUE(controller->history().isEmpty());
    EXPECT_EQ(fake.keyPoster->posted, 0);
    EXPECT_EQ(logLines().size(), before);
}

TEST_F(DictationSession, FillersAreRemovedOnlyOnDemand) {
    launchReady();
    dictate();
    answerTranscript(QStringLiteral("um hello"));
    EXPECT_EQ(controller->history().first(), QStringLiteral("um hello"));
    controller->store().update([](Config &config) { config.removeFillerWords = true; });
    dictate();
    answerTranscript(QStringLiteral("um hello"));
    EXPECT_EQ(controller->history().first(), QStringLiteral("Hello"));
}

TEST_F(DictationSession, HistoryKeepsTheTenNewest) {
    launchReady();
    for (int number = 1; number <= 11; ++number) {
        dictate();
        answerTranscript(QStringLiteral("Entry %1").arg(number));
    }
    ASSERT_EQ(controller->history().size(), 10);
    EXPECT_EQ(controller->history().first(), QStringLiteral("Entry 11"));
    EXPECT_EQ(controller->history().last(), QStringLiteral("Entry 2"));
}

TEST_F(DictationSession, CuesAreOffByDefault) {
    launchReady();
    dictate();
    EXPECT_TRUE(cues().isEmpty());
}

TEST_F(DictationSession, NewDictationMayBeginWhileTheLastIsTranscribed) {
    launchReady();
    dictate();
    pressKey();
    EXPECT_TRUE(controller->isDictating());
    fake.audioInput->speak(1.0);
    answerTranscript(QStringLiteral("First."));
    EXPECT_TRUE(controller->isDictating());
    advance(1s);
    releaseKey();
    answerTranscript(QStringLiteral("Second."));
    EXPECT_EQ(controller->history(),
              (QStringList{QStringLiteral("Second."), QStringLiteral("First.")}));
}

TEST_F(DictationSession, AnswerAfterTheControllerIsGoneIsDropped) {
    launchReady();
    dictate();
    controller.reset();
    http.answer(200, "{\"text\":\"late\"}");
    EXPECT_EQ(fake.keyPoster->posted, 0);
}

} // namespace
