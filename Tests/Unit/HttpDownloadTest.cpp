// Downloads: streamed into a sink on another thread.

#include "HttpClientFixture.h"

#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <mutex>

using namespace quenda;
using namespace std::chrono_literals;
using fakes::waitFor;

namespace {

// What a sink saw; outlives it.
struct Record {
    std::mutex mutex;
    QByteArray bytes;
    std::atomic<bool> opened = false;
    std::atomic<bool> finished = false;
    std::atomic<bool> gone = false;
    std::atomic<bool> mainThread = false; ///< something was called there

    std::optional<Error> openError, writeError, finishError;
    std::atomic<bool> hold{false}; ///< write() waits
};

class RecordingSink final : public DownloadSink {
public:
    explicit RecordingSink(std::shared_ptr<Record> record) : m_record(std::move(record)) {}
    ~RecordingSink() override {
        const std::lock_guard lock(m_record->mutex);
        m_record->gone = true;
    }
    Failure open() override {
        noteThread();
        m_record->opened = true;
        return m_record->openError;
    }
    Failure write(QByteArrayView bytes) override {
        noteThread();
        while (m_record->hold)
            QThread::msleep(1);
        const std::lock_guard lock(m_record->mutex);
        m_record->bytes.append(bytes);
        return m_record->writeError;
    }
    Failure finish() override {
        noteThread();
        m_record->finished = true;
        return m_record->finishError;
    }

private:
    void noteThread() {
        if (QThread::currentThread() == QCoreApplication::instance()->thread())
            m_record->mainThread = true;
    }
    std::shared_ptr<Record> m_record;
};

class HttpDownloadTest : public HttpClientFixture {
protected:
    // Downloads and waits for the end, by which time the sink must be gone.
    HttpDownload download(const HttpRequest &request) {
        std::optional<HttpDownload> result;
        bool goneInTime = false;
        client.download(
            request, std::make_unique<RecordingSink>(record), &context,
            [&](qint64 received, qint64 total) {
                steps.append({received, total});
            },
            [&](const HttpDownload &outcome) {
                result = outcome;
                goneInTime = record->gone;
            });
        EXPECT_TRUE(waitFor([&] { return result.has_value(); }));
        EXPECT_TRUE(goneInTime);
        EXPECT_FALSE(record->mainThread);
        return result.value_or(HttpDownload{});
    }

    std::shared_ptr<Record> record = std::make_shared<Record>();
    QList<QPair<qint64, qint64>> steps;
};

QByteArray pattern(qsizetype size) {
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(i * 131 >> 7);
    return bytes;
}

} // namespace

TEST_F(HttpDownloadTest, StreamsA200AnswerIntoTheSink) {
    const QByteArray body = pattern(20'000'000);
    server.answer(200, body);
    const HttpDownload result = download(get(server.url()));
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.status, 200);
    EXPECT_TRUE(record->bytes == body);
    EXPECT_TRUE(record->finished);
    ASSERT_FALSE(steps.isEmpty());
    EXPECT_EQ(steps.last(), qMakePair(qint64(body.size()), qint64(body.size())));
    for (qsizetype i = 1; i < steps.size(); ++i)
        EXPECT_LT(steps[i - 1].first, steps[i].first);
}

TEST_F(HttpDownloadTest, ProgressIsToldTenTimesASecondAtMost) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n");
        TestHttpServer::sendSlowly(socket, QByteArray(1'000'000, 'x'), 10'000, 2ms);
    };
    QElapsedTimer time;
    time.start();
    EXPECT_FALSE(download(get(server.url())).error);
    EXPECT_GE(steps.size(), 2);
    EXPECT_LE(steps.size(), time.elapsed() / 100 + 2); // the first, the last and those between
}

TEST_F(HttpDownloadTest, WhatCameBeforeAStallIsTold) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 2000000\r\n\r\n" +
                     QByteArray(1'000'000, 'x'));
    };
    HttpRequest request = get(server.url());
    request.timeout = 800ms;
    expectError(download(request).error, HttpError::TimedOut);
    ASSERT_FALSE(steps.isEmpty());
    EXPECT_EQ(steps.last(), qMakePair(qint64(1'000'000), qint64(2'000'000)));
}

TEST_F(HttpDownloadTest, AnUnknownLengthIsToldAsSuch) {
    server.answerRaw(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n");
    EXPECT_FALSE(download(get(server.url())).error);
    EXPECT_EQ(record->bytes, "hello");
    ASSERT_FALSE(steps.isEmpty());
    EXPECT_EQ(steps.last(), qMakePair(qint64(5), qint64(-1)));
}

TEST_F(HttpDownloadTest, AnEmptyAnswerIsFinishedToo) {
    server.answer(200);
    EXPECT_FALSE(download(get(server.url())).error);
    EXPECT_TRUE(record->opened && record->finished);
}

// Also an endless body is dropped as soon as the status is known.
TEST_F(HttpDownloadTest, OtherStatusesLeaveTheSinkAlone) {
    for (const int status : {201, 204, 206, 304, 400, 402, 403, 404, 416, 429, 500, 503}) {
        server.handler = [status](QTcpSocket &socket, const TestHttpServer::Request &) {
            socket.write("HTTP/1.1 " + QByteArray::number(status) + " X\r\n\r\n");
            if (status != 204 && status != 304)
                TestHttpServer::sendEndlessly(socket);
            else
                socket.disconnectFromHost();
        };
        const HttpDownload result = download(get(server.url()));
        EXPECT_EQ(result.status, status);
        EXPECT_FALSE(result.error) << status;
        EXPECT_FALSE(record->opened);
    }
}

TEST_F(HttpDownloadTest, AChallengeIsAStatusLikeAnyOther) {
    server.answer(401, "who are you?", "WWW-Authenticate: Basic realm=\"x\"\r\n");
    const HttpDownload result = download(get(server.url()));
    EXPECT_EQ(result.status, 401);
    EXPECT_FALSE(result.error);
    EXPECT_FALSE(record->opened);
}

TEST_F(HttpDownloadTest, ABodyThatEndsShortIsAnError) {
    for (const int arrived : {0, 1, 500'000, 599'999}) {
        const QByteArray answer =
            "HTTP/1.1 200 OK\r\nContent-Length: 600000\r\n\r\n" + pattern(arrived);
        record = std::make_shared<Record>();
        server.answerRaw(answer);
        EXPECT_TRUE(download(get(server.url())).error) << arrived;
        EXPECT_FALSE(record->finished);
    }
}

TEST_F(HttpDownloadTest, AConnectionThatFailsIsAnError) {
    const QUrl url = server.url();
    server.close();
    const HttpDownload result = download(get(url));
    ASSERT_TRUE(result.error);
    EXPECT_FALSE(result.status);
    EXPECT_FALSE(record->opened);
}

TEST_F(HttpDownloadTest, ATransferThatStallsTimesOut) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfive!");
    };
    HttpRequest request = get(server.url());
    request.timeout = 80ms;
    expectError(download(request).error, HttpError::TimedOut);
    EXPECT_FALSE(record->finished);
}

TEST_F(HttpDownloadTest, TheSinksErrorsEndTheDownload) {
    const Error full{QStringLiteral("disk"), 28, QStringLiteral("full")};
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 1000000000\r\n\r\n");
        TestHttpServer::sendEndlessly(socket);
    };
    for (int stage = 0; stage < 2; ++stage) {
        record = std::make_shared<Record>();
        (stage == 0 ? record->openError : record->writeError) = full;
        EXPECT_EQ(download(get(server.url())).error, full);
        EXPECT_FALSE(record->finished);
        EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; })) << "hangs up";
    }
    record = std::make_shared<Record>();
    record->finishError = full;
    server.answer(200, "short");
    EXPECT_EQ(download(get(server.url())).error, full);
}

// A disk that takes nothing for a while stops the network, not the program, and is no time-out.
TEST_F(HttpDownloadTest, ASlowDiskHoldsTheTransferBack) {
    constexpr qsizetype size = 32'000'000;
    const QByteArray body = pattern(size);
    server.answer(200, body);
    record->hold = true;
    HttpRequest request = get(server.url());
    request.timeout = 500ms;
    std::optional<HttpDownload> result;
    client.download(request, std::make_unique<RecordingSink>(record), &context, {},
                    [&](const HttpDownload &outcome) { result = outcome; });
    fakes::turnFor(1200ms);
    EXPECT_FALSE(result);
    EXPECT_LT(server.bytesSent, size) << "it was all read into memory";
    record->hold = false;
    EXPECT_TRUE(waitFor([&] { return result.has_value(); }));
    EXPECT_FALSE(result->error);
    EXPECT_TRUE(record->bytes == body);
}

TEST_F(HttpDownloadTest, RedirectsAreFollowed) {
    TestHttpServer other;
    other.answer(200, "model");
    server.answer(302, "elsewhere", "Location: " + other.url().toEncoded() + "\r\n");
    EXPECT_EQ(download(get(server.url())).status, 200);
    EXPECT_EQ(record->bytes, "model");
}

TEST_F(HttpDownloadTest, TwoAtOnceAreIndependent) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &request) {
        if (request.target == "/bad") {
            socket.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfive!");
            socket.disconnectFromHost();
        } else {
            socket.write(TestHttpServer::response(200, pattern(3'000'000)));
        }
    };
    auto good = std::make_shared<Record>();
    auto bad = std::make_shared<Record>();
    std::optional<HttpDownload> goodResult, badResult;
    client.download(get(server.url()), std::make_unique<RecordingSink>(good), &context, {},
                    [&](const HttpDownload &outcome) { goodResult = outcome; });
    client.download(get(server.url(QStringLiteral("/bad"))), std::make_unique<RecordingSink>(bad),
                    &context, {}, [&](const HttpDownload &outcome) { badResult = outcome; });
    EXPECT_TRUE(waitFor([&] { return goodResult && badResult; }));
    EXPECT_FALSE(goodResult->error);
    EXPECT_TRUE(good->bytes == pattern(3'000'000));
    EXPECT_TRUE(badResult->error);
    EXPECT_FALSE(bad->finished);
}

TEST_F(HttpDownloadTest, AbandonedDownloadsDropTheirSink) {
    server.handler = [](QTcpSocket &socket, const TestHttpServer::Request &) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 1000000000\r\n\r\n");
        TestHttpServer::sendEndlessly(socket);
    };
    auto asker = std::make_unique<QObject>();
    bool called = false;
    client.download(get(server.url()), std::make_unique<RecordingSink>(record), asker.get(), {},
                    [&](const HttpDownload &) { called = true; });
    ASSERT_TRUE(waitFor([&] { return record->opened.load(); }));
    asker.reset();
    EXPECT_TRUE(record->gone) << "before the asker is";
    EXPECT_FALSE(record->finished);
    EXPECT_TRUE(waitFor([&] { return server.openConnections() == 0; }));
    EXPECT_FALSE(called);
}
