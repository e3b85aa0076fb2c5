#pragma once
// The physical keys that matter here, from X key codes into those of a Mac keyboard. Pure.
//
// X key codes under evdev and libinput, thus on every present-day server, are the kernel's key
// codes (linux/input-event-codes.h) plus 8, whatever the layout: the right Alt key is 108 also
// where the layout makes it AltGr. Where the kernel's own table moves a key, its code moves along.

#include <cstdint>
#include <optional>

namespace quenda {

struct MacKey {
    int keyCode;        ///< one of keys::k...
    std::uint64_t flag; ///< the modifier flag it carries, 0 for Escape
};

/// None for a key that nobody listens for.
std::optional<MacKey> macKey(std::uint8_t xKeyCode);

/// What a key with the symbols XF86WakeUp or XF86Fn is, whichever code it has.
MacKey fnKey();

/// Those of the modern key codes that are needed to type.
namespace xkeys {
inline constexpr std::uint8_t kLeftControl = 37;
inline constexpr std::uint8_t kLeftShift = 50;
inline constexpr std::uint8_t kV = 55;
inline constexpr std::uint8_t kInsert = 118;
} // namespace xkeys

} // namespace quenda
