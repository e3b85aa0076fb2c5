#pragma once
// What the HTTP client holds to whatever a server says: which requests are fit to be sent, which
// redirects are followed, which failures are answers. Pure functions; any thread.

#include "Quenda/HttpClient.h"

#include <QNetworkReply>

namespace quenda {

/// Domain of the errors that the client itself finds; the codes are HttpError's. Errors found by
/// the network library have the domain "QNetworkReply" and that library's codes.
inline const QString kHttpErrorDomain = QStringLiteral("Quenda.HTTP");

enum class HttpError {
    UnfitRequest = 1, ///< the URL or a header cannot be sent
    TimedOut,
    TooLong,
    RedirectRefused,
    TooManyRedirects,
    CutOff,
    NotHttp,
};

Error httpError(HttpError code);

inline constexpr int kMaxRedirects = 10;

/// Why a request must not be sent, if there is a reason.
Failure unfitness(const HttpRequest &request);

/// Whether `value` can stand in a header: no control character but the tab.
bool fitsHeader(QByteArrayView value);

bool isRedirect(int status);

/// The length that an answer's Content-Length announces; -1 where that is missing or no number.
qint64 announcedLength(const QByteArray &contentLength);

/// The request that follows a redirect to `target`, or why it is not followed. A GET that carries
/// no Authorization goes anywhere but from https to http. Anything else stays with its scheme,
/// host and port, and is repeated as it was; a redirect that would make a GET of it is refused.
Result<HttpRequest> redirected(const HttpRequest &request, int status, const QUrl &target);

/// Whether the library's error only says that the server answered with an HTTP error status.
bool isHttpAnswer(QNetworkReply::NetworkError error, int status);

} // namespace quenda
