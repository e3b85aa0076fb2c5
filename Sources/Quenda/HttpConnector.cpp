#include "Quenda/HttpConnector.h"

#include "Quenda/PlainHttpReply.h"

#include <QHash>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace quenda {

namespace {

// Marks a URL whose request takes no proxy. A fragment is never sent, and those that callers give
// are dropped, so the mark stays inside this file and the manager's question for a proxy.
const QString kDirectMark = QStringLiteral("direct");

// The bytes that the manager may read ahead of us.
constexpr qint64 kReadAhead = 256 * 1024;

QString authority(const QUrl &url) {
    return url.scheme() + QLatin1Char('/') + url.authority(QUrl::FullyEncoded);
}

bool takesNoProxy(const HttpRequest &request) {
    return request.route == HttpRequest::Route::Direct || ProxyResolver::isLoopback(request.url);
}

bool names(const HttpRequest &request, const char *header) {
    return std::any_of(request.headers.begin(), request.headers.end(), [&](const auto &each) {
        return each.first.compare(header, Qt::CaseInsensitive) == 0;
    });
}

QNetworkRequest networkRequest(const HttpRequest &request) {
    QUrl url = request.url;
    url.setFragment(takesNoProxy(request) ? kDirectMark : QString());
    QNetworkRequest result(url);
    result.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                        QNetworkRequest::ManualRedirectPolicy);
    result.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    result.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    result.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    result.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    result.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    result.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    for (const auto &[name, value] : request.headers)
        result.setRawHeader(name, value);
    // Without this the manager would unpack compressed answers by itself, whatever they grow to.
    result.setRawHeader("Accept-Encoding", "identity");
    if (!names(request, "User-Agent"))
        result.setRawHeader("User-Agent", "Quenda");
    // The manager leaves Nagle's algorithm on. On the loopback interface, whose segments are larger
    // than a dictation's pieces, it holds the body of each request on a used connection back by the
    // receiver's delayed acknowledgement (40 ms); a fresh connection is acknowledged at once.
    if (ProxyResolver::isLoopback(request.url))
        result.setRawHeader("Connection", "close");
    return result;
}

} // namespace

// The manager's proxy factory: answers from what was resolved before, and so never waits.
class HttpConnector::Routes final : public QNetworkProxyFactory {
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override {
        if (query.url().fragment() == kDirectMark)
            return {QNetworkProxy::NoProxy};
        return m_proxies.value(authority(query.url()), {QNetworkProxy::NoProxy});
    }
    bool leadToProxy(const QUrl &url) const {
        const auto found = m_proxies.constFind(authority(url));
        return found != m_proxies.cend() && found->first().type() != QNetworkProxy::NoProxy;
    }
    void learn(const QUrl &url, const QList<QNetworkProxy> &proxies) {
        m_proxies.insert(authority(url), proxies);
    }

private:
    QHash<QString, QList<QNetworkProxy>> m_proxies;
};

HttpConnector::HttpConnector() : m_routes(new Routes) {
    m_manager.setProxyFactory(m_routes);
    m_manager.setAutoDeleteReplies(false);
}

void HttpConnector::prepare(const HttpRequest &request, const QObject *context,
                            std::function<void()> ready) {
    if (takesNoProxy(request)) {
        ready();
        return;
    }
    m_resolver.resolve(request.url,
                       [this, url = request.url, guard = QPointer(context),
                        ready = std::move(ready)](const QList<QNetworkProxy> &proxies) {
                           m_routes->learn(url, proxies);
                           if (guard)
                               ready();
                       });
}

QNetworkReply *HttpConnector::send(const HttpRequest &request) {
    QNetworkRequest prepared = networkRequest(request);
    if (tls && request.url.scheme() == QLatin1String("https"))
        prepared.setSslConfiguration(*tls);
    if (request.url.scheme() == QLatin1String("http") &&
        (takesNoProxy(request) || !m_routes->leadToProxy(request.url)))
        return new PlainHttpReply(prepared, request.method, request.body);
    QNetworkReply *reply = nullptr;
    if (request.method == "GET")
        reply = m_manager.get(prepared);
    else if (request.method == "POST")
        reply = m_manager.post(prepared, request.body);
    else
        reply = m_manager.sendCustomRequest(prepared, request.method, request.body);
    reply->setReadBufferSize(kReadAhead);
    return reply;
}

} // namespace quenda
