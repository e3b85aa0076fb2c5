#pragma once
// The user's hand and another program, for tests on a real X server: presses keys, opens windows
// that record what reaches them.

#include "EventLoopWait.h"
#include "Platform/Linux/X11Connection.h"
#include "Platform/Linux/X11Keyboard.h"

#include <QByteArray>
#include <QStringList>

#include <optional>
#include <vector>

namespace quenda {

/// Runs a program with its arguments and waits for it. True where it exits with 0.
bool runProgram(const QStringList &command);

struct KeyStroke {
    bool press;
    int keyCode;
    int state; ///< the core protocol's modifier mask before the stroke, without the group

    bool operator==(const KeyStroke &) const = default;
};

class X11TestClient {
public:
    /// Connects to $DISPLAY; a failure ends the test program.
    X11TestClient();
    ~X11TestClient();

    /// Through XTest, as xdotool and remote desktops do it.
    void press(int keyCode);
    void release(int keyCode);
    void tap(int keyCode);
    /// Through the server's own keyboard device, as hardware does it.
    void pressHardware(int keyCode);
    void releaseHardware(int keyCode);
    bool isDown(int keyCode);
    KeySet down();
    void releaseAll();
    /// Bits of the locked modifiers and the like, as the core protocol has them now.
    int modifierState();

    /// Opens a window of the given WM_CLASS and waits until it has the focus.
    std::uint32_t openWindow(const QByteArray &instance = "editor",
                             const QByteArray &windowClass = "Editor");
    void closeWindow(std::uint32_t window);
    /// The key strokes that reached the windows since the last call.
    std::vector<KeyStroke> strokes();

    bool grabKeyboard();
    void ungrabKeyboard();
    void setInputFocus(std::uint32_t window);
    void setActiveWindowProperty(std::uint32_t window);
    /// Gives a key one symbol.
    void setSymbol(int keyCode, std::uint32_t keysym);
    /// Ends the connection of the client that owns the top-level window of that name.
    bool killOwnerOf(const QByteArray &windowName);

    X11Connection &connection() { return *m_connection; }

private:
    void askForFocus(std::uint32_t window);
    void fake(int type, int keyCode, int device);

    std::unique_ptr<X11Connection> m_connection;
    int m_firstInputEvent = 0;
    int m_hardware = 0; ///< the server's own keyboard device
};

} // namespace quenda
