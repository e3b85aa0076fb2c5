#pragma once
// Finding the session bus without touching Qt's D-Bus, whose thread a bus that accepts connections
// but never answers would hold up for good. Any thread, no application object.

#include <QByteArray>
#include <QString>

#include <chrono>
#include <optional>

namespace quenda {

struct SessionBus {
    QString address;
    bool alive = false; ///< it has given a sign of life in time
    bool own = false;   ///< run by this process's own user

    bool usable() const { return alive && own; }
};

/// Where the environment says that the session bus is, or where a user's bus is that no variable
/// names (freedesktop.org on D-Bus, "Well-known Message Bus Instances"). Empty where neither is
/// known.
QByteArray sessionBusAddress();

/// The session bus whose socket on this machine takes connections. Never starts one.
std::optional<SessionBus> findSessionBus(std::chrono::milliseconds patience);

} // namespace quenda
