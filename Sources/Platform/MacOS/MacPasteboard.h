#pragma once
// The general pasteboard in plain C++ values. Main thread only.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace quenda::mac {

/// One item's representations in the owner's order: uniform type identifier and bytes.
using NativePasteboardItem = std::vector<std::pair<std::string, std::vector<std::uint8_t>>>;
using NativePasteboardItems = std::vector<NativePasteboardItem>;

/// A copy of every item with the data of each of its types; what cannot be read is left out.
NativePasteboardItems readGeneralPasteboard();
void clearGeneralPasteboard();
/// Clears the pasteboard and writes UTF-8 `text` as its plain-string type.
bool writeGeneralPasteboardString(const std::string &text);
/// Clears the pasteboard and writes `items` in one operation.
bool writeGeneralPasteboardItems(const NativePasteboardItems &items);
std::int64_t generalPasteboardChangeCount();

} // namespace quenda::mac
