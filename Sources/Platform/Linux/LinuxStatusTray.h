#pragma once
// Follows who shows status items: a host of StatusNotifierItem on the session bus, or the X
// server's tray. Qt chooses between the two once in a program's life, when the first item is made,
// and the X server's tray where neither is there yet: so none may be made before one of them is.
// From then on Qt follows the X server's tray itself; an item on the bus is made anew for every
// host. Main thread only.

#include "Platform/StatusTray.h"

#include <QAbstractNativeEventFilter>
#include <QObject>

namespace quenda {

class LinuxStatusTray final : public QObject,
                              public StatusTray,
                              private QAbstractNativeEventFilter {
    Q_OBJECT
public:
    explicit LinuxStatusTray(QObject *parent = nullptr);
    ~LinuxStatusTray() override;

    /// False also until the bus has been asked, which decides where both kinds are there.
    bool hasHost() const override;
    void setHostChangedHandler(std::function<void()> handler) override;

private Q_SLOTS:
    void askForItemHost();

private:
    void watchBus();
    void watchX11();
    bool nativeEventFilter(const QByteArray &type, void *message, qintptr *result) override;
    void setItemHost(bool present);
    void setX11Tray();

    std::function<void()> m_handler;
    bool m_busAnswered = false;
    bool m_itemHost = false;
    bool m_x11Tray = false; ///< is or was there
    unsigned int m_trayAtom = 0;
    unsigned int m_managerAtom = 0;
};

} // namespace quenda
