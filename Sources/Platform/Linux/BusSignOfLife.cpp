#include "Platform/Linux/BusSignOfLife.h"

#include <QLocalSocket>

#include <unistd.h>

#include <utility>

namespace quenda {

QString busSocket(const QByteArray &address, bool &abstract) {
    constexpr char kTransport[] = "unix:";
    for (const QByteArray &alternative : address.split(';')) {
        if (!alternative.startsWith(kTransport))
            continue;
        for (const QByteArray &pair : alternative.mid(sizeof kTransport - 1).split(',')) {
            const qsizetype equals = pair.indexOf('=');
            const QByteArray key = pair.left(equals);
            abstract = key == "abstract";
            if (equals > 0 && (abstract || key == "path"))
                return QString::fromLocal8Bit(
                    QByteArray::fromPercentEncoding(pair.mid(equals + 1)));
        }
    }
    return {};
}

std::unique_ptr<QLocalSocket> askForSignOfLife(const QByteArray &address,
                                               std::function<void()> alive,
                                               std::function<void()> absent) {
    bool abstract = false;
    const QString socketName = busSocket(address, abstract);
    if (socketName.isEmpty())
        return nullptr;
    auto owned = std::make_unique<QLocalSocket>();
    QLocalSocket *socket = owned.get();
    if (abstract)
        socket->setSocketOptions(QLocalSocket::AbstractNamespaceOption);
    QObject::connect(socket, &QLocalSocket::connected, socket, [socket] {
        const QByteArray user = QByteArray::number(getuid()).toHex();
        socket->write(QByteArray(1, '\0') + "AUTH EXTERNAL " + user + "\r\n");
    });
    QObject::connect(socket, &QLocalSocket::readyRead, socket, [socket, alive = std::move(alive)] {
        socket->disconnect();
        socket->abort();
        alive();
    });
    // Queued: the failure may be known before the caller has the socket.
    QObject::connect(
        socket, &QLocalSocket::errorOccurred, socket,
        [socket, absent = std::move(absent)] {
            socket->disconnect();
            if (absent)
                absent();
        },
        Qt::QueuedConnection);
    socket->connectToServer(socketName);
    return owned;
}

} // namespace quenda
