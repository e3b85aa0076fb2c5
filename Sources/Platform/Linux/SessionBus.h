#pragma once
// Finding the session bus without touching Qt's D-Bus, whose thread a bus that accepts connections
// but never answers would hold up for good. Any thread, no application object.

#include <QString>

#include <chrono>
#include <optional>

namespace quenda {

struct SessionBus {
    QString address;
    bool own = false; ///< run by this process's own user
};

/// The session bus, if there is one on this machine and it gives a sign of life in time. Never
/// starts one.
std::optional<SessionBus> liveSessionBus(std::chrono::milliseconds patience);

} // namespace quenda
