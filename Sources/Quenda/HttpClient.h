#pragma once
// The one place that makes HTTP requests. Called on the main thread, which every completion
// reaches as well; nothing here blocks it.

#include "Platform/Error.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <optional>

class QObject;

namespace quenda {

struct HttpRequest {
    enum class Route {
        Direct,      ///< never through a proxy: for the loopback engine
        SystemProxy, ///< as the system's proxy settings say
    };

    QUrl url;
    QByteArray method = "GET";
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;                          ///< sent with its Content-Length
    std::chrono::milliseconds timeout{60000}; ///< longest time without any byte sent or received
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

class HttpClient {
public:
    using Completion = std::function<void(const HttpResponse &)>;

    HttpClient() = default;
    HttpClient(const HttpClient &) = delete;
    HttpClient &operator=(const HttpClient &) = delete;
    virtual ~HttpClient() = default;

    /// Sends a request. `completion` is called exactly once, later, on the main thread; if
    /// `context` goes away first the request is abandoned and `completion` is not called.
    /// A header value that holds CR, LF or NUL is refused with a transport error. The
    /// Authorization header is never sent to another host than the request's own.
    virtual void send(const HttpRequest &request, const QObject *context,
                      Completion completion) = 0;
};

} // namespace quenda
