#include "Quenda/HttpRules.h"

#include <QCoreApplication>

#include <algorithm>

namespace quenda {

namespace {

QString tr(const char *text) {
    return QCoreApplication::translate("quenda::HttpClient", text);
}

QString description(HttpError code) {
    switch (code) {
    case HttpError::UnfitRequest:
        return tr("The request holds characters that cannot be sent.");
    case HttpError::TimedOut:
        return tr("The request timed out.");
    case HttpError::TooLong:
        return tr("The server's answer is too long.");
    case HttpError::RedirectRefused:
        return tr("The server refers to another address, which was not followed.");
    case HttpError::TooManyRedirects:
        return tr("The server refers to another address too many times.");
    case HttpError::CutOff:
        return tr("The connection was closed before the whole answer had arrived.");
    case HttpError::NotHttp:
        return tr("The server's answer is not HTTP.");
    }
    return {};
}

bool isToken(QByteArrayView name) {
    constexpr QByteArrayView symbols("!#$%&'*+-.^_`|~");
    return !name.isEmpty() && std::all_of(name.begin(), name.end(), [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               symbols.contains(c);
    });
}

bool isWebUrl(const QUrl &url) {
    return url.isValid() && !url.host().isEmpty() &&
           (url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http"));
}

int effectivePort(const QUrl &url) {
    return url.port(url.scheme() == QLatin1String("https") ? 443 : 80);
}

bool sameOrigin(const QUrl &a, const QUrl &b) {
    return a.scheme() == b.scheme() && a.host() == b.host() && effectivePort(a) == effectivePort(b);
}

bool carriesSecret(const HttpRequest &request) {
    return std::any_of(request.headers.begin(), request.headers.end(), [](const auto &header) {
        return header.first.compare("authorization", Qt::CaseInsensitive) == 0;
    });
}

} // namespace

Error httpError(HttpError code) {
    return {kHttpErrorDomain, int(code), description(code)};
}

bool fitsHeader(QByteArrayView value) {
    return std::none_of(value.begin(), value.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && byte != '\t') || byte == 0x7f;
    });
}

Failure unfitness(const HttpRequest &request) {
    bool fit = isWebUrl(request.url) && isToken(request.method);
    for (const auto &[name, value] : request.headers)
        fit = fit && isToken(name) && fitsHeader(value);
    if (!fit)
        return httpError(HttpError::UnfitRequest);
    return std::nullopt;
}

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

qint64 announcedLength(const QByteArray &contentLength) {
    bool numeric = false;
    const qint64 length = contentLength.toLongLong(&numeric);
    return numeric && length >= 0 ? length : -1;
}

Result<HttpRequest> redirected(const HttpRequest &request, int status, const QUrl &target) {
    HttpRequest next = request;
    next.url = request.url.resolved(target);
    const bool free = request.method == "GET" && !carriesSecret(request);
    const bool downgrade = request.url.scheme() == QLatin1String("https") &&
                           next.url.scheme() != QLatin1String("https");
    const bool repeatable = request.method == "GET" || status == 307 || status == 308;
    const bool follow = free ? !downgrade : repeatable && sameOrigin(request.url, next.url);
    if (!isWebUrl(next.url) || !follow)
        return httpError(HttpError::RedirectRefused);
    return next;
}

bool isHttpAnswer(QNetworkReply::NetworkError error, int status) {
    switch (error) {
    case QNetworkReply::NoError:
        return true;
    case QNetworkReply::ProxyAuthenticationRequiredError: // what the library makes of 407
    case QNetworkReply::ProtocolInvalidOperationError:    // ... and of 400 and 418
        return status >= 400;
    default:
        return status >= 400 && ((error > 200 && error < 300) || (error > 400 && error < 500));
    }
}

} // namespace quenda
