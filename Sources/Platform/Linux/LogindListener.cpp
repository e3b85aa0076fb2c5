#include "Platform/Linux/LogindListener.h"

#include <QDBusConnection>
#include <QLocalSocket>
#include <QThread>

#include <unistd.h>

#include <thread>
#include <utility>

namespace quenda {

namespace {

// Where every Linux system has its bus, unless the environment says otherwise.
constexpr char kDefaultAddress[] = "unix:path=/var/run/dbus/system_bus_socket";

} // namespace

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

std::shared_ptr<LogindListener> LogindListener::create(std::function<void()> onWake) {
    // The other thread may hold the last reference.
    return {new LogindListener(std::move(onWake)), [](LogindListener *listener) {
                if (listener->thread() == QThread::currentThread())
                    delete listener;
                else
                    listener->deleteLater();
            }};
}

LogindListener::LogindListener(std::function<void()> onWake) : m_onWake(std::move(onWake)) {}

LogindListener::~LogindListener() = default;

// A bus that takes connections but does not answer would hold up Qt's own bus thread for good, and
// with it the end of the program. One that answers the first line of the handshake is alive.
void LogindListener::listen(const std::shared_ptr<LogindListener> &listener) {
    QByteArray address = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (address.isEmpty())
        address = kDefaultAddress;
    bool abstract = false;
    const QString socketName = busSocket(address, abstract);
    if (socketName.isEmpty())
        return;
    listener->m_signOfLife = std::make_unique<QLocalSocket>();
    QLocalSocket *socket = listener->m_signOfLife.get();
    if (abstract)
        socket->setSocketOptions(QLocalSocket::AbstractNamespaceOption);
    connect(socket, &QLocalSocket::connected, socket, [socket] {
        const QByteArray user = QByteArray::number(getuid()).toHex();
        socket->write(QByteArray(1, '\0') + "AUTH EXTERNAL " + user + "\r\n");
    });
    connect(socket, &QLocalSocket::readyRead, socket, [socket, weak = std::weak_ptr(listener)] {
        socket->disconnect();
        socket->abort();
        if (const auto alive = weak.lock())
            subscribe(alive);
    });
    socket->connectToServer(socketName);
}

void LogindListener::subscribe(const std::shared_ptr<LogindListener> &listener) {
    // Detached: nobody waits for it. It touches nothing but the listener, which it keeps alive.
    // Connecting to the signal asks the bus who logind is, and waits for the answer.
    std::thread([listener] {
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus,
                                                            QStringLiteral("quenda-logind"));
        if (bus.isConnected())
            bus.connect(
                QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"),
                listener.get(), SLOT(PrepareForSleep(bool)));
    }).detach();
}

void LogindListener::PrepareForSleep(bool start) {
    if (!start && m_onWake)
        m_onWake();
}

} // namespace quenda
