#include "Platform/Linux/LinuxStatusTray.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>

#include <utility>

namespace quenda {

LinuxStatusTray::LinuxStatusTray(QObject *parent) : QObject(parent) {
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    auto *watcher = new QDBusServiceWatcher(QStringLiteral("org.kde.StatusNotifierWatcher"), bus,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, [this] {
        if (m_handler)
            m_handler();
    });
}

LinuxStatusTray::~LinuxStatusTray() = default;

void LinuxStatusTray::setHostChangedHandler(std::function<void()> handler) {
    m_handler = std::move(handler);
}

} // namespace quenda
