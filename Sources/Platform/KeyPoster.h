#pragma once
// Types the one keystroke that pastes into the application with the keyboard focus.
// Main thread only; waits for no other application.

namespace quenda {

enum class PostOutcome {
    Posted,
    Refused, ///< no event source or no connection: nothing was typed
};

class KeyPoster {
public:
    KeyPoster() = default;
    KeyPoster(const KeyPoster &) = delete;
    KeyPoster &operator=(const KeyPoster &) = delete;
    virtual ~KeyPoster() = default;

    /// Posts key-down and key-up of the paste shortcut (Command-V; Control-V or what a terminal
    /// takes on Linux) with exactly that shortcut's modifiers: what the user still holds is not
    /// carried over. Call it after the text stands on the pasteboard.
    virtual PostOutcome postPaste() = 0;
};

} // namespace quenda
