#pragma once
// The running program's side on the session bus: the interface org.quenda.Quenda, and
// org.freedesktop.Application for desktops that start programs over the bus. Owned by the
// platform. Main thread only; never waits for the bus.
//
// Who may call is the bus's decision: it takes connections from its own user (and root) only.
// Where it is another user's bus, nothing is offered on it.

#include "Platform/RemoteControl.h"

#include <QDBusConnection>
#include <QDBusVirtualObject>

#include <optional>

namespace quenda {

class DBusRemoteControl final : public QDBusVirtualObject, public RemoteControl {
    Q_OBJECT
public:
    DBusRemoteControl();
    ~DBusRemoteControl() override;

    void setHandler(Handler handler) override;

    QString introspect(const QString &path) const override;
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;

private:
    void offer();
    void requestName(const QDBusConnection &bus);
    QDBusMessage answer(const QDBusMessage &message, const RemoteRequest &request);

    Handler m_handler;
    bool m_offered = false;
};

} // namespace quenda
