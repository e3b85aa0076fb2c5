// What a server says about where to go on, how long its answer is, and the answer's pieces.
#include "FuzzTarget.h"
#include "Input.h"
#include "Quenda/HttpBody.h"
#include "Quenda/HttpRules.h"
#include "Quenda/ProxyResolver.h"

#include <arpa/inet.h>

#include <cstring>

namespace {

using quenda::HttpRequest;

// The part of an address that decides who gets the request, taken apart by hand.
QByteArray originOf(const QUrl &url) {
    const QByteArray text = url.toEncoded().toLower();
    const qsizetype host = text.indexOf("//") + 2;
    qsizetype end = host;
    while (end < text.size() && !QByteArrayView("/?#").contains(text[end]))
        ++end;
    QByteArray origin = text.mid(host, end - host);
    origin = origin.mid(origin.lastIndexOf('@') + 1);
    const QByteArray defaultPort = text.startsWith("https:") ? ":443" : ":80";
    if (origin.endsWith(':'))
        origin.chop(1);
    if (origin.endsWith(defaultPort))
        origin.chop(defaultPort.size());
    return text.first(host) + origin;
}

bool isWeb(const QUrl &url) {
    const QByteArray text = url.toEncoded().toLower();
    return text.startsWith("http://") || text.startsWith("https://");
}

bool isLoopbackAddress(QString host) {
    in_addr v4{};
    in6_addr v6{};
    if (inet_pton(AF_INET, host.toLatin1().constData(), &v4) == 1)
        return (ntohl(v4.s_addr) >> 24) == 127;
    if (inet_pton(AF_INET6, host.toLatin1().constData(), &v6) == 1) {
        return IN6_IS_ADDR_LOOPBACK(&v6) || (IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127);
    }
    return false;
}

void expectRedirectRules(const HttpRequest &request, int status, const QByteArray &location) {
    const quenda::Result<HttpRequest> next =
        quenda::redirected(request, status, QUrl::fromEncoded(location));
    if (!next) {
        PROMISE(next.error().domain == quenda::kHttpErrorDomain);
        return;
    }
    const HttpRequest &followed = next.value();
    const QString detail =
        QString::fromLatin1(request.url.toEncoded() + " to " + followed.url.toEncoded());
    PROMISE_SHOWING(isWeb(followed.url) && !quenda::unfitness(followed), detail);
    PROMISE(followed.method == request.method && followed.headers == request.headers &&
            followed.body == request.body && followed.route == request.route);
    const bool secure = request.url.scheme() == QStringLiteral("https");
    PROMISE_SHOWING(!secure || followed.url.scheme() == QStringLiteral("https"), detail);
    bool secret = request.method != "GET";
    for (const auto &[name, value] : request.headers)
        secret = secret || name.toLower() == "authorization";
    PROMISE_SHOWING(!secret || originOf(followed.url) == originOf(request.url), detail);
}

void expectBounds(qint64 announced, const QByteArray &body, unsigned piece, qint64 limit) {
    quenda::MemoryBody memory(limit);
    const quenda::Result<bool> wanted = memory.begin(200, announced);
    PROMISE(wanted.ok() == (announced <= limit));
    if (!wanted.ok())
        return;
    qint64 given = 0;
    for (qsizetype at = 0; at < body.size(); at += piece) {
        const QByteArray bytes = body.mid(at, piece);
        const bool fits = given + bytes.size() <= limit;
        PROMISE(memory.add(bytes).has_value() == !fits);
        if (fits)
            given += bytes.size();
        PROMISE(memory.bytes().size() == given);
    }
    PROMISE(given != body.size() || memory.bytes() == body);
}

} // namespace

// Lines: address, method, header name, header value, status, Location, Content-Length; then the
// body, whose first byte says into which pieces it falls.
QUENDA_FUZZ_TARGET(http_rules) {
    quenda::fuzz::Input parts(input);
    HttpRequest request;
    request.url = QUrl(parts.textLine(), QUrl::StrictMode);
    request.method = parts.line();
    const QByteArray name = parts.line();
    request.headers = {{name, parts.line()}};
    const int status = parts.line().toInt();
    const QByteArray location = parts.line();
    const QByteArray lengthText = parts.line();
    request.body = parts.rest();

    if (const quenda::Failure unfit = quenda::unfitness(request)) {
        PROMISE(unfit->domain == quenda::kHttpErrorDomain);
    } else {
        PROMISE(isWeb(request.url));
        for (const char c : request.headers[0].first + request.headers[0].second)
            PROMISE(c != '\r' && c != '\n' && c != '\0');
        if (quenda::isRedirect(status))
            expectRedirectRules(request, status, location);
    }

    const QString host = request.url.host();
    const bool named =
        host == QStringLiteral("localhost") || host.endsWith(QStringLiteral(".localhost"));
    PROMISE_SHOWING(
        quenda::ProxyResolver::isLoopback(request.url) == (named || isLoopbackAddress(host)), host);

    const qint64 announced = quenda::announcedLength(lengthText);
    PROMISE(announced >= -1);
    const QByteArray digits = QByteArray::number(announced);
    PROMISE(announced < 0 || lengthText.contains(digits));
    const unsigned piece = request.body.isEmpty() ? 1 : 1 + quint8(request.body.front()) % 32;
    expectBounds(announced, request.body, piece, qint64(name.size()) * 4);
}
