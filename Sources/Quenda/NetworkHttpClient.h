#pragma once
// The real HTTP client of the whole program: one access manager, one set of bounds. HTTP/1.1, no
// cookies, no cache, no stored credentials, no questions to the user. One instance, owned by the
// entry point. Nothing of the network is loaded before the first request. Main thread only.

#include "Quenda/HttpClient.h"

#include <QObject>
#include <QSslConfiguration>

#include <memory>
#include <optional>

namespace quenda {

class HttpConnector;

class NetworkHttpClient final : public QObject, public HttpClient {
public:
    explicit NetworkHttpClient(QObject *parent = nullptr);
    /// Abandons what is under way.
    ~NetworkHttpClient() override;

    void send(const HttpRequest &request, const QObject *context, Completion completion) override;
    void download(const HttpRequest &request, std::unique_ptr<DownloadSink> sink,
                  const QObject *context, DownloadProgress progress,
                  DownloadCompletion completion) override;

    /// Replaces the system's choice of trusted certificates and protocols for later requests.
    void setTlsConfiguration(const QSslConfiguration &configuration);

private:
    HttpConnector &connector();

    std::optional<QSslConfiguration> m_tls;
    std::unique_ptr<HttpConnector> m_connector;
    std::unique_ptr<QObject> m_exchanges; ///< parent of those under way; goes before the connector
};

} // namespace quenda
