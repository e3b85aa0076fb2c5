#pragma once
// What the application bundle says of itself, and the user's folders. UTF-8. Any thread.

#include <optional>
#include <string>

namespace quenda::mac {

/// The string under `key` of the bundle's info dictionary; none where it is missing or another
/// type.
std::optional<std::string> bundleInfo(const std::string &key);
std::optional<std::string> bundleIdentifier();
std::string bundlePath();
std::optional<std::string> bundleResourcePath();

/// The first Application Support folder of the user domain; empty where there is none.
std::string applicationSupportFolder();
/// The user's Library folder; empty where there is none.
std::string libraryFolder();

} // namespace quenda::mac
