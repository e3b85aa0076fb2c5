#include "Quenda/PlainHttpReply.h"

#include "Quenda/HttpRules.h"

#include <QNetworkProxy>
#include <QUrl>

#include <utility>

namespace quenda {

namespace {

constexpr qint64 kReadAhead = 256 * 1024; // bytes of a body that wait to be taken
constexpr qint64 kPiece = 64 * 1024;

// How often a request is sent in all, where the server hangs up on it without a word: it was ending
// just then, and its successor may be there already.
constexpr int kMostTries = 3;

QByteArray hostHeader(const QUrl &url) {
    QByteArray host = url.host(QUrl::FullyEncoded).toLatin1();
    if (host.contains(':'))
        host = '[' + host + ']';
    const int port = url.port(80);
    return port == 80 ? host : host + ':' + QByteArray::number(port);
}

QByteArray requestHead(const QNetworkRequest &request, const QByteArray &method,
                       const QByteArray &body) {
    const QUrl url = request.url();
    QByteArray target = url.path(QUrl::FullyEncoded).toLatin1();
    if (target.isEmpty())
        target = "/";
    if (url.hasQuery())
        target += '?' + url.query(QUrl::FullyEncoded).toLatin1();
    QByteArray head = method + ' ' + target + " HTTP/1.1\r\nHost: " + hostHeader(url) + "\r\n";
    const QList<QByteArray> names = request.rawHeaderList();
    for (const QByteArray &name : names)
        head += name + ": " + request.rawHeader(name) + "\r\n";
    if (!request.hasRawHeader("Connection"))
        head += "Connection: close\r\n";
    if (method != "GET" || !body.isEmpty())
        head += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return head + "\r\n";
}

} // namespace

PlainHttpReply::PlainHttpReply(const QNetworkRequest &request, const QByteArray &method,
                               const QByteArray &body)
    : m_head(requestHead(request, method, body)),
      m_sentBody(body) {
    setRequest(request);
    setUrl(request.url());
    setOperation(method == "GET"    ? QNetworkAccessManager::GetOperation
                 : method == "POST" ? QNetworkAccessManager::PostOperation
                                    : QNetworkAccessManager::CustomOperation);
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);

    m_socket.setProxy(QNetworkProxy::NoProxy);
    m_socket.setReadBufferSize(kReadAhead);
    connect(&m_socket, &QTcpSocket::connected, this, &PlainHttpReply::ask);
    connect(&m_socket, &QTcpSocket::readyRead, this, &PlainHttpReply::readOn);
    connect(&m_socket, &QTcpSocket::bytesWritten, this, [this](qint64 bytes) {
        m_written += bytes;
        Q_EMIT uploadProgress(m_written, m_head.size() + m_sentBody.size());
    });
    connect(&m_socket, &QTcpSocket::errorOccurred, this, [this] {
        m_closed = true;
        readOn();
    });
    QMetaObject::invokeMethod(this, &PlainHttpReply::connectToServer, Qt::QueuedConnection);
}

PlainHttpReply::~PlainHttpReply() {
    m_socket.disconnect(this);
}

void PlainHttpReply::connectToServer() {
    if (isFinished())
        return;
    ++m_tries;
    m_closed = false;
    m_written = 0;
    m_socket.connectToHost(url().host(QUrl::EncodeUnicode), quint16(url().port(80)));
}

void PlainHttpReply::ask() {
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_socket.write(m_head);
    m_socket.write(m_sentBody);
}

qint64 PlainHttpReply::readData(char *data, qint64 maxSize) {
    const qint64 length = m_reader.takeBody(data, maxSize);
    if (!isFinished() && !std::exchange(m_readSoon, true))
        QMetaObject::invokeMethod(this, &PlainHttpReply::readOn, Qt::QueuedConnection);
    return length == 0 && isFinished() ? -1 : length;
}

void PlainHttpReply::readOn() {
    m_readSoon = false;
    if (isFinished())
        return;
    const qsizetype before = m_reader.bodySize();
    while (!m_reader.isOver() && m_reader.bodySize() < kReadAhead && m_socket.bytesAvailable() > 0)
        m_reader.feed(m_socket.read(kPiece));
    tellHead();
    if (m_reader.bodySize() > before)
        Q_EMIT readyRead();
    if (m_reader.isOver() || (m_closed && m_socket.bytesAvailable() == 0))
        conclude();
}

void PlainHttpReply::tellHead() {
    using State = HttpAnswerReader::State;
    const State state = m_reader.state();
    if (m_headTold || (state != State::Body && state != State::Complete))
        return;
    m_headTold = true;
    setAttribute(QNetworkRequest::HttpStatusCodeAttribute, m_reader.status());
    for (const auto &[name, value] : m_reader.headers())
        setRawHeader(name, value);
    Q_EMIT metaDataChanged();
}

// Everything has come that ever will.
void PlainHttpReply::conclude() {
    using State = HttpAnswerReader::State;
    if (isFinished())
        return;
    if (m_closed && !m_reader.hasBegun() && m_tries < kMostTries &&
        m_socket.error() == QAbstractSocket::RemoteHostClosedError) {
        m_socket.abort();
        QMetaObject::invokeMethod(this, &PlainHttpReply::connectToServer, Qt::QueuedConnection);
        return;
    }
    if (!m_reader.isOver())
        m_reader.end();
    switch (m_reader.state()) {
    case State::NotHttp:
        finish(ProtocolFailure, httpError(HttpError::NotHttp).localizedDescription);
        return;
    case State::HeadTooLong:
        finish(ProtocolFailure, httpError(HttpError::TooLong).localizedDescription);
        return;
    case State::CutOff:
        break;
    default:
        finish(NoError, {});
        return;
    }
    switch (m_socket.error()) {
    case QAbstractSocket::ConnectionRefusedError:
        finish(ConnectionRefusedError, tr("Connection refused"));
        return;
    case QAbstractSocket::HostNotFoundError:
        finish(HostNotFoundError, tr("Host %1 not found").arg(url().host()));
        return;
    case QAbstractSocket::RemoteHostClosedError:
        finish(RemoteHostClosedError, tr("Connection closed"));
        return;
    default:
        finish(UnknownNetworkError, m_socket.errorString());
    }
}

void PlainHttpReply::abort() {
    if (!isFinished())
        finish(OperationCanceledError, tr("Operation canceled"));
}

void PlainHttpReply::finish(NetworkError error, const QString &description) {
    m_socket.disconnect(this);
    m_socket.abort();
    setFinished(true);
    if (error != NoError) {
        setError(error, description);
        Q_EMIT errorOccurred(error);
    }
    Q_EMIT finished();
}

} // namespace quenda
