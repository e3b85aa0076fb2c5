#pragma once
// Follows the StatusNotifierItem watcher on the session bus. Qt decides once, when an item is made,
// between that protocol and the X server's tray; an item must be made anew when the watcher comes
// or goes. Changes of the X server's tray are followed by Qt itself. Main thread only.

#include "Platform/StatusTray.h"

#include <QObject>

class QDBusServiceWatcher;

namespace quenda {

class LinuxStatusTray final : public QObject, public StatusTray {
    Q_OBJECT
public:
    explicit LinuxStatusTray(QObject *parent = nullptr);
    ~LinuxStatusTray() override;

    void setHostChangedHandler(std::function<void()> handler) override;

private:
    std::function<void()> m_handler;
};

} // namespace quenda
