#pragma once
// What becomes of the body of an answer: kept in memory, or streamed into a download's sink.
// Owned by one HttpExchange. Main thread only.

#include "Quenda/HttpClient.h"

#include <QTimer>

#include <limits>

namespace quenda {

class DownloadWriter;

class HttpBody {
public:
    HttpBody() = default;
    HttpBody(const HttpBody &) = delete;
    HttpBody &operator=(const HttpBody &) = delete;
    virtual ~HttpBody() = default;

    /// Called when there is room again after room() was 0, and with an error when no more bytes are
    /// wanted.
    std::function<void()> onRoom;
    std::function<void(const Error &)> onError;

    /// The answer begins; `announced` is its length, -1 where it is not told. False: the body is
    /// not wanted, the exchange is over.
    virtual Result<bool> begin(int status, qint64 announced) = 0;
    /// How many bytes may be added now.
    virtual qint64 room() const { return std::numeric_limits<qint64>::max(); }
    virtual Failure add(const QByteArray &bytes) = 0;
    /// Nothing more comes: `complete` tells whether the answer is whole. `done` is called once, at
    /// once or later, when the bytes have reached their end or are dropped.
    virtual void end(bool complete, std::function<void(const Failure &)> done) = 0;
    virtual QByteArray bytes() const { return {}; }
};

/// Collects at most `limit` bytes.
class MemoryBody final : public HttpBody {
public:
    explicit MemoryBody(qint64 limit) : m_limit(limit) {}

    Result<bool> begin(int status, qint64 announced) override;
    Failure add(const QByteArray &bytes) override;
    void end(bool complete, std::function<void(const Failure &)> done) override;
    QByteArray bytes() const override { return m_bytes; }

private:
    qint64 m_limit;
    QByteArray m_bytes;
};

/// Streams a 200 answer into a sink on another thread.
class SinkBody final : public HttpBody {
public:
    SinkBody(std::unique_ptr<DownloadSink> sink, HttpClient::DownloadProgress progress);
    ~SinkBody() override;

    Result<bool> begin(int status, qint64 announced) override;
    qint64 room() const override;
    Failure add(const QByteArray &bytes) override;
    void end(bool complete, std::function<void(const Failure &)> done) override;

private:
    void report();

    std::unique_ptr<DownloadSink> m_sink;
    std::unique_ptr<DownloadWriter> m_writer;
    HttpClient::DownloadProgress m_progress;
    QTimer m_pause; ///< between two reports of progress
    qint64 m_received = 0;
    qint64 m_reported = 0;
    qint64 m_announced = -1;
};

} // namespace quenda
