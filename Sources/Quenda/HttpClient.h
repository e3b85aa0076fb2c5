#pragma once
// The one place that makes HTTP requests. Called on the main thread, which every completion
// reaches as well; nothing here blocks it.

#include "Platform/Error.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QObject;

namespace quenda {

struct HttpRequest {
    enum class Route {
        Direct,      ///< never through a proxy: for the loopback engine
        SystemProxy, ///< as the system's proxy settings say; loopback hosts directly all the same
    };

    QUrl url; ///< http or https
    QByteArray method = "GET";
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;                          ///< sent with its Content-Length
    std::chrono::milliseconds timeout{60000}; ///< longest time without any byte sent or received
    /// Longest time for the whole exchange, however slowly it goes on; downloads have no such
    /// bound.
    std::chrono::milliseconds longest{600000};
    Route route = Route::SystemProxy;
    qint64 maxResponseBytes = 16 * 1024 * 1024; ///< a longer answer is a transport error
};

struct HttpResponse {
    std::optional<int> status; ///< HTTP status code; none where there was no HTTP answer
    QByteArray body;
    /// Set where the exchange itself failed (no connection, time-out, cut off, too long). An HTTP
    /// error status is an answer, not a transport error.
    std::optional<Error> transportError;
};

/// Where the bytes of a download go. Its calls come from one thread that is not the main thread, in
/// the order open, write..., finish; it is destroyed there too. Destroyed without a successful
/// finish(), it leaves nothing behind. An error from any call ends the download.
class DownloadSink {
public:
    DownloadSink() = default;
    DownloadSink(const DownloadSink &) = delete;
    DownloadSink &operator=(const DownloadSink &) = delete;
    virtual ~DownloadSink() = default;

    virtual Failure open() = 0;
    virtual Failure write(QByteArrayView bytes) = 0;
    /// Every byte has arrived.
    virtual Failure finish() = 0;
};

struct HttpDownload {
    std::optional<int> status;  ///< HTTP status code; none where there was no HTTP answer
    std::optional<Error> error; ///< of the exchange or of the sink; none where all went well
};

class HttpClient {
public:
    using Completion = std::function<void(const HttpResponse &)>;
    using DownloadCompletion = std::function<void(const HttpDownload &)>;
    /// Bytes that have arrived and bytes that will in all; -1 where the server does not tell.
    using DownloadProgress = std::function<void(qint64 received, qint64 total)>;

    HttpClient() = default;
    HttpClient(const HttpClient &) = delete;
    HttpClient &operator=(const HttpClient &) = delete;
    virtual ~HttpClient() = default;

    /// Sends a request. `completion` is called exactly once, later, on the main thread; if
    /// `context` goes away first the request is abandoned and `completion` is not called.
    /// A header value that holds CR, LF or NUL is refused with a transport error. The
    /// Authorization header and the body are never sent to another host than the request's own.
    virtual void send(const HttpRequest &request, const QObject *context,
                      Completion completion) = 0;

    /// Streams the body of a 200 answer into `sink`, in bounded memory; the body of any other
    /// answer is dropped unread and the sink is not opened. `maxResponseBytes` and `longest` of the
    /// request do not hold here. `progress` is called on the main thread, some ten times a second
    /// at most. When `completion` comes (exactly once, later, unless `context` goes away first) the
    /// sink is gone.
    virtual void download(const HttpRequest &request, std::unique_ptr<DownloadSink> sink,
                          const QObject *context, DownloadProgress progress,
                          DownloadCompletion completion) = 0;
};

} // namespace quenda
