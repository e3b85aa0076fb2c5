#include "HttpClientFixture.h"

#include <QTimer>

#include <sys/socket.h>

using namespace quenda;
using namespace std::chrono_literals;
using fakes::waitFor;

using HttpClientTest = HttpClientFixture;

TEST_F(HttpClientTest, SendsExactlyTheRequestAndReadsTheAnswer) {
    server.answer(200, "hello");
    const HttpResponse response = exchange(post(server.url(QStringLiteral("/a?b=c#d")), "x\0y"));
    EXPECT_FALSE(response.transportError);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "hello");

    ASSERT_EQ(server.requests.size(), 1u);
    const TestHttpServer::Request &request = server.requests[0];
    EXPECT_TRUE(request.raw.startsWith("POST /a?b=c HTTP/1.1\r\n")) << request.raw.constData();
    EXPECT_EQ(request.header("Authorization"), "Bearer secret");
    EXPECT_EQ(request.header("Content-Type"), "text/plain");
    EXPECT_EQ(request.header("Content-Length"), QByteArray::number(request.body.size()));
    EXPECT_EQ(request.header("Accept-Encoding"), "identity");
    EXPECT_EQ(request.header("User-Agent"), "Quenda");
    EXPECT_TRUE(request.header("Cookie").isNull());
    EXPECT_TRUE(request.header("Upgrade").isNull()) << "no HTTP/2";
    EXPECT_TRUE(request.header("Transfer-Encoding").isNull());
}

TEST_F(HttpClientTest, KeepsTheCallersUserAgent) {
    HttpRequest request = get(server.url());
    request.headers = {{"user-agent", "Quenda/1.3.2"}};
    exchange(request);
    ASSERT_EQ(server.requests.size(), 1u);
    EXPECT_EQ(server.requests[0].header("User-Agent"), "Quenda/1.3.2");
}

TEST_F(HttpClientTest, CarriesALargeBodyWhole) {
    QByteArray body(9'600'044, '\0');
    for (qsizetype i = 0; i < body.size(); ++i)
        body[i] = char(i * 31 >> 3);
    const HttpResponse response = exchange(post(server.url(), body));
    EXPECT_EQ(response.status, 200);
    ASSERT_EQ(server.requests.size(), 1u);
    EXPECT_TRUE(server.requests[0].body == body);
}

// Every status class reaches the caller as an answer, with its body.
TEST_F(HttpClientTest, EveryStatusIsAnAnswer) {
    for (const int status : {200, 201, 206, 226, 300, 304, 399, 400, 401, 402, 403, 404, 405, 408,
                             409, 410, 413, 418, 422, 429, 451, 500, 501, 502, 503, 504, 599}) {
        const QByteArray body = status == 304 ? QByteArray() : QByteArray("{\"error\":1}");
        server.answer(status, body);
        const HttpResponse response = exchange(post(server.url()));
        EXPECT_FALSE(response.transportError)
            << status << ": " << qPrintable(response.transportError->localizedDescription);
        EXPECT_EQ(response.status, status);
        EXPECT_EQ(response.body, body) << status;
    }
}

TEST_F(HttpClientTest, AnswersWithoutABodyAreAnswers) {
    for (const int status : {200, 204, 205, 404, 500}) {
        server.answer(status);
        const HttpResponse response = exchange(get(server.url()));
        EXPECT_FALSE(response.transportError) << status;
        EXPECT_EQ(response.status, status);
        EXPECT_EQ(response.body, "");
    }
}

TEST_F(HttpClientTest, InterimAnswersArePassedOver) {
    server.answerRaw("HTTP/1.1 100 Continue\r\n\r\n" + TestHttpServer::response(200, "final"));
    const HttpResponse response = exchange(post(server.url()));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "final");
}

TEST_F(HttpClientTest, AnInterimAnswerAloneEnds) {
    server.answerRaw("HTTP/1.1 103 Early Hints\r\nLink: <x>\r\n\r\n");
    const HttpResponse response = exchange(post(server.url()));
    EXPECT_TRUE(response.transportError || response.status == 103);
    EXPECT_EQ(response.body, "");
}

// Login questions are not asked; the answer passes through. The header of the caller stays.
TEST_F(HttpClientTest, ChallengesAreAnswersToo) {
    for (const QByteArray challenge : {"Basic realm=\"x\"", "Bearer", "Negotiate", "NTLM",
                                       "Digest realm=\"x\", nonce=\"y\", qop=\"auth\""}) {
        server.requests.clear();
        server.answer(401, "{\"error\":{\"message\":\"Invalid API key\"}}",
                      "WWW-Authenticate: " + challenge + "\r\n");
        const HttpResponse response = exchange(post(server.url()));
        EXPECT_FALSE(response.transportError) << challenge.constData();
        EXPECT_EQ(response.status, 401);
        EXPECT_TRUE(response.body.contains("Invalid API key")) << challenge.constData();
        for (const TestHttpServer::Request &request : server.requests)
            EXPECT_EQ(request.header("Authorization"), "Bearer secret") << challenge.constData();
    }
    server.answer(407, "who?", "Proxy-Authenticate: Basic realm=\"x\"\r\n");
    const HttpResponse response = exchange(post(server.url()));
    EXPECT_EQ(response.status, 407);
}

TEST_F(HttpClientTest, ReadsChunkedAnswersAndThoseThatEndWithTheConnection) {
    server.answerRaw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                     "5\r\nhello\r\n6;x=y\r\n world\r\n0\r\n\r\n");
    EXPECT_EQ(exchange(get(server.url())).body, "hello world");
    server.answerRaw("HTTP/1.0 200 OK\r\n\r\nto the end");
    EXPECT_EQ(exchange(get(server.url())).body, "to the end");
}

TEST_F(HttpClientTest, CompressedAnswersAreNotUnpacked) {
    server.answer(200, "\x1f\x8b\x08 not really", "Content-Encoding: gzip\r\n");
    const HttpResponse response = exchange(get(server.url()));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "\x1f\x8b\x08 not really");
}

// --- Answers that go wrong ---------------------------------------------------------------------

TEST_F(HttpClientTest, ARefusedConnectionIsATransportError) {
    const QUrl url = server.url();
    server.close();
    const HttpResponse response = exchange(get(url));
    ASSERT_TRUE(response.transportError);
    EXPECT_EQ(response.transportError->domain, QStringLiteral("QNetworkReply"));
    EXPECT_EQ(response.transportError->code, int(QNetworkReply::ConnectionRefusedError));
    EXPECT_FALSE(response.status);
}

TEST_F(HttpClientTest, AnUnknownHostIsATransportError) {
    const HttpResponse response = exchange(get(QUrl(QStringLiteral("http://no-such.invalid/"))));
    ASSERT_TRUE(response.transportError);
    EXPECT_FALSE(response.status);
}

TEST_F(HttpClientTest, ShortAnswersAreErrors) {
    const QList<QByteArray> answers{
        "",                                                   // closes at once
        "HTTP/1.1 200",                                       // cut off in the status line
        "HTTP/1.1 200 OK\r\nContent-Le",                      // in the head
        "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n",      // before the body
        "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfive!", // in the body
        "HTTP/1.1 404 No\r\nContent-Length: 10\r\n\r\nfive!",
    };
    for (const QByteArray &answer : answers) {
        server.answerRaw(answer);
        const HttpResponse response = exchange(post(server.url()));
        EXPECT_TRUE(response.transportError) << answer.constData();
    }
}

TEST_F(HttpClientTest, AConnectionThatIsResetIsToldInWords) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        const linger reset{1, 0};
        ::setsockopt(int(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        socket.abort();
    };
    const HttpResponse response = exchange(post(server.url(), QByteArray(1'000'000, 'x')));
    ASSERT_TRUE(response.transportError);
    EXPECT_NE(response.transportError->localizedDescription, QStringLiteral("Unknown error"));
}

TEST(HttpRulesTest, ALibraryErrorWithoutAReasonGetsOne) {
    const QString lost = QStringLiteral("The connection to the server was lost.");
    for (const QString &none : {QString(), QStringLiteral("Unknown error")}) {
        const Error error = libraryError(QNetworkReply::UnknownNetworkError, none);
        EXPECT_EQ(error.localizedDescription, lost);
        EXPECT_EQ(error.code, int(QNetworkReply::UnknownNetworkError));
    }
    EXPECT_EQ(libraryError(QNetworkReply::HostNotFoundError, QStringLiteral("No such host"))
                  .localizedDescription,
              QStringLiteral("No such host"));
}

TEST_F(HttpClientTest, GarbageIsAnError) {
    QByteArray noise(100'000, '\0');
    for (qsizetype i = 0; i < noise.size(); ++i)
        noise[i] = char(i * 7919 >> 5);
    for (const QByteArray &answer :
         {noise, QByteArray("SSH-2.0-OpenSSH_9.2\r\n"), QByteArray("HTTP/1.1 abc OK\r\n\r\nx"),
          QByteArray("\r\n\r\n\r\n"), QByteArray("HTTP/1.1\r\n\r\n")}) {
        server.answerRaw(answer);
        const HttpResponse response = exchange(post(server.url()));
        EXPECT_TRUE(response.transportError) << answer.left(40).constData();
    }
}

TEST_F(HttpClientTest, AWrongLengthDoesNotMixAnswersUp) {
    // More bytes than announced: the rest is not part of this answer, nor of the next one.
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &request) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabcHTTP/1.1 200 OK\r\n"
                     "Content-Length: 6\r\n\r\nforged");
        Q_UNUSED(request);
    };
    EXPECT_EQ(exchange(get(server.url())).body, "abc");
    server.answer(200, "true");
    EXPECT_EQ(exchange(get(server.url())).body, "true");
}

TEST_F(HttpClientTest, AnAnswerLongerThanTheBoundIsAnError) {
    HttpRequest request = get(server.url());
    request.maxResponseBytes = 1000;
    server.answer(200, QByteArray(1000, 'x'));
    EXPECT_EQ(exchange(request).body.size(), 1000);
    server.answer(200, QByteArray(1001, 'x'));
    HttpResponse response = exchange(request);
    expectError(response.transportError, HttpError::TooLong);
    EXPECT_LE(response.body.size(), 1000);
    server.answerRaw("HTTP/1.0 200 OK\r\n\r\n" + QByteArray(1001, 'x')); // not announced
    expectError(exchange(request).transportError, HttpError::TooLong);
}

TEST_F(HttpClientTest, AnEndlessAnswerIsCutOff) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\n\r\n");
        TestHttpServer::sendEndlessly(socket);
    };
    HttpRequest request = get(server.url());
    request.maxResponseBytes = 1'000'000;
    expectError(exchange(request).transportError, HttpError::TooLong);
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; })) << "the client hangs up";
    EXPECT_LT(server.bytesSent, 32'000'000); // what the system's buffers hold on top
}

TEST_F(HttpClientTest, HeadersThatNeverEndTimeOut) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\n");
        const QByteArray line("X-Filler: x\r\n");
        TestHttpServer::sendSlowly(socket, line.repeated(10'000), line.size(), 5ms);
    };
    HttpRequest request = get(server.url());
    request.timeout = 100ms;
    expectError(exchange(request).transportError, HttpError::TimedOut);
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; }));
}

// As fast as they are taken: there is never a moment without a byte to read.
TEST_F(HttpClientTest, AnEndlessHeadIsCutOffAndTheNextAnswerRead) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nX: ");
        TestHttpServer::sendEndlessly(socket);
    };
    const HttpResponse response = exchange(post(server.url()));
    ASSERT_TRUE(response.transportError);
    EXPECT_EQ(response.transportError->localizedDescription,
              httpError(HttpError::TooLong).localizedDescription);
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; })) << "the client hangs up";
    server.answer(200, "heard");
    EXPECT_EQ(exchange(post(server.url())).body, "heard");
}

TEST_F(HttpClientTest, AnAnswerThatDripsForEverEnds) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\n\r\n");
        TestHttpServer::sendSlowly(socket, QByteArray(1'000'000, 'x'), 1, 5ms);
    };
    HttpRequest request = get(server.url());
    request.longest = 150ms;
    expectError(exchange(request).transportError, HttpError::TimedOut);
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; }));
}

TEST_F(HttpClientTest, SilenceTimesOut) {
    server.handler = [](QTcpSocket &, const TestHttpServer::Request &) {};
    HttpRequest request = post(server.url());
    request.timeout = 80ms;
    expectError(exchange(request).transportError, HttpError::TimedOut);

    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfive!");
    };
    expectError(exchange(request).transportError, HttpError::TimedOut);
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; }));
}

// The time-out counts idle time: a slow answer that keeps coming is waited for.
TEST_F(HttpClientTest, ASlowAnswerThatKeepsComingIsRead) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n");
        TestHttpServer::sendSlowly(socket, QByteArray(10, 'x'), 1, 50ms);
    };
    HttpRequest request = get(server.url());
    request.timeout = 250ms;
    const HttpResponse response = exchange(request);
    EXPECT_FALSE(response.transportError);
    EXPECT_EQ(response.body, "xxxxxxxxxx");
}

TEST_F(HttpClientTest, AUsedConnectionThatWentAwayIsReplaced) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"); // says nothing of closing
        QTimer::singleShot(20, &socket, [&socket] { socket.disconnectFromHost(); });
    };
    for (int i = 0; i < 3; ++i) {
        const HttpResponse response = exchange(post(server.url(), QByteArray(100'000, 'x')));
        EXPECT_EQ(response.body, "ok");
        fakes::turnFor(i == 0 ? 0ms : 40ms);
    }
}

// --- Requests that must not be sent
// ---------------------------------------------------------------

TEST_F(HttpClientTest, UnfitRequestsAreRefused) {
    const auto refuse = [&](const QByteArray &name, const QByteArray &value) {
        HttpRequest request = post(server.url());
        request.headers.append(QPair<QByteArray, QByteArray>(name, value));
        expectError(exchange(request).transportError, HttpError::UnfitRequest);
    };
    refuse("X-Key", "a\r\nX-Forged: b");
    refuse("X-Key", "a\nb");
    refuse("X-Key", "a\rb");
    refuse("X-Key", QByteArray("a\0b", 3));
    refuse("X-Key", "a\x7f");
    refuse("X Key", "a");
    refuse("X-Key:", "a");
    refuse("X-Key\r\nY", "a");
    refuse("", "a");
    for (const char *url : {"", "/path", "ftp://127.0.0.1/", "file:///etc/passwd", "http://",
                            "http:///path", "data:text/plain,x"}) {
        expectError(exchange(get(QUrl(QString::fromLatin1(url)))).transportError,
                    HttpError::UnfitRequest);
    }
    EXPECT_EQ(server.connections, 0);
}

// --- The one who asked goes away
// -------------------------------------------------------------------

TEST_F(HttpClientTest, NothingIsCalledOnceTheContextIsGone) {
    server.handler = [](QTcpSocket &, const TestHttpServer::Request &) {};
    auto asker = std::make_unique<QObject>();
    int calls = 0;
    client.send(get(server.url()), asker.get(), [&](const HttpResponse &) { ++calls; });
    ASSERT_TRUE(waitFor([&] { return server.requests.size() == 1; }));
    asker.reset();
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; })) << "abandoned";
    client.send(get(server.url()), std::make_unique<QObject>().get(),
                [&](const HttpResponse &) { ++calls; });
    fakes::turnFor(20ms);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(server.requests.size(), 1u);
}

TEST_F(HttpClientTest, AnUploadCanBeAbandonedHalfWay) {
    server.pauseReading = true;
    auto asker = std::make_unique<QObject>();
    client.send(post(server.url(), QByteArray(50'000'000, 'x')), asker.get(),
                [](const HttpResponse &) { ADD_FAILURE() << "nobody is there to hear it"; });
    ASSERT_TRUE(waitFor([&] { return server.connections == 1; }));
    fakes::turnFor(50ms);
    asker.reset();
    fakes::turnFor(20ms);
    server.resumeReading();
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; }));
    EXPECT_TRUE(server.requests.empty());
}

TEST_F(HttpClientTest, TheClientCanGoFirst) {
    server.handler = [](QTcpSocket &, const TestHttpServer::Request &) {};
    int calls = 0;
    {
        NetworkHttpClient shortLived;
        shortLived.send(get(server.url()), &context, [&](const HttpResponse &) { ++calls; });
        ASSERT_TRUE(waitFor([&] { return server.requests.size() == 1; }));
    }
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; }));
    EXPECT_EQ(calls, 0);
}

TEST_F(HttpClientTest, TheCompletionMayEndItsContextAndAskAgain) {
    server.answer(200, "x");
    auto asker = std::make_unique<QObject>();
    bool second = false;
    client.send(get(server.url()), asker.get(), [&](const HttpResponse &) {
        asker.reset();
        client.send(get(server.url()), &context, [&](const HttpResponse &) { second = true; });
    });
    EXPECT_TRUE(waitFor([&] { return second; }));
}

TEST_F(HttpClientTest, ManyAtOnceAreIndependent) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &request) {
        socket.write(TestHttpServer::response(200, request.target));
        socket.disconnectFromHost();
    };
    int right = 0;
    for (int i = 0; i < 20; ++i) {
        const QString path = QStringLiteral("/%1").arg(i);
        client.send(get(server.url(path)), &context, [&, path](const HttpResponse &response) {
            right += response.body == path.toUtf8() ? 1 : 0;
        });
    }
    EXPECT_TRUE(waitFor([&] { return right == 20; }));
}
