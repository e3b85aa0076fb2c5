#include "Platform/Linux/X11KeyCodes.h"

#include "Platform/KeyTap.h"

namespace quenda {

std::optional<MacKey> macKey(std::uint8_t xKeyCode) {
    switch (xKeyCode) {
    case 9: // KEY_ESC
        return MacKey{keys::kEscape, 0};
    case 108: // KEY_RIGHTALT
        return MacKey{keys::kRightOption, keys::kFlagAlternate};
    case 64: // KEY_LEFTALT
        return MacKey{keys::kLeftOption, keys::kFlagAlternate};
    case 105: // KEY_RIGHTCTRL
        return MacKey{keys::kRightControl, keys::kFlagControl};
    case 37: // KEY_LEFTCTRL
        return MacKey{keys::kLeftControl, keys::kFlagControl};
    case 134: // KEY_RIGHTMETA
        return MacKey{keys::kRightCommand, keys::kFlagCommand};
    case 133: // KEY_LEFTMETA
        return MacKey{keys::kLeftCommand, keys::kFlagCommand};
    case 151: // KEY_WAKEUP: what the Fn key of many laptops sends; KEY_FN itself has no X code
        return fnKey();
    default:
        return std::nullopt;
    }
}

MacKey fnKey() {
    return {keys::kFnGlobe, keys::kFlagSecondaryFn};
}

} // namespace quenda
