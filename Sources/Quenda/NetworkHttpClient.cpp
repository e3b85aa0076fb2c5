#include "Quenda/NetworkHttpClient.h"

#include "Quenda/HttpBody.h"
#include "Quenda/HttpConnector.h"
#include "Quenda/HttpExchange.h"

#include <utility>

namespace quenda {

NetworkHttpClient::NetworkHttpClient(QObject *parent)
    : QObject(parent),
      m_exchanges(std::make_unique<QObject>()) {}

NetworkHttpClient::~NetworkHttpClient() = default;

HttpConnector &NetworkHttpClient::connector() {
    if (!m_connector) {
        m_connector = std::make_unique<HttpConnector>();
        m_connector->tls = m_tls;
    }
    return *m_connector;
}

void NetworkHttpClient::setTlsConfiguration(const QSslConfiguration &configuration) {
    m_tls = configuration;
    if (m_connector)
        m_connector->tls = m_tls;
}

void NetworkHttpClient::send(const HttpRequest &request, const QObject *context,
                             Completion completion) {
    auto *exchange = new HttpExchange(connector(), request,
                                      std::make_unique<MemoryBody>(request.maxResponseBytes),
                                      context, std::move(completion), m_exchanges.get());
    exchange->start();
}

void NetworkHttpClient::download(const HttpRequest &request, std::unique_ptr<DownloadSink> sink,
                                 const QObject *context, DownloadProgress progress,
                                 DownloadCompletion completion) {
    HttpRequest unbounded = request;
    unbounded.longest = std::chrono::hours(24 * 365);
    auto body = std::make_unique<SinkBody>(std::move(sink), std::move(progress));
    auto *exchange = new HttpExchange(
        connector(), unbounded, std::move(body), context,
        [completion = std::move(completion)](const HttpResponse &response) {
            completion({response.status, response.transportError});
        },
        m_exchanges.get());
    exchange->start();
}

} // namespace quenda
