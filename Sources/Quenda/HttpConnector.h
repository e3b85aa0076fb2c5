#pragma once
// The access manager and the way to it: sends one hop of an exchange over the right route. Made by
// the HTTP client on the first request. Main thread only.

#include "Quenda/HttpClient.h"
#include "Quenda/ProxyResolver.h"

#include <QNetworkAccessManager>
#include <QSslConfiguration>

#include <functional>
#include <optional>

class QNetworkReply;

namespace quenda {

class HttpConnector {
public:
    HttpConnector();

    /// Finds the route to `request.url`, then calls `ready` on the main thread, at once or later.
    /// `ready` is dropped where `context` is gone by then.
    void prepare(const HttpRequest &request, const QObject *context, std::function<void()> ready);

    /// Sends a prepared request; follows no redirects. The caller owns the reply.
    QNetworkReply *send(const HttpRequest &request);

    std::optional<QSslConfiguration> tls; ///< none: the library's default

private:
    class Routes;

    QNetworkAccessManager m_manager;
    Routes *m_routes; ///< owned by the manager
    ProxyResolver m_resolver;
};

} // namespace quenda
