#pragma once
// A real HTTP server on the loopback interface that answers as badly as a test asks for. Lives in
// the test's own thread: it works while waitFor() turns the event loop.

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace quenda::fakes {

/// Turns the event loop until `condition` holds; false where it does not within `limit`.
bool waitFor(const std::function<bool()> &condition,
             std::chrono::milliseconds limit = std::chrono::seconds(10));
/// Turns the event loop for `span`.
void turnFor(std::chrono::milliseconds span);

class TestHttpServer : public QTcpServer {
public:
    struct Request {
        QByteArray raw; ///< every byte, head and body
        QByteArray method;
        QByteArray target;
        QByteArray body;

        /// The value of a header; null where it is not there.
        QByteArray header(const QByteArray &name) const;
    };
    using Handler = std::function<void(QTcpSocket &client, const Request &request)>;

    /// Listens on a free port of 127.0.0.1; with `tls`, speaks TLS.
    explicit TestHttpServer(std::optional<QSslConfiguration> tls = std::nullopt);
    ~TestHttpServer() override;

    QUrl url(const QString &path = QStringLiteral("/")) const;

    /// What is done with each whole request.
    Handler handler;
    /// Answers every request with these bytes, then closes the connection.
    void answerRaw(const QByteArray &bytes);
    /// Answers every request properly.
    void answer(int status, const QByteArray &body = {}, const QByteArray &extraHeaders = {});
    /// Sends zeros, as fast as they are taken, until the client goes away.
    static void sendEndlessly(QTcpSocket &client);

    /// Sends `bytes` in pieces, one every `interval`.
    static void sendSlowly(QTcpSocket &client, const QByteArray &bytes, qsizetype piece,
                           std::chrono::milliseconds interval);

    static QByteArray response(int status, const QByteArray &body = {},
                               const QByteArray &extraHeaders = {});

    std::vector<Request> requests;
    int connections = 0;
    bool pauseReading = false; ///< takes connections but no more of their bytes than it must
    void resumeReading();
    int openConnections() const; ///< those that the client has not closed
    qint64 bytesSent = 0;        ///< taken over by the system, on all connections

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    void bytesCame(QTcpSocket *client);

    std::optional<QSslConfiguration> m_tls;
    QHash<QTcpSocket *, QByteArray> m_unread;
};

/// A key and a certificate for localhost and 127.0.0.1, made on the spot.
struct TestCertificate {
    QSslConfiguration server; ///< proves to be localhost
    QSslConfiguration client; ///< trusts that and nothing else
};
TestCertificate makeCertificate();

} // namespace quenda::fakes
