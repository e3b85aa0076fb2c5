// Where requests go: redirects, proxies, TLS.

#include "HttpClientFixture.h"

#include <QSslSocket>
#include <QTimer>

using namespace quenda;
using namespace std::chrono_literals;
using fakes::TestHttpServer;

using HttpRoutesTest = HttpClientFixture;

namespace {

// A proxy of the environment for one test.
class ProxyEnvironment {
public:
    explicit ProxyEnvironment(const TestHttpServer &proxy) {
        qputenv("http_proxy", "http://127.0.0.1:" + QByteArray::number(proxy.serverPort()));
        qunsetenv("no_proxy");
    }
    ~ProxyEnvironment() { qunsetenv("http_proxy"); }
};

} // namespace

// --- Redirects
// -------------------------------------------------------------------------------------

TEST_F(HttpRoutesTest, AGetFollowsRedirectsToOtherHosts) {
    TestHttpServer other;
    other.answer(200, "there");
    for (const int status : {301, 302, 303, 307, 308}) {
        server.answer(status, "moved",
                      "Location: " + other.url(QStringLiteral("/x")).toEncoded() + "\r\n");
        const HttpResponse response = exchange(get(server.url()));
        EXPECT_EQ(response.status, 200) << status;
        EXPECT_EQ(response.body, "there");
    }
}

TEST_F(HttpRoutesTest, RelativeRedirectsAreResolved) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &request) {
        if (request.target == "/a/b")
            socket.write(TestHttpServer::response(302, {}, "Location: ../c?d=e\r\n"));
        else
            socket.write(TestHttpServer::response(200, request.target));
        socket.disconnectFromHost();
    };
    EXPECT_EQ(exchange(get(server.url(QStringLiteral("/a/b")))).body, "/c?d=e");
}

TEST_F(HttpRoutesTest, RedirectLoopsEnd) {
    server.answer(302, {}, "Location: /again\r\n");
    expectError(exchange(get(server.url())).transportError, HttpError::TooManyRedirects);
    EXPECT_EQ(server.requests.size(), std::size_t(kMaxRedirects) + 1);
}

TEST_F(HttpRoutesTest, ARedirectWithoutATargetIsTheAnswer) {
    server.answer(302, "where?");
    const HttpResponse response = exchange(get(server.url()));
    EXPECT_EQ(response.status, 302);
    EXPECT_EQ(response.body, "where?");
}

TEST_F(HttpRoutesTest, RedirectsToOtherSchemesAreRefused) {
    for (const QByteArray target : {"file:///etc/passwd", "ftp://127.0.0.1/", "javascript:1"}) {
        server.answer(302, {}, "Location: " + target + "\r\n");
        expectError(exchange(get(server.url())).transportError, HttpError::RedirectRefused);
    }
}

// Neither the key nor the recording goes to a host that the user did not choose.
TEST_F(HttpRoutesTest, AKeyIsNeverSentToAnotherHost) {
    TestHttpServer other;
    for (const int status : {301, 302, 303, 307, 308}) {
        server.answer(status, {}, "Location: " + other.url().toEncoded() + "\r\n");
        const HttpResponse response = exchange(post(server.url()));
        expectError(response.transportError, HttpError::RedirectRefused);
        EXPECT_EQ(response.status, status);
        HttpRequest request = get(server.url());
        request.headers = {{"authorization", "Bearer secret"}};
        expectError(exchange(request).transportError, HttpError::RedirectRefused);
    }
    EXPECT_EQ(other.connections, 0);
}

TEST_F(HttpRoutesTest, APostIsRepeatedOnItsOwnHostOnly) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &request) {
        if (request.target == "/v1")
            socket.write(TestHttpServer::response(307, {}, "Location: /v1/\r\n"));
        else
            socket.write(TestHttpServer::response(200, request.header("Authorization")));
        socket.disconnectFromHost();
    };
    const QByteArray body(200'000, 'x');
    const HttpResponse response = exchange(post(server.url(QStringLiteral("/v1")), body));
    EXPECT_EQ(response.body, "Bearer secret");
    ASSERT_EQ(server.requests.size(), 2u);
    EXPECT_EQ(server.requests[1].method, "POST");
    EXPECT_EQ(server.requests[1].body, body);

    server.answer(302, {}, "Location: /v1/\r\n"); // would make a GET of it
    expectError(exchange(post(server.url(QStringLiteral("/v1")))).transportError,
                HttpError::RedirectRefused);
}

TEST(HttpRulesTest, ARedirectNeverLeadsFromHttpsToHttp) {
    HttpRequest request;
    request.url = QUrl(QStringLiteral("https://models.example/a"));
    EXPECT_FALSE(redirected(request, 302, QUrl(QStringLiteral("http://models.example/a"))).ok());
    EXPECT_FALSE(redirected(request, 302, QUrl(QStringLiteral("http://cdn.example/a"))).ok());
    EXPECT_TRUE(redirected(request, 302, QUrl(QStringLiteral("https://cdn.example/a"))).ok());
    request.url.setScheme(QStringLiteral("http"));
    EXPECT_TRUE(redirected(request, 302, QUrl(QStringLiteral("https://cdn.example/a"))).ok());
}

TEST(HttpRulesTest, AnAnnouncedLengthIsAWholeNumber) {
    EXPECT_EQ(announcedLength("0"), 0);
    EXPECT_EQ(announcedLength("1624555275"), 1624555275);
    EXPECT_EQ(announcedLength("9223372036854775807"), 9223372036854775807);
    for (const char *const other :
         {"", "-1", "9223372036854775808", "12, 12", "0x10", "1e3", "5.0"})
        EXPECT_EQ(announcedLength(other), -1) << other;
}

TEST(HttpRulesTest, TheSameHostMeansSchemeNameAndPort) {
    HttpRequest request;
    request.method = "POST";
    request.url = QUrl(QStringLiteral("https://api.example/v1"));
    const auto follows = [&](const char *target) {
        return redirected(request, 307, QUrl(QString::fromLatin1(target))).ok();
    };
    EXPECT_TRUE(follows("https://api.example/v2"));
    EXPECT_TRUE(follows("https://API.example:443/v2"));
    EXPECT_TRUE(follows("/v2"));
    EXPECT_FALSE(follows("http://api.example/v2"));
    EXPECT_FALSE(follows("https://api.example:8443/v2"));
    EXPECT_FALSE(follows("https://api.example.evil.example/v2"));
    EXPECT_FALSE(follows("https://api.example@evil.example/v2"));
    EXPECT_FALSE(follows("//evil.example/v2"));
}

// It was ending just then; its successor gets the request. Who has begun to answer is not asked
// again, nor who hangs up for ever.
TEST_F(HttpRoutesTest, AServerThatHangsUpWithoutAWordIsAskedAgain) {
    server.handler = [&](QTcpSocket &socket, const TestHttpServer::Request &) {
        if (server.requests.size() >= 2)
            socket.write(TestHttpServer::response(200, "again"));
        socket.disconnectFromHost();
    };
    EXPECT_EQ(exchange(post(server.url())).body, "again");
    ASSERT_EQ(server.requests.size(), 2u);
    EXPECT_EQ(server.requests[0].raw, server.requests[1].raw);

    server.requests.clear();
    server.answerRaw("");
    EXPECT_TRUE(exchange(post(server.url())).transportError);
    EXPECT_EQ(server.requests.size(), 3u);

    server.requests.clear();
    server.answerRaw("HTTP/1.1 2");
    EXPECT_TRUE(exchange(post(server.url())).transportError);
    EXPECT_EQ(server.requests.size(), 1u);
}

// --- Proxies
// -----------------------------------------------------------------------------------------

TEST_F(HttpRoutesTest, TheSystemsProxyIsUsed) {
    TestHttpServer proxy;
    proxy.answer(200, "by proxy");
    const ProxyEnvironment environment(proxy);
    const HttpResponse response = exchange(get(QUrl(QStringLiteral("http://service.invalid/v1"))));
    EXPECT_EQ(response.body, "by proxy");
    ASSERT_EQ(proxy.requests.size(), 1u);
    EXPECT_EQ(proxy.requests[0].target, "http://service.invalid/v1");
}

TEST_F(HttpRoutesTest, LoopbackHostsAndDirectRequestsTakeNoProxy) {
    TestHttpServer proxy;
    const ProxyEnvironment environment(proxy);
    server.answer(200, "straight");
    for (const HttpRequest::Route route :
         {HttpRequest::Route::Direct, HttpRequest::Route::SystemProxy}) {
        HttpRequest request = get(server.url());
        request.route = route;
        EXPECT_EQ(exchange(request).body, "straight");
    }
    HttpRequest request = get(QUrl(QStringLiteral("http://service.invalid/")));
    request.route = HttpRequest::Route::Direct;
    EXPECT_TRUE(exchange(request).transportError) << "there is no such host";
    EXPECT_EQ(proxy.connections, 0);
}

// --- TLS
// ----------------------------------------------------------------------------------------------

TEST_F(HttpRoutesTest, ATrustedCertificateIsAccepted) {
    const fakes::TestCertificate certificate = fakes::makeCertificate();
    TestHttpServer secure(certificate.server);
    secure.answer(200, "secret");
    client.setTlsConfiguration(certificate.client);
    const HttpResponse response = exchange(post(secure.url()));
    EXPECT_FALSE(response.transportError);
    EXPECT_EQ(response.body, "secret");
}

// The head that Qt reads has no bound but the time.
TEST_F(HttpRoutesTest, AnEndlessHeadWithTlsEndsWithTheTime) {
    const fakes::TestCertificate certificate = fakes::makeCertificate();
    TestHttpServer secure(certificate.server);
    secure.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nX: ");
        auto *timer = new QTimer(&socket);
        QObject::connect(timer, &QTimer::timeout, &socket, [&socket] {
            // What is encrypted already does not count as bytes to write.
            const auto *tls = qobject_cast<QSslSocket *>(&socket);
            if (tls->encryptedBytesToWrite() + tls->bytesToWrite() < 256 * 1024)
                socket.write(QByteArray(64 * 1024, 'x'));
        });
        timer->start(0);
    };
    client.setTlsConfiguration(certificate.client);
    HttpRequest request = post(secure.url());
    request.timeout = 500ms;
    expectError(exchange(request).transportError, HttpError::TimedOut);
    EXPECT_TRUE(fakes::waitFor([&] { return secure.openConnections() == 0; })) << "hangs up";
    secure.answer(200, "heard");
    EXPECT_EQ(exchange(post(secure.url())).body, "heard");
}

TEST_F(HttpRoutesTest, AnUntrustedCertificateIsRefused) {
    const fakes::TestCertificate certificate = fakes::makeCertificate();
    TestHttpServer secure(certificate.server);
    const HttpResponse response = exchange(post(secure.url()));
    ASSERT_TRUE(response.transportError);
    EXPECT_EQ(response.transportError->code, int(QNetworkReply::SslHandshakeFailedError));
    EXPECT_FALSE(response.transportError->localizedDescription.isEmpty());
    EXPECT_TRUE(secure.requests.empty()) << "not a byte of the request was sent";
}

TEST_F(HttpRoutesTest, ACertificateForAnotherNameIsRefused) {
    const fakes::TestCertificate certificate = fakes::makeCertificate();
    TestHttpServer secure(certificate.server);
    client.setTlsConfiguration(certificate.client);
    QUrl url = secure.url();
    url.setHost(QStringLiteral("127.0.0.2"));
    secure.close();
    ASSERT_TRUE(secure.listen(QHostAddress(QStringLiteral("127.0.0.2"))));
    url.setPort(secure.serverPort());
    const HttpResponse response = exchange(post(url));
    ASSERT_TRUE(response.transportError);
    EXPECT_EQ(response.transportError->code, int(QNetworkReply::SslHandshakeFailedError));
    EXPECT_TRUE(secure.requests.empty());
}

TEST_F(HttpRoutesTest, AServerThatSpeaksNoTlsIsAnError) {
    QUrl url = server.url();
    url.setScheme(QStringLiteral("https"));
    HttpRequest request = post(url);
    request.timeout = 300ms;
    server.answerRaw("HTTP/1.1 400 Bad Request\r\n\r\n");
    EXPECT_TRUE(exchange(request).transportError);
    EXPECT_TRUE(server.requests.empty());
}
