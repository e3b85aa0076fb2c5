#include "Quenda/HttpExchange.h"

#include "Quenda/HttpConnector.h"
#include "Quenda/HttpRules.h"

#include <QNetworkReply>
#include <QSslError>

#include <algorithm>
#include <utility>

namespace quenda {

namespace {
constexpr qint64 kPiece = 64 * 1024; // bytes handed on at once
} // namespace

HttpExchange::HttpExchange(HttpConnector &connector, HttpRequest request,
                           std::unique_ptr<HttpBody> body, const QObject *context, Done done,
                           QObject *parent)
    : QObject(parent),
      m_connector(connector),
      m_request(std::move(request)),
      m_body(std::move(body)),
      m_context(context),
      m_done(std::move(done)) {
    m_body->onRoom = [this] { bytesArrived(); };
    m_body->onError = [this](const Error &error) { fail(error); };
    connect(context, &QObject::destroyed, this, [this] { delete this; });
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &HttpExchange::checkTime);
}

HttpExchange::~HttpExchange() {
    dropReply();
}

void HttpExchange::start() {
    m_sinceStart.start();
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (const Failure failure = unfitness(m_request))
                fail(*failure);
            else
                startHop();
        },
        Qt::QueuedConnection);
}

void HttpExchange::startHop() {
    touch();
    m_timer.start(0); // arms itself
    m_connector.prepare(m_request, this, [this] {
        if (!m_over)
            sendHop();
    });
}

void HttpExchange::sendHop() {
    m_reply = m_connector.send(m_request);
    connect(m_reply, &QNetworkReply::metaDataChanged, this, &HttpExchange::headArrived);
    connect(m_reply, &QNetworkReply::readyRead, this, &HttpExchange::bytesArrived);
    connect(m_reply, &QNetworkReply::finished, this, &HttpExchange::replyFinished);
    connect(m_reply, &QNetworkReply::uploadProgress, this, &HttpExchange::touch);
    connect(m_reply, &QNetworkReply::sslErrors, this, [this](const QList<QSslError> &errors) {
        if (!errors.isEmpty())
            m_tlsProblem = errors.first().errorString();
    });
}

// The manager tells of a 401 or 407 only when it has read the whole answer, and of any other as
// soon as its head is there; those two are bounded by the time-outs alone.
void HttpExchange::headArrived() {
    touch();
    const QVariant attribute = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!attribute.isValid() || m_begun || m_over)
        return;
    const int status = attribute.toInt();
    const QByteArray target = m_reply->rawHeader("Location");
    if (isRedirect(status) && !target.isEmpty()) {
        redirect(status, QUrl::fromEncoded(target));
        return;
    }
    m_status = status;
    m_begun = true;
    m_announced = announcedLength(m_reply->rawHeader("Content-Length"));
    const Result<bool> wanted = m_body->begin(status, m_announced);
    if (!wanted.ok())
        fail(wanted.error());
    else if (!wanted.value())
        finish(true, std::nullopt);
}

void HttpExchange::bytesArrived() {
    if (!m_reply || !m_begun || m_over)
        return;
    touch();
    while (!m_over && m_reply->bytesAvailable() > 0) {
        const qint64 room = std::min(m_body->room(), kPiece);
        if (room <= 0)
            return; // onRoom brings us back
        const QByteArray bytes = m_reply->read(room);
        m_received += bytes.size();
        if (const Failure failure = m_body->add(bytes)) {
            fail(*failure);
            return;
        }
    }
    if (m_finished && !m_over)
        finish(true, std::nullopt);
}

void HttpExchange::replyFinished() {
    if (m_over)
        return;
    if (!m_begun)
        headArrived(); // an answer without a body may end before its head was told
    if (m_over || !m_reply || !m_reply->isFinished())
        return;
    if (const Failure failure = replyFailure()) {
        fail(*failure);
        return;
    }
    m_finished = true;
    bytesArrived();
}

// The manager does not always notice an answer that breaks off: we compare with what was announced
// ourselves. An answer in chunks
// that breaks off between two of them may pass for a whole one (a race in Qt 6.4); nothing outside
// the manager can tell. What reads such answers must be able to tell by their contents.
Failure HttpExchange::replyFailure() const {
    const QNetworkReply::NetworkError error = m_reply->error();
    if (!isHttpAnswer(error, m_status.value_or(0))) {
        const bool tls = error == QNetworkReply::SslHandshakeFailedError && !m_tlsProblem.isEmpty();
        return Error{QStringLiteral("QNetworkReply"), int(error),
                     tls ? m_tlsProblem : m_reply->errorString()};
    }
    if (!m_status)
        return httpError(HttpError::NotHttp);
    if (m_announced >= 0 && m_received + m_reply->bytesAvailable() < m_announced)
        return httpError(HttpError::CutOff);
    return std::nullopt;
}

void HttpExchange::redirect(int status, const QUrl &target) {
    const Result<HttpRequest> next = redirected(m_request, status, target);
    if (!next.ok()) {
        m_status = status;
        fail(next.error());
        return;
    }
    if (++m_redirects > kMaxRedirects) {
        fail(httpError(HttpError::TooManyRedirects));
        return;
    }
    dropReply();
    m_request = next.value();
    startHop();
}

// Looks whether the exchange has been idle, or under way, too long. The timer is not restarted for
// each byte that comes: it looks again when the time may be up.
void HttpExchange::checkTime() {
    if (m_over)
        return;
    if (m_begun && m_body->room() == 0)
        touch(); // it is our own disk that holds things up
    const std::chrono::milliseconds idle(m_sinceActivity.elapsed());
    const std::chrono::milliseconds underWay(m_sinceStart.elapsed());
    if (idle >= m_request.timeout || underWay >= m_request.longest)
        fail(httpError(HttpError::TimedOut));
    else
        m_timer.start(std::min(m_request.timeout - idle, m_request.longest - underWay));
}

void HttpExchange::fail(const Error &error) {
    finish(false, error);
}

void HttpExchange::finish(bool complete, const Failure &failure) {
    if (m_over)
        return;
    m_over = true;
    m_timer.stop();
    dropReply();
    m_body->end(complete, [this, failure](const Failure &bodyFailure) {
        HttpResponse response{m_status, m_body->bytes(), failure ? failure : bodyFailure};
        const Done done = std::exchange(m_done, {});
        if (m_context)
            disconnect(m_context, nullptr, this, nullptr); // `done` may end it; we go by ourselves
        deleteLater();
        if (m_context && done)
            done(response);
    });
}

void HttpExchange::dropReply() {
    if (!m_reply)
        return;
    QNetworkReply *reply = std::exchange(m_reply, nullptr);
    disconnect(reply, nullptr, this, nullptr);
    // Its destructor hangs up. To abort it here, perhaps from inside one of its signals, would make
    // it report two errors.
    reply->deleteLater();
}

} // namespace quenda
