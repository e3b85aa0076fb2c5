#pragma once
// What the settings file and the log share: paths for the standard library, and folders that other
// users cannot look into. Stateless; any thread.

#include <filesystem>

class QString;

namespace quenda {

/// `path` as the file system spells it.
std::filesystem::path nativePath(const QString &path);

/// Creates `folder`, and the folders above it, where missing; each new one is open to its owner
/// only. Errors are ignored: whoever uses the folder meets them again.
void makePrivateFolder(const std::filesystem::path &folder);

} // namespace quenda
