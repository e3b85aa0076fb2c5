#pragma once
// Questions to the X server about its keyboard: what is down, which keys are modifiers, which key
// gives which symbol. One or a few round trips to the server each, none to another client. Every
// answer is empty on a lost connection.

#include <bitset>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

namespace quenda {

class X11Connection;

/// One bit per X key code (8 to 255).
using KeySet = std::bitset<256>;

/// The 32 bytes of the QueryKeymap reply as a set.
KeySet keySet(const std::uint8_t *keymap);

/// The keys that the server holds for down now, whoever pressed them.
KeySet keysDown(X11Connection &connection);

/// What one of the keyboards that feed the shared one holds for down.
struct KeyboardDevice {
    std::uint8_t device = 0; ///< its XInput id
    KeySet down;
};
/// All of them, XTest's own among them. A key is down for the server while one of them has it down.
std::vector<KeyboardDevice> keyboardDevices(X11Connection &connection);

struct ModifierKeys {
    KeySet shift;
    KeySet control;
    KeySet
        held; ///< every modifier that acts while it is held: not Caps Lock, Num Lock and the like
};
ModifierKeys modifierKeys(X11Connection &connection);

/// The keys that give one of `keysyms` in any group and level.
KeySet keysGiving(X11Connection &connection, std::initializer_list<std::uint32_t> keysyms);

/// The key that gives `keysym` without modifiers in the layout that is active now; failing that, in
/// any other of the user's layouts.
std::optional<std::uint8_t> keyGiving(X11Connection &connection, std::uint32_t keysym);

} // namespace quenda
