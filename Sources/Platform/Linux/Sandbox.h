#pragma once
// Whether the program runs inside a sandbox whose portals govern what it may use.

#include <QByteArray>
#include <QString>

#include <optional>

namespace quenda {

/// The identity under which the desktop's portals know this program; none outside of a sandbox.
/// `flatpakInfo`: the file that Flatpak puts into each sandbox. `snapInstance`: the environment's
/// SNAP_INSTANCE_NAME, empty where there is none.
std::optional<QString> sandboxedApplication(const QString &flatpakInfo,
                                            const QByteArray &snapInstance);
/// The same for the file system and the environment as they are.
std::optional<QString> sandboxedApplication();

} // namespace quenda
