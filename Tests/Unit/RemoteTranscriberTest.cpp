#include "Fakes/FakeHttpClient.h"
#include "Fakes/TestHttpServer.h"
#include "Quenda/WhisperEngine.h"
#include "RemoteTranscriberFixture.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace quenda;
using namespace std::chrono_literals;
using fakes::FakeHttpClient;
using fakes::waitFor;

namespace {

class RemoteTranscriberTest : public testing::Test {
protected:
    void start(const Config &config) {
        answer.reset();
        RemoteTranscriber::transcribe(kSamples, config, http, &context,
                                      [this](const Result<QString> &result) {
                                          ++calls;
                                          answer = result;
                                      });
    }
    // The request that `config` leads to.
    HttpRequest request(const Config &config) {
        start(config);
        EXPECT_FALSE(http.exchanges.empty());
        return http.exchanges.empty() ? HttpRequest{} : http.exchanges.back().request;
    }
    QUrl target(const QString &base) {
        Config config = configured(TranscriptionProvider::custom);
        config.customBaseURL = base;
        return request(config).url;
    }
    // The message of the error that comes without a request.
    QString refusal(const Config &config) {
        const std::size_t before = http.exchanges.size();
        start(config);
        EXPECT_FALSE(answer) << "the completion comes later";
        EXPECT_TRUE(waitFor([&] { return answer.has_value(); }));
        EXPECT_EQ(http.exchanges.size(), before) << "nothing is sent";
        return errorText();
    }
    // What becomes of an answer of the service.
    void receive(int status, const QByteArray &body,
                 TranscriptionProvider provider = TranscriptionProvider::groq) {
        start(configured(provider));
        http.answer(status, body);
        ASSERT_TRUE(answer);
    }
    QString text() const {
        EXPECT_TRUE(answer && answer->ok());
        return answer && answer->ok() ? answer->value() : QStringLiteral("(error)");
    }
    QString errorText() const {
        if (!answer || answer->ok())
            return QStringLiteral("(no error)");
        EXPECT_EQ(answer->error().domain, QStringLiteral("Quenda"));
        EXPECT_EQ(answer->error().code, 20);
        return answer->error().localizedDescription;
    }

    FakeHttpClient http;
    QObject context;
    std::optional<Result<QString>> answer;
    int calls = 0;
};

// The parts of a body, headers and contents, as a server would split it.
QList<QByteArray> parts(const HttpRequest &request) {
    QByteArray type;
    for (const auto &[name, value] : request.headers) {
        if (name == "Content-Type")
            type = value;
    }
    const QByteArray boundary = "--" + type.mid(type.indexOf("boundary=") + 9);
    EXPECT_TRUE(request.body.endsWith("\r\n" + boundary + "--\r\n"));
    QList<QByteArray> found;
    qsizetype at = request.body.indexOf(boundary);
    EXPECT_EQ(at, 0);
    while (true) {
        at += boundary.size() + 2;
        const qsizetype end = request.body.indexOf("\r\n" + boundary, at);
        if (end < 0)
            return found;
        found.append(request.body.sliced(at, end - at));
        at = end + 2;
    }
}

} // namespace

// --- Where it goes
// --------------------------------------------------------------------------------------

TEST_F(RemoteTranscriberTest, EachProviderHasItsAddress) {
    EXPECT_EQ(request(configured(TranscriptionProvider::openai)).url,
              QUrl(QStringLiteral("https://api.openai.com/v1/audio/transcriptions")));
    EXPECT_EQ(request(configured(TranscriptionProvider::groq)).url,
              QUrl(QStringLiteral("https://api.groq.com/openai/v1/audio/transcriptions")));
    EXPECT_EQ(request(configured(TranscriptionProvider::custom)).url,
              QUrl(QStringLiteral("https://host.example/v1/audio/transcriptions")));
}

TEST_F(RemoteTranscriberTest, TheBaseUrlIsUsedAsStored) {
    const auto expectTarget = [&](const char *base, const char *expected) {
        EXPECT_EQ(target(QString::fromUtf8(base)).toEncoded(), QByteArray(expected)) << base;
    };
    expectTarget("https://host.example", "https://host.example/audio/transcriptions");
    expectTarget("https://host.example/", "https://host.example/audio/transcriptions");
    expectTarget("https://host.example/v1/", "https://host.example/v1/audio/transcriptions");
    expectTarget("http://127.0.0.1:8080/a/b", "http://127.0.0.1:8080/a/b/audio/transcriptions");
    expectTarget("http://[::1]:8080/v1", "http://[::1]:8080/v1/audio/transcriptions");
    expectTarget("https://host.example/v1?version=2&x=a%26b",
                 "https://host.example/v1/audio/transcriptions?version=2&x=a%26b");
    expectTarget("https://host.example/v1/?version=2",
                 "https://host.example/v1/audio/transcriptions?version=2");
    expectTarget("https://host.example/a%2Fb", "https://host.example/a%2Fb/audio/transcriptions");
    expectTarget("https://host.example/%C3%A9", "https://host.example/%C3%A9/audio/transcriptions");
}

TEST_F(RemoteTranscriberTest, AnUnusableBaseUrlIsAnError) {
    const QString expected =
        QStringLiteral("Set the base URL for the custom provider in Settings.");
    for (const char *base :
         {"", " ", "host.example/v1", "/v1", "v1", "https://", "https:///v1", "https:host.example",
          "://host.example", "ftp://host.example/v1", "file:///v1", "mailto:a@b",
          "https://host.example:99999/v1", "https://ho st.example/v1", "http://[::1/v1",
          " https://host.example/v1", "https://host.example/v1 ", "https://host.example/v1\n"}) {
        Config config = configured(TranscriptionProvider::custom);
        config.customBaseURL = QString::fromUtf8(base);
        EXPECT_EQ(refusal(config), expected) << base;
    }
    EXPECT_EQ(refusal(configured(TranscriptionProvider::local)), expected);
    // The address is looked at before the key.
    Config config = configured(TranscriptionProvider::custom, {});
    config.customBaseURL.clear();
    EXPECT_EQ(refusal(config), expected);
}

// --- The key
// ----------------------------------------------------------------------------------------------

TEST_F(RemoteTranscriberTest, AMissingKeyIsAnError) {
    EXPECT_EQ(refusal(configured(TranscriptionProvider::groq, {})),
              QStringLiteral("Add your Groq API key in Settings."));
    EXPECT_EQ(refusal(configured(TranscriptionProvider::openai, {})),
              QStringLiteral("Add your OpenAI API key in Settings."));
    Config config = configured(TranscriptionProvider::custom);
    config.apiKeys = {{QStringLiteral("groq"), QStringLiteral("other")}};
    EXPECT_EQ(refusal(config),
              QStringLiteral("Add your Custom (OpenAI-compatible) API key in Settings."));
    EXPECT_EQ(calls, 3);
}

TEST_F(RemoteTranscriberTest, AKeyThatCannotStandInAHeaderIsAnError) {
    for (const QString &key :
         {QStringLiteral("sk-1\n"), QStringLiteral("sk-1\r\nX-Forged: 1"), QStringLiteral("sk\t1"),
          QStringLiteral("sk-\u00e9"), QStringLiteral("sk-\u2026"), QStringLiteral("sk-\U0001f511"),
          QString(QChar(u'\0')), QStringLiteral("sk\x7f")}) {
        const QString message = refusal(configured(TranscriptionProvider::groq, key));
        EXPECT_TRUE(message.contains(QStringLiteral("Groq API key"))) << qPrintable(message);
        EXPECT_FALSE(message.contains(QStringLiteral("sk"))) << "the key itself is not shown";
    }
}

TEST_F(RemoteTranscriberTest, TheKeyIsSentAsItStands) {
    const HttpRequest sent =
        request(configured(TranscriptionProvider::openai, QStringLiteral("sk-A b=~")));
    EXPECT_EQ(sent.headers.value(0),
              qMakePair(QByteArray("Authorization"), QByteArray("Bearer sk-A b=~")));
}

TEST_F(RemoteTranscriberTest, EachProviderGetsItsOwnKey) {
    Config config = configured(TranscriptionProvider::openai, QStringLiteral("for-openai"));
    config.apiKeys.insert(QStringLiteral("groq"), QStringLiteral("for-groq"));
    EXPECT_EQ(request(config).headers.value(0).second, "Bearer for-openai");
    config.provider = TranscriptionProvider::groq;
    EXPECT_EQ(request(config).headers.value(0).second, "Bearer for-groq");
}

// --- The body
// ----------------------------------------------------------------------------------------------

TEST_F(RemoteTranscriberTest, TheBodyIsExactlyThis) {
    Config config = configured(TranscriptionProvider::openai);
    config.customVocabulary = QStringLiteral("Alvero, Quenda, QMX");
    const HttpRequest sent = request(config);
    EXPECT_EQ(sent.method, "POST");
    EXPECT_EQ(sent.timeout, 60s);
    EXPECT_EQ(sent.maxResponseBytes, WhisperEngine::kMaxAnswerBytes);
    EXPECT_EQ(sent.route, HttpRequest::Route::SystemProxy);
    ASSERT_EQ(sent.headers.size(), 2);
    EXPECT_EQ(sent.headers[1].first, "Content-Type");
    const QRegularExpressionMatch type =
        QRegularExpression(QStringLiteral("^multipart/form-data; boundary=(quenda-[0-9A-F]{8}-"
                                          "[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-"
                                          "[0-9A-F]{12})$"))
            .match(QString::fromLatin1(sent.headers[1].second));
    ASSERT_TRUE(type.hasMatch()) << sent.headers[1].second.constData();
    const QByteArray boundary = type.captured(1).toLatin1();
    const QByteArray expected =
        "--" + boundary + "\r\n" + field("model", "whisper-1") + "\r\n" +            //
        "--" + boundary + "\r\n" + field("response_format", "json") + "\r\n" +       //
        "--" + boundary + "\r\n" + field("language", "en") + "\r\n" +                //
        "--" + boundary + "\r\n" + field("prompt", "Alvero, Quenda, QMX") + "\r\n" + //
        "--" + boundary + "\r\n" + filePart() + "\r\n" + "--" + boundary + "--\r\n";
    EXPECT_EQ(sent.body, expected);
}

TEST_F(RemoteTranscriberTest, FieldsThatAreNotSetAreLeftOut) {
    Config config = configured(TranscriptionProvider::groq);
    config.language = QStringLiteral("auto");
    EXPECT_EQ(parts(request(config)),
              (QList<QByteArray>{field("model", "whisper-large-v3-turbo"),
                                 field("response_format", "json"), filePart()}));
    for (const char *language : {"", "Auto", "auto "}) { // only exactly "auto" is left out
        config.language = QString::fromLatin1(language);
        EXPECT_EQ(parts(request(config)).value(2), field("language", language));
    }
}

TEST_F(RemoteTranscriberTest, TheModelIsTheProvidersOrTheUsers) {
    EXPECT_EQ(parts(request(configured(TranscriptionProvider::custom))).value(0),
              field("model", "whisper-1"));
    Config config = configured(TranscriptionProvider::groq);
    config.apiModelOverride = QStringLiteral("distil-ü");
    EXPECT_EQ(parts(request(config)).value(0), field("model", "distil-ü"));
}

TEST_F(RemoteTranscriberTest, NoValueForgesAPart) {
    for (const QString &hostile :
         {QStringLiteral("a\r\n--quenda-0\r\nContent-Disposition: form-data; "
                         "name=\"model\"\r\n\r\nforged"),
          QStringLiteral("\r\n--\r\n"), QStringLiteral("\"; name=\"model"),
          QStringLiteral("\n\r\n"),
          QStringLiteral("--quenda-FFFFFFFF-FFFF-4FFF-BFFF-FFFFFFFFFFFF--")}) {
        Config config = configured(TranscriptionProvider::openai);
        config.language = hostile;
        config.customVocabulary = hostile;
        config.apiModelOverride = hostile;
        EXPECT_EQ(
            parts(request(config)),
            (QList<QByteArray>{field("model", hostile.toUtf8()), field("response_format", "json"),
                               field("language", hostile.toUtf8()),
                               field("prompt", hostile.toUtf8()), filePart()}));
    }
}

TEST_F(RemoteTranscriberTest, EachRequestHasABoundaryOfItsOwn) {
    const HttpRequest one = request(configured(TranscriptionProvider::openai));
    const HttpRequest two = request(configured(TranscriptionProvider::openai));
    EXPECT_NE(one.headers[1].second, two.headers[1].second);
}

// --- The answer
// ---------------------------------------------------------------------------------------------

TEST_F(RemoteTranscriberTest, TheTextIsCleaned) {
    receive(200, R"({"text":" Hello [music] world. "})");
    EXPECT_EQ(text(), QStringLiteral("Hello world."));
    receive(200, R"({"text":" Thanks for watching! "})");
    EXPECT_EQ(text(), QString());
    receive(200, R"({"text":""})");
    EXPECT_EQ(text(), QString());
    EXPECT_EQ(calls, 3);
}

TEST_F(RemoteTranscriberTest, AnyAnswerWithATextCounts) {
    for (const int status : {200, 201, 400, 404, 500}) {
        receive(status, R"({"error":{"message":"no"},"text":"Fine."})");
        EXPECT_EQ(text(), QStringLiteral("Fine.")) << status;
    }
}

TEST_F(RemoteTranscriberTest, TransportErrorsPassUnchanged) {
    start(configured(TranscriptionProvider::groq));
    const Error lost{QStringLiteral("QNetworkReply"), 99, QStringLiteral("The cable is out.")};
    http.fail(lost);
    ASSERT_TRUE(answer && !answer->ok());
    EXPECT_EQ(answer->error(), lost);
    EXPECT_EQ(calls, 1);
}

TEST_F(RemoteTranscriberTest, AnEmptyBodyIsAnError) {
    receive(200, "");
    EXPECT_EQ(errorText(), QStringLiteral("Empty response from Groq."));
    receive(500, "", TranscriptionProvider::openai);
    EXPECT_EQ(errorText(), QStringLiteral("Empty response from OpenAI."));
    receive(204, "", TranscriptionProvider::custom);
    EXPECT_EQ(errorText(), QStringLiteral("Empty response from Custom (OpenAI-compatible)."));
}

TEST_F(RemoteTranscriberTest, TheServicesOwnMessageIsShownVerbatim) {
    receive(401, R"({"error":{"message":"Invalid API key","type":"x"}})");
    EXPECT_EQ(errorText(), QStringLiteral("Invalid API key"));
    receive(200, R"({"text":7,"error":{"message":"  %1 <b>odd</b>\n "}})");
    EXPECT_EQ(errorText(), QStringLiteral("  %1 <b>odd</b>\n "));
    receive(400, R"({"error":{"message":""}})");
    EXPECT_EQ(errorText(), QString());
}

TEST_F(RemoteTranscriberTest, AnythingElseNamesTheStatus) {
    receive(502, "<html><body>Bad Gateway</body></html>");
    EXPECT_EQ(errorText(), QStringLiteral("Groq request failed (HTTP 502)."));
    for (const char *body :
         {"[]", "[{\"text\":\"x\"}]", "\"text\"", "null", "{}", R"({"text":null})",
          R"({"text":["x"]})", R"({"error":"flat"})", R"({"error":{"message":5}})",
          R"({"error":{}})", R"({"error":[{"message":"x"}]})", R"({"text":"cut)", "\xff\xfe",
          " "}) {
        receive(418, body, TranscriptionProvider::openai);
        EXPECT_EQ(errorText(), QStringLiteral("OpenAI request failed (HTTP 418).")) << body;
    }
    start(configured(TranscriptionProvider::custom));
    http.oldestOpen()->completion({std::nullopt, "x", std::nullopt}); // no HTTP status at all
    EXPECT_EQ(errorText(), QStringLiteral("Custom (OpenAI-compatible) request failed (HTTP 0)."));
}

TEST_F(RemoteTranscriberTest, NothingIsCalledOnceTheContextIsGone) {
    auto asker = std::make_unique<QObject>();
    const auto count = [this](const Result<QString> &) { ++calls; };
    RemoteTranscriber::transcribe(kSamples, configured(TranscriptionProvider::groq), http,
                                  asker.get(), count);
    RemoteTranscriber::transcribe(kSamples, configured(TranscriptionProvider::groq, {}), http,
                                  asker.get(), count);
    asker.reset();
    http.answer(200, R"({"text":"late"})");
    fakes::turnFor(5ms);
    EXPECT_EQ(calls, 0);
}
