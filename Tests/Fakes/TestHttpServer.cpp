#include "Fakes/TestHttpServer.h"

#include "Fakes/TestMain.h"

#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>
#include <QTimer>

#include <gtest/gtest.h>

#include <utility>

namespace quenda::fakes {

bool waitFor(const std::function<bool()> &condition, std::chrono::milliseconds limit) {
    if (condition())
        return true;
    QEventLoop loop;
    QTimer tick;
    bool met = false;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        met = condition();
        if (met)
            loop.quit();
    });
    tick.start(1);
    QTimer::singleShot(limit, &loop, &QEventLoop::quit);
    loop.exec();
    return met || condition();
}

void turnFor(std::chrono::milliseconds span) {
    waitFor([] { return false; }, span);
}

QByteArray TestHttpServer::Request::header(const QByteArray &name) const {
    const QList<QByteArray> lines = raw.first(raw.indexOf("\r\n\r\n")).split('\n');
    for (const QByteArray &line : lines) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.first(colon).compare(name, Qt::CaseInsensitive) == 0)
            return line.sliced(colon + 1).trimmed();
    }
    return {};
}

TestHttpServer::TestHttpServer(std::optional<QSslConfiguration> tls) : m_tls(std::move(tls)) {
    answer(200);
    EXPECT_TRUE(listen(QHostAddress::LocalHost)) << qPrintable(errorString());
}

TestHttpServer::~TestHttpServer() {
    for (QTcpSocket *client : m_unread.keys())
        client->disconnect(this);
}

QUrl TestHttpServer::url(const QString &path) const {
    return QUrl(QStringLiteral("%1://127.0.0.1:%2%3")
                    .arg(m_tls ? QStringLiteral("https") : QStringLiteral("http"))
                    .arg(serverPort())
                    .arg(path));
}

QByteArray TestHttpServer::response(int status, const QByteArray &body,
                                    const QByteArray &extraHeaders) {
    return "HTTP/1.1 " + QByteArray::number(status) +
           " Whatever\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" +
           extraHeaders + "\r\n" + body;
}

void TestHttpServer::answerRaw(const QByteArray &bytes) {
    handler = [bytes](QTcpSocket &client, const Request &) {
        client.write(bytes);
        client.disconnectFromHost();
    };
}

void TestHttpServer::answer(int status, const QByteArray &body, const QByteArray &extraHeaders) {
    handler = [reply = response(status, body, extraHeaders)](QTcpSocket &client,
                                                             const Request &request) {
        client.write(reply);
        if (request.header("Connection").toLower() == "close")
            client.disconnectFromHost();
    };
}

void TestHttpServer::sendEndlessly(QTcpSocket &client) {
    const auto more = [&client] {
        if (client.bytesToWrite() < 64 * 1024)
            client.write(QByteArray(64 * 1024, '\0'));
    };
    QObject::connect(&client, &QTcpSocket::bytesWritten, &client, more);
    more();
}

void TestHttpServer::sendSlowly(QTcpSocket &client, const QByteArray &bytes, qsizetype piece,
                                std::chrono::milliseconds interval) {
    auto *timer = new QTimer(&client);
    QObject::connect(timer, &QTimer::timeout, &client,
                     [&client, timer, bytes, piece, at = qsizetype(0)]() mutable {
                         client.write(bytes.mid(at, piece));
                         at += piece;
                         if (at >= bytes.size())
                             timer->stop();
                     });
    timer->start(interval);
}

void TestHttpServer::resumeReading() {
    pauseReading = false;
    for (QTcpSocket *client : m_unread.keys()) {
        client->setReadBufferSize(0);
        bytesCame(client);
    }
}

int TestHttpServer::openConnections() const {
    return int(m_unread.size());
}

void TestHttpServer::incomingConnection(qintptr descriptor) {
    ++connections;
    auto *client = new QSslSocket(this);
    client->setSocketDescriptor(descriptor);
    m_unread.insert(client, {});
    if (pauseReading)
        client->setReadBufferSize(4096);
    connect(client, &QTcpSocket::readyRead, this, [this, client] { bytesCame(client); });
    connect(client, &QTcpSocket::bytesWritten, this, [this](qint64 count) { bytesSent += count; });
    connect(client, &QTcpSocket::disconnected, this, [this, client] {
        m_unread.remove(client);
        client->deleteLater();
    });
    if (m_tls) {
        client->setSslConfiguration(*m_tls);
        client->startServerEncryption();
    }
}

void TestHttpServer::bytesCame(QTcpSocket *client) {
    if (pauseReading)
        return;
    QByteArray &unread = m_unread[client];
    unread += client->readAll();
    const qsizetype head = unread.indexOf("\r\n\r\n");
    if (head < 0)
        return;
    Request request;
    request.raw = unread;
    const qsizetype bodyLength = request.header("Content-Length").toLongLong();
    if (unread.size() < head + 4 + bodyLength)
        return;
    request.raw = unread.first(head + 4 + bodyLength);
    request.body = request.raw.sliced(head + 4);
    const QList<QByteArray> words = unread.first(unread.indexOf("\r\n")).split(' ');
    request.method = words.value(0);
    request.target = words.value(1);
    unread = unread.sliced(request.raw.size());
    requests.push_back(request);
    handler(*client, request);
}

TestCertificate makeCertificate() {
    const QString key = testHome() + QStringLiteral("/key.pem");
    const QString certificate = testHome() + QStringLiteral("/certificate.pem");
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                   QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                   QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
                   QStringLiteral("-days"), QStringLiteral("1"), QStringLiteral("-subj"),
                   QStringLiteral("/CN=localhost"), QStringLiteral("-addext"),
                   QStringLiteral("subjectAltName=DNS:localhost,IP:127.0.0.1"),
                   QStringLiteral("-keyout"), key, QStringLiteral("-out"), certificate});
    EXPECT_TRUE(openssl.waitForFinished()) << "openssl: " << qPrintable(openssl.errorString());
    EXPECT_EQ(openssl.exitCode(), 0) << openssl.readAll().constData();

    const QList<QSslCertificate> made = QSslCertificate::fromPath(certificate);
    QFile keyFile(key);
    EXPECT_TRUE(keyFile.open(QIODevice::ReadOnly));
    TestCertificate result;
    result.server = QSslConfiguration::defaultConfiguration();
    result.server.setLocalCertificate(made.value(0));
    result.server.setPrivateKey(QSslKey(&keyFile, QSsl::Ec));
    result.client = QSslConfiguration::defaultConfiguration();
    result.client.setCaCertificates(made);
    return result;
}

} // namespace quenda::fakes
