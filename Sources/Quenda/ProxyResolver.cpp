#include "Quenda/ProxyResolver.h"

#include <QHostAddress>
#include <QNetworkProxyFactory>
#include <QNetworkProxyQuery>

#include <thread>
#include <utility>

namespace quenda {

void ProxyResolver::resolve(const QUrl &url, Answer answer) {
    std::thread([slot = m_mailbox.slot(), url, answer = std::move(answer)]() mutable {
        const QList<QNetworkProxy> proxies =
            QNetworkProxyFactory::systemProxyForQuery(QNetworkProxyQuery(url));
        slot.post([proxies, answer = std::move(answer)] { answer(proxies); });
    }).detach();
}

bool ProxyResolver::isLoopback(const QUrl &url) {
    const QString host = url.host();
    return host == QLatin1String("localhost") || host.endsWith(QLatin1String(".localhost")) ||
           QHostAddress(host).isLoopback();
}

} // namespace quenda
