#pragma once
// Types the paste shortcut with XTest into the window that has the keyboard focus. The modifiers
// that the user holds are let go for it and pressed again where they are still held, both on the
// very keyboard that holds them: each has a state of its own, and one that was let go or pressed
// by another hand would miss its next stroke. Main thread only; waits for the X server, never for
// another client.

#include "Platform/KeyPoster.h"
#include "Platform/Linux/PasteShortcut.h"
#include "Platform/Linux/SyntheticKeys.h"
#include "Platform/Linux/X11Connection.h"
#include "Platform/Linux/X11Keyboard.h"

#include <memory>
#include <vector>

namespace quenda {

class PrimarySelection;

class X11KeyPoster final : public KeyPoster {
public:
    /// `primary` (may be null) is asked to own PRIMARY before a terminal is made to paste it.
    X11KeyPoster(std::shared_ptr<SyntheticKeys> synthetic, PrimarySelection *primary);
    ~X11KeyPoster() override;

    PostOutcome postPaste() override;

private:
    bool ready();
    PasteShortcut shortcutOfActiveWindow();
    std::vector<std::uint8_t> keysOf(PasteShortcut shortcut, const ModifierKeys &modifiers);
    /// `device`: the keyboard that types, XTest's own by default.
    void type(std::uint8_t keyCode, bool press, std::uint8_t device = 0);
    bool readStrokes();

    std::shared_ptr<SyntheticKeys> m_synthetic;
    PrimarySelection *m_primary;
    std::unique_ptr<X11Connection> m_connection;
    std::uint8_t m_testOpcode = 0;
    std::uint8_t m_inputOpcode = 0;
    std::uint8_t m_inputFirstEvent = 0;
    OwnStrokes m_ownStrokes;
    KeySet m_letGo; ///< keys that the user let go of while we typed
};

} // namespace quenda
