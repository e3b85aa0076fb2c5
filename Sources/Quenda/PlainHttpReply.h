#pragma once
// One request over a connection of its own to a server without TLS and without a proxy, such as the
// engine. Qt's own reply reads the head of an answer byte by byte, without a bound and, while bytes
// keep coming, without a look at anything else: a server that never ends its head would keep the
// thread that serves every request, and its memory, for good. Owned by who asked for it; main
// thread only.

#include "Quenda/HttpAnswerReader.h"

#include <QByteArray>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTcpSocket>

namespace quenda {

class PlainHttpReply final : public QNetworkReply {
    Q_OBJECT
public:
    /// Asks in the next round of the event loop. `request` has an http URL; its headers are sent as
    /// they are, with the host and the body's length.
    PlainHttpReply(const QNetworkRequest &request, const QByteArray &method,
                   const QByteArray &body);
    ~PlainHttpReply() override;

    void abort() override;
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return m_reader.bodySize(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override;

private:
    void connectToServer();
    void ask();
    void readOn();
    void tellHead();
    void conclude();
    void finish(NetworkError error, const QString &description);

    QTcpSocket m_socket;
    QByteArray m_head; ///< of the request
    QByteArray m_sentBody;
    qint64 m_written = 0;
    HttpAnswerReader m_reader;
    bool m_headTold = false;
    bool m_closed = false; ///< nothing comes any more but what the socket holds
    bool m_readSoon = false;
    int m_tries = 0;
};

} // namespace quenda
