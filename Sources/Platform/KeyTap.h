#pragma once
// A session-wide, listen-only view of the keyboard. It never consumes, changes or delays an event.
// Main thread only; handlers are called from the event loop, never from inside another call.

#include <cstdint>
#include <functional>
#include <memory>

namespace quenda {

/// Virtual key codes and modifier flags are those of a Mac keyboard on every platform (values of
/// Carbon's HIToolbox/Events.h and of CGEventFlags): a backend translates its own into them, so
/// that the rules built on them are written once.
namespace keys {
inline constexpr int kEscape = 53;
inline constexpr int kRightCommand = 54;
inline constexpr int kRightOption = 61;
inline constexpr int kRightControl = 62;
inline constexpr int kFnGlobe = 63;
inline constexpr int kLeftCommand = 55;
inline constexpr int kLeftOption = 58;
inline constexpr int kLeftControl = 59;
inline constexpr int kV = 9;

inline constexpr std::uint64_t kFlagControl = 0x00040000;
inline constexpr std::uint64_t kFlagAlternate = 0x00080000;
inline constexpr std::uint64_t kFlagCommand = 0x00100000;
inline constexpr std::uint64_t kFlagSecondaryFn = 0x00800000;
} // namespace keys

struct KeyEvent {
    /// The values of CGEventType.
    enum class Type : std::uint32_t {
        KeyDown = 10,
        FlagsChanged = 12,
        TapDisabledByTimeout = 0xFFFFFFFE,
        TapDisabledByUserInput = 0xFFFFFFFF,
    };

    Type type = Type::KeyDown;
    int keyCode = 0;         ///< of the physical key; 0 in the two "disabled" notices
    std::uint64_t flags = 0; ///< the modifiers that are down after the event, side-independent
};

/// A live tap. Destroying it removes the tap.
class KeyTap {
public:
    using Handler = std::function<void(const KeyEvent &)>;

    KeyTap() = default;
    KeyTap(const KeyTap &) = delete;
    KeyTap &operator=(const KeyTap &) = delete;
    virtual ~KeyTap() = default;

    /// False once the system has switched the tap off, or its connection is lost.
    virtual bool isEnabled() const = 0;
    /// Switches the tap on or off. Where the system refuses, isEnabled() keeps its value.
    virtual void setEnabled(bool enabled) = 0;
};

/// Where a tap hears keys.
enum class KeyReach {
    Everywhere,
    OwnKindOfWindows, ///< only while a window of the same window system has the focus (Wayland)
    Nowhere,          ///< the window system has no such thing, and will not have it later
};

class KeyTapFactory {
public:
    KeyTapFactory() = default;
    KeyTapFactory(const KeyTapFactory &) = delete;
    KeyTapFactory &operator=(const KeyTapFactory &) = delete;
    virtual ~KeyTapFactory() = default;

    /// Installs a tap, not yet enabled. Null where the system refuses it (permission missing, no
    /// X server, no XInput2).
    virtual std::unique_ptr<KeyTap> createTap(KeyTap::Handler handler) = 0;

    /// What this session's window system offers, whatever permission the program has.
    virtual KeyReach reach() const = 0;
};

} // namespace quenda
