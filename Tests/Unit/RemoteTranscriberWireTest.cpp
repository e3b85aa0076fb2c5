// The remote transcriber on real connections.

#include "Fakes/TestHttpServer.h"
#include "Quenda/NetworkHttpClient.h"
#include "RemoteTranscriberFixture.h"

#include <QProcess>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <algorithm>

using namespace quenda;
using namespace std::chrono_literals;
using fakes::TestHttpServer;
using fakes::waitFor;

namespace {

Result<QString> transcribe(const Config &config, std::chrono::milliseconds patience = 10s) {
    NetworkHttpClient http;
    QObject context;
    std::optional<Result<QString>> answer;
    RemoteTranscriber::transcribe(kSamples, config, http, &context,
                                  [&](const Result<QString> &result) { answer = result; });
    EXPECT_TRUE(waitFor([&] { return answer.has_value(); }, patience));
    return answer.value_or(quendaError(0, QStringLiteral("no answer came")));
}

} // namespace

TEST(RemoteTranscriberWireTest, TheRequestsBytesAreTheseAndNoOthers) {
    TestHttpServer server;
    server.answer(200, R"({"text":" Real words. "})");
    Config config = configured(TranscriptionProvider::custom, QStringLiteral("secret key"));
    config.customBaseURL = server.url(QStringLiteral("/v1?tenant=7")).toString();
    config.customVocabulary = QStringLiteral("Grüße");
    const Result<QString> answer = transcribe(config);
    ASSERT_TRUE(answer.ok());
    EXPECT_EQ(answer.value(), QStringLiteral("Real words."));

    ASSERT_EQ(server.requests.size(), 1u);
    const TestHttpServer::Request &request = server.requests[0];
    const QByteArray type = request.header("Content-Type");
    const QByteArray boundary = type.mid(type.indexOf('=') + 1);
    const QByteArray line = "--" + boundary + "\r\n";
    const QByteArray body = line + field("model", "whisper-1") + "\r\n" + line +
                            field("response_format", "json") + "\r\n" + line +
                            field("language", "en") + "\r\n" + line + field("prompt", "Grüße") +
                            "\r\n" + line + filePart() + "\r\n--" + boundary + "--\r\n";
    QList<QByteArray> head = request.raw.first(request.raw.indexOf("\r\n\r\n")).split('\n');
    for (QByteArray &each : head)
        each = each.trimmed();
    EXPECT_EQ(head.takeFirst(), "POST /v1/audio/transcriptions?tenant=7 HTTP/1.1");
    std::sort(head.begin(), head.end());
    head.removeIf([](const QByteArray &each) { return each.startsWith("Accept-Language:"); });
    EXPECT_EQ(head, (QList<QByteArray>{"Accept-Encoding: identity",
                                       "Authorization: Bearer secret key", "Connection: close",
                                       "Content-Length: " + QByteArray::number(body.size()),
                                       "Content-Type: multipart/form-data; boundary=" + boundary,
                                       "Host: 127.0.0.1:" + QByteArray::number(server.serverPort()),
                                       "User-Agent: Quenda"}));
    EXPECT_EQ(request.body, body);
}

TEST(RemoteTranscriberWireTest, ADeniedKeyIsToldInTheServicesWords) {
    TestHttpServer server;
    server.answer(401, R"({"error":{"message":"Invalid API key"}})",
                  "WWW-Authenticate: Bearer realm=\"x\"\r\n");
    Config config = configured(TranscriptionProvider::custom);
    config.customBaseURL = server.url(QStringLiteral("/v1")).toString();
    const Result<QString> answer = transcribe(config);
    ASSERT_FALSE(answer.ok());
    EXPECT_EQ(answer.error(), quendaError(20, QStringLiteral("Invalid API key")));
}

TEST(RemoteTranscriberWireTest, ARedirectDoesNotCarryTheKeyAway) {
    TestHttpServer other;
    TestHttpServer server;
    server.answer(307, {}, "Location: " + other.url(QStringLiteral("/v1")).toEncoded() + "\r\n");
    Config config = configured(TranscriptionProvider::custom);
    config.customBaseURL = server.url(QStringLiteral("/v1")).toString();
    const Result<QString> answer = transcribe(config);
    EXPECT_FALSE(answer.ok());
    EXPECT_EQ(other.connections, 0);
}

// --- A real whisper-server, where the environment names one
// -----------------------------------------

namespace {

// "QUENDA_WHISPER_SERVER" names the program and "QUENDA_WHISPER_MODEL" its model file.
std::vector<std::string> realServers() {
    const QByteArray program = qgetenv("QUENDA_WHISPER_SERVER");
    if (program.isEmpty())
        return {};
    return {program.toStdString()};
}

quint16 freePort() {
    QTcpServer probe;
    EXPECT_TRUE(probe.listen(QHostAddress::LocalHost));
    return probe.serverPort();
}

class RealWhisperServerTest : public testing::TestWithParam<std::string> {};

} // namespace

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RealWhisperServerTest);
INSTANTIATE_TEST_SUITE_P(Environment, RealWhisperServerTest, testing::ValuesIn(realServers()));

TEST_P(RealWhisperServerTest, AnswersTheSameRequest) {
    const QString port = QString::number(freePort());
    QProcess server;
    server.setProcessChannelMode(QProcess::ForwardedChannels);
    server.start(QString::fromStdString(GetParam()),
                 {QStringLiteral("-m"), qEnvironmentVariable("QUENDA_WHISPER_MODEL"),
                  QStringLiteral("--host"), QStringLiteral("127.0.0.1"), QStringLiteral("--port"),
                  port, QStringLiteral("--inference-path"),
                  QStringLiteral("/v1/audio/transcriptions")});
    ASSERT_TRUE(server.waitForStarted()) << qPrintable(server.errorString());

    // It takes connections once the model is loaded.
    QTcpSocket probe;
    EXPECT_TRUE(waitFor(
        [&] {
            if (probe.state() == QAbstractSocket::UnconnectedState)
                probe.connectToHost(QHostAddress(QHostAddress::LocalHost), port.toUShort());
            return probe.state() == QAbstractSocket::ConnectedState;
        },
        120s));
    probe.abort();

    Config config = configured(TranscriptionProvider::custom);
    config.customBaseURL = QStringLiteral("http://127.0.0.1:") + port + QStringLiteral("/v1");
    const Result<QString> answer = transcribe(config, 120s);
    EXPECT_TRUE(answer.ok()) << (answer.ok() ? ""
                                             : qPrintable(answer.error().localizedDescription));
    server.kill();
    server.waitForFinished();
}
