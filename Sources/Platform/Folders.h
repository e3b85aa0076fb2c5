#pragma once
// The user's folders that the program writes to. Installed once at start, before anything else.

#include <QString>

namespace quenda {

struct Folders {
    QString applicationSupport; ///< absolute; holds one folder per program
    QString logs;               ///< absolute; holds one folder per program
    /// What stands before a program's folder name in a stored path that the migration of the
    /// former data folder rewrites: "/Application Support/" on macOS, the application-support
    /// folder's own path and "/" elsewhere.
    QString migratedPathPrefix;

    /// The installed folders.
    static const Folders &current();
    static void install(Folders folders);
};

} // namespace quenda
