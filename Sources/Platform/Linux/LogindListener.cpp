#include "Platform/Linux/LogindListener.h"

#include "Platform/Linux/BusSignOfLife.h"

#include <QDBusConnection>
#include <QLocalSocket>
#include <QThread>

#include <thread>
#include <utility>

namespace quenda {

namespace {

// Where every Linux system has its bus, unless the environment says otherwise.
constexpr char kDefaultAddress[] = "unix:path=/var/run/dbus/system_bus_socket";

} // namespace

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

void LogindListener::listen(const std::shared_ptr<LogindListener> &listener) {
    QByteArray address = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (address.isEmpty())
        address = kDefaultAddress;
    listener->m_signOfLife = askForSignOfLife(address, [weak = std::weak_ptr(listener)] {
        if (const auto alive = weak.lock())
            subscribe(alive);
    });
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
