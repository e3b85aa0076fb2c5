// A recording's way through the engine: waiting, the request to the byte, the answer.
#include "Fakes/EngineFixture.h"
#include "Quenda/AudioRecorder.h"

#include <cstring>

using namespace quenda;
using namespace quenda::fakes;
using namespace std::chrono_literals;
using Kind = WhisperEngine::State::Kind;

namespace {

class WhisperEngineRequestTest : public EngineFixture {};

TEST_F(WhisperEngineRequestTest, postsTheRecordingAndCleansTheAnswer) {
    store->update([](Config &config) {
        config.language = QStringLiteral("auto");
        config.customVocabulary = QStringLiteral("Łódź, “PostgreSQL”\nDvořák");
    });
    startUntilReady();
    transcribe({0.0F, 1.0F, -1.0F});
    ASSERT_EQ(http.exchanges.size(), 2u);
    const HttpRequest request = http.exchanges[1].request;
    EXPECT_EQ(request.url.toString(), QStringLiteral("http://127.0.0.1:8123/inference"));
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.timeout, 120s);
    EXPECT_EQ(request.maxResponseBytes, WhisperEngine::kMaxAnswerBytes);
    EXPECT_EQ(request.route, HttpRequest::Route::Direct);
    ASSERT_EQ(request.headers.size(), 1);
    EXPECT_EQ(request.headers[0].first, "Content-Type");
    const QByteArray prefix = "multipart/form-data; boundary=quenda-";
    ASSERT_TRUE(request.headers[0].second.startsWith(prefix));
    const QByteArray boundary =
        request.headers[0].second.mid(qsizetype(strlen("multipart/form-data; boundary=")));
    const std::vector<float> samples{0.0F, 1.0F, -1.0F};
    QByteArray expected = "--B\r\nContent-Disposition: form-data; name=\"response_format\"\r\n\r\n"
                          "json\r\n"
                          "--B\r\nContent-Disposition: form-data; name=\"temperature\"\r\n\r\n"
                          "0.0\r\n"
                          "--B\r\nContent-Disposition: form-data; name=\"language\"\r\n\r\n"
                          "auto\r\n"
                          "--B\r\nContent-Disposition: form-data; name=\"prompt\"\r\n\r\n"
                          "Łódź, “PostgreSQL”\nDvořák\r\n"
                          "--B\r\nContent-Disposition: form-data; name=\"file\"; "
                          "filename=\"audio.wav\"\r\nContent-Type: audio/wav\r\n\r\nWAV\r\n"
                          "--B--\r\n";
    expected.replace("--B", "--" + boundary);
    expected.replace("WAV", AudioRecorder::wavData(samples));
    EXPECT_EQ(request.body, expected);

    http.answer(200, R"({"text":" [noise] Hello\n there. "})");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].value(), QStringLiteral("Hello there."));
}

TEST_F(WhisperEngineRequestTest, withoutAVocabularyThereIsNoPrompt) {
    store->update([](Config &config) {
        config.language.clear();
        config.customVocabulary.clear();
    });
    startUntilReady();
    transcribe();
    const QByteArray body = http.exchanges[1].request.body;
    EXPECT_FALSE(body.contains("prompt"));
    EXPECT_TRUE(body.contains("name=\"language\"\r\n\r\n\r\n")); // empty, but there
}

TEST_F(WhisperEngineRequestTest, aVocabularyOfSpacesIsSentUnchanged) {
    store->update([](Config &config) { config.customVocabulary = QStringLiteral(" \t "); });
    startUntilReady();
    transcribe();
    EXPECT_TRUE(http.exchanges[1].request.body.contains("name=\"prompt\"\r\n\r\n \t \r\n"));
}

TEST_F(WhisperEngineRequestTest, answersWithoutATextAreAnError) {
    startUntilReady();
    for (const char *body : {"", "no json", "[]", "{}", R"({"error":"failed to process audio"})",
                             R"({"text":1})", R"({"text":null})", R"(["text"])", R"({"Text":"x"})",
                             "\"text\"", "{\"text\":\"x\"", "\xff\xfe{\"text\":\"x\"}"}) {
        results.clear();
        transcribe();
        http.answer(500, body);
        expectError(11, QStringLiteral("Unexpected response from whisper-server."));
    }
}

TEST_F(WhisperEngineRequestTest, theStatusOfAnAnswerIsNotLookedAt) {
    startUntilReady();
    transcribe();
    http.answer(503, R"({"text":"all the same"})");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].value(), QStringLiteral("all the same"));
    transcribe();
    http.answer(200, R"({"text":"Thank you."})");
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[1].value(), QString());
}

TEST_F(WhisperEngineRequestTest, transportErrorsPassUnchanged) {
    startUntilReady();
    transcribe();
    const Error error{QStringLiteral("Network"), 5, QStringLiteral("Operation timed out")};
    http.fail(error);
    ASSERT_EQ(results.size(), 1u);
    ASSERT_FALSE(results[0].ok());
    EXPECT_EQ(results[0].error(), error);

    transcribe(); // an answer that broke off is none, whatever has come of it
    http.exchanges[2].completion({200, R"({"text":"half"})", error});
    ASSERT_EQ(results.size(), 2u);
    ASSERT_FALSE(results[1].ok());
    EXPECT_EQ(results[1].error(), error);
}

TEST_F(WhisperEngineRequestTest, requestsToAStoppedOrFailedEngineFailAtOnce) {
    transcribe();
    expectError(10, QStringLiteral("Transcription engine is not ready yet."));
    results.clear();
    startUntilReady();
    child(0).exit(1);
    transcribe();
    expectError(10, QStringLiteral("Transcription engine is not ready yet."));
}

TEST_F(WhisperEngineRequestTest, aRequestWaitsForTheLoadingModel) {
    engine->start();
    transcribe();
    scheduler.advance(2s);
    http.answer(200); // the poll
    EXPECT_EQ(engine->state().kind, Kind::ready);
    EXPECT_EQ(http.exchanges.size(), 1u);
    scheduler.advance(500ms);
    ASSERT_EQ(http.exchanges.size(), 2u);
    EXPECT_EQ(http.exchanges[1].request.method, "POST");
    http.answer(200, R"({"text":"late"})");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].value(), QStringLiteral("late"));
}

TEST_F(WhisperEngineRequestTest, aRequestWakesTheIdleEngine) {
    scheduler.advance(30s);
    startUntilReady();
    scheduler.advance(16min);
    ASSERT_EQ(engine->state().kind, Kind::idle);
    transcribe();
    EXPECT_EQ(engine->state().kind, Kind::starting);
    EXPECT_EQ(processes.children.size(), 2u);
    http.answer(200);
    scheduler.advance(500ms);
    http.answer(200, R"({"text":"awake"})");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].value(), QStringLiteral("awake"));
}

TEST_F(WhisperEngineRequestTest, aRequestThatWakesAnEngineWithoutAModelFails) {
    scheduler.advance(30s);
    startUntilReady();
    scheduler.advance(16min);
    ASSERT_TRUE(QFile::remove(model));
    transcribe();
    expectFailed(kNoModel);
    EXPECT_TRUE(results.empty()); // told at the next look
    scheduler.advance(500ms);
    expectError(10, QStringLiteral("Transcription engine is not ready."));
}

TEST_F(WhisperEngineRequestTest, aRequestWaitsNinetySecondsAtMost) {
    engine->start();
    transcribe();
    scheduler.advance(89999ms);
    EXPECT_TRUE(results.empty());
    scheduler.advance(1ms);
    expectError(12, QStringLiteral("The model took too long to load."));
    http.answer(200);
    scheduler.advance(10s);
    EXPECT_EQ(results.size(), 1u);
    EXPECT_EQ(http.exchanges.size(), 1u); // the recording is not sent afterwards
}

TEST_F(WhisperEngineRequestTest, aWaitingRequestFailsWithTheEngine) {
    engine->start();
    transcribe();
    engine->stop();
    scheduler.advance(499ms);
    EXPECT_TRUE(results.empty());
    scheduler.advance(1ms);
    expectError(10, QStringLiteral("Transcription engine is not ready."));

    results.clear();
    engine->start();
    transcribe();
    child(1).exit(3);
    scheduler.advance(500ms);
    expectError(10, QStringLiteral("Transcription engine is not ready."));
}

TEST_F(WhisperEngineRequestTest, severalRequestsAreEachAnsweredOnce) {
    engine->start();
    transcribe({0.1F});
    transcribe({0.2F});
    http.answer(200);
    scheduler.advance(500ms);
    transcribe({0.3F});
    ASSERT_EQ(http.exchanges.size(), 4u);
    http.answer(200, R"({"text":"one"})");
    http.answer(200, R"({"text":"two"})");
    http.answer(200, R"({"text":"three"})");
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[0].value(), QStringLiteral("one"));
    EXPECT_EQ(results[1].value(), QStringLiteral("two"));
    EXPECT_EQ(results[2].value(), QStringLiteral("three"));
}

TEST_F(WhisperEngineRequestTest, theEndOfTheEngineAbandonsItsRequests) {
    engine->start();
    transcribe();
    http.answer(200);
    transcribe();
    engine.reset();
    scheduler.advance(2min);
    http.answer(200, R"({"text":"nobody listens"})");
    EXPECT_TRUE(results.empty());
}

TEST_F(WhisperEngineRequestTest, noTranscriptReachesTheLog) {
    startUntilReady();
    transcribe();
    http.answer(200, R"({"text":"a secret matter"})");
    Log::flush();
    QFile file(Log::fileURL());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_FALSE(file.readAll().contains("secret"));
}

} // namespace
