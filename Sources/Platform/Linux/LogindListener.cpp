#include "Platform/Linux/LogindListener.h"

#include <QDBusConnection>
#include <QThread>

#include <thread>
#include <utility>

namespace quenda {

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

void LogindListener::listen(const std::shared_ptr<LogindListener> &listener) {
    // Detached: nobody may have to wait for a bus that hangs. It touches nothing but the listener,
    // which it keeps alive. Connecting to the signal asks the bus who logind is, and waits for it.
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
