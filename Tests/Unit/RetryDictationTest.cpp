// A dictation that failed can be sent again; its samples live in memory until they are understood.

#include "Fakes/ControllerFixture.h"

#include <vector>

using namespace quenda;
using namespace std::chrono_literals;
using Outcome = AppDelegate::RetryOutcome;

namespace {

class RetryDictation : public fakes::ControllerFixture {
protected:
    // The open transcription requests, oldest first; the update check may be under way beside them.
    std::vector<fakes::FakeHttpClient::Exchange *> open() {
        std::vector<fakes::FakeHttpClient::Exchange *> found;
        for (auto &exchange : http.exchanges) {
            if (!exchange.answered && exchange.request.method == "POST")
                found.push_back(&exchange);
        }
        return found;
    }
    void answerWithFailure(size_t which = 0) {
        auto &exchange = *open().at(which);
        exchange.answered = true;
        const auto completion = exchange.completion;
        completion({500, "{\"error\":\"failed to process audio\"}", std::nullopt});
        advance(0ms);
    }
    void failDictation(double seconds) {
        dictate(seconds);
        answerWithFailure();
        ASSERT_EQ(alerts().size(), 1);
        dismissAlerts();
    }
    // Seconds of sound in the oldest open request: 16 kHz, 16 bits, a header of 44 bytes.
    double openSeconds() {
        const auto requests = open();
        if (requests.empty())
            return 0;
        const QByteArray &body = requests.front()->request.body;
        const qsizetype header = body.indexOf("RIFF");
        const qsizetype end = body.indexOf("\r\n--", header);
        return double(end - header - 44) / 32000;
    }
};

TEST_F(RetryDictation, NothingIsThereBeforeAFailure) {
    launchReady();
    EXPECT_EQ(controller->retryDictation(), Outcome::nothingToRetry);
    dictate();
    answerTranscript(QStringLiteral("Understood."));
    EXPECT_FALSE(controller->canRetryDictation());
    EXPECT_EQ(controller->retryDictation(), Outcome::nothingToRetry);
}

TEST_F(RetryDictation, SendsTheSameSoundAndInsertsItsText) {
    launchReady();
    failDictation(1.5);
    EXPECT_TRUE(controller->canRetryDictation());
    EXPECT_TRUE(pillText().isNull());
    EXPECT_EQ(controller->retryDictation(), Outcome::started);
    EXPECT_EQ(pillText(), QStringLiteral("Transcribing…"));
    EXPECT_DOUBLE_EQ(openSeconds(), 1.5);
    advance(400ms);
    answerTranscript(QStringLiteral("After all."));
    EXPECT_EQ(fake.pasteboard->string(), QStringLiteral("After all."));
    EXPECT_EQ(controller->history(), QStringList{QStringLiteral("After all.")});
    EXPECT_EQ(pillText(), QStringLiteral("Inserted ✓"));
    EXPECT_TRUE(logLines().contains(QStringLiteral("dictation: 1.5s audio → 10 chars in 0.4s")));
    EXPECT_FALSE(controller->canRetryDictation());
    EXPECT_EQ(controller->retryDictation(), Outcome::nothingToRetry);
}

TEST_F(RetryDictation, AnEmptyTranscriptIsASuccessToo) {
    launchReady();
    failDictation(1.0);
    ASSERT_EQ(controller->retryDictation(), Outcome::started);
    answerTranscript(QString());
    EXPECT_FALSE(controller->canRetryDictation());
}

TEST_F(RetryDictation, FailingAgainKeepsTheSamples) {
    launchReady();
    failDictation(1.5);
    ASSERT_EQ(controller->retryDictation(), Outcome::started);
    answerWithFailure();
    EXPECT_EQ(alertTitle(), QStringLiteral("Transcription failed"));
    dismissAlerts();
    EXPECT_EQ(controller->retryDictation(), Outcome::started);
    EXPECT_DOUBLE_EQ(openSeconds(), 1.5);
}

TEST_F(RetryDictation, ALaterSuccessLeavesWhatFailedBefore) {
    launchReady();
    failDictation(1.5);
    dictate(1.0);
    answerTranscript(QStringLiteral("Another."));
    EXPECT_EQ(controller->retryDictation(), Outcome::started);
    EXPECT_DOUBLE_EQ(openSeconds(), 1.5);
}

TEST_F(RetryDictation, ALaterFailureTakesItsPlace) {
    launchReady();
    failDictation(1.5);
    failDictation(1.0);
    EXPECT_EQ(controller->retryDictation(), Outcome::started);
    EXPECT_DOUBLE_EQ(openSeconds(), 1.0);
}

TEST_F(RetryDictation, TheLaterOfTwoFailuresStaysWhicheverIsAnsweredFirst) {
    launchReady();
    failDictation(1.5);
    ASSERT_EQ(controller->retryDictation(), Outcome::started);
    dictate(1.0);
    answerWithFailure(1);
    dismissAlerts();
    ASSERT_DOUBLE_EQ(openSeconds(), 1.5);
    answerWithFailure();
    dismissAlerts();
    EXPECT_EQ(controller->retryDictation(), Outcome::started);
    EXPECT_DOUBLE_EQ(openSeconds(), 1.0);
}

TEST_F(RetryDictation, IsRefusedWhileRecordingAndWhileOnItsWay) {
    launchReady();
    failDictation(1.5);
    pressKey();
    EXPECT_EQ(controller->retryDictation(), Outcome::busy);
    EXPECT_TRUE(controller->isDictating());
    pressEscape();
    EXPECT_EQ(controller->retryDictation(), Outcome::started);
    EXPECT_EQ(controller->retryDictation(), Outcome::busy);
}

TEST_F(RetryDictation, IsRefusedWithoutATranscriberAndLosesNothing) {
    launchReady();
    failDictation(1.5);
    controller->store().update(
        [](Config &config) { config.provider = TranscriptionProvider::openai; });
    EXPECT_EQ(controller->retryDictation(), Outcome::notReady);
    EXPECT_EQ(fake.sounds->beeps, 0);
    EXPECT_TRUE(controller->canRetryDictation());
}

TEST_F(RetryDictation, UsesTheSettingsOfNow) {
    launchReady();
    failDictation(1.5);
    controller->store().update([](Config &config) {
        config.provider = TranscriptionProvider::openai;
        config.apiKeys.insert(QStringLiteral("openai"), QStringLiteral("sk-test"));
    });
    ASSERT_EQ(controller->retryDictation(), Outcome::started);
    EXPECT_EQ(open().at(0)->request.url.host(), QStringLiteral("api.openai.com"));
    EXPECT_DOUBLE_EQ(openSeconds(), 1.5);
}

} // namespace
