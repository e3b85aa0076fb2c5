#pragma once
// The system's own symbols as bitmaps. Main thread only.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quenda::mac {

/// Premultiplied RGBA, 8 bits a channel, rows from the top without padding.
struct SymbolBitmap {
    int size = 0; ///< pixels square
    std::vector<std::uint8_t> pixels;
};

struct SymbolColor {
    double red = 0; ///< sRGB, 0 to 1, like the others
    double green = 0;
    double blue = 0;
    double alpha = 1;
};

/// Draws the named system symbol in one colour, fitted into `pixels` square. None where the system
/// has no such symbol.
std::optional<SymbolBitmap> systemSymbol(const std::string &name, const SymbolColor &color,
                                         int pixels);

} // namespace quenda::mac
