#pragma once
// A second client of the X server, for tests: looks at the screen and at the focus as another
// program would, and stands below the pill as a window that counts the clicks it gets.

#include <QColor>
#include <QPoint>
#include <QRect>

#include <xcb/xcb.h>

namespace quenda::desktop {

class XServer {
public:
    XServer();
    ~XServer();
    XServer(const XServer &) = delete;
    XServer &operator=(const XServer &) = delete;

    /// What a person sees there.
    QColor colourAt(const QPoint &position);
    xcb_window_t focus();
    bool hasWindowManager();

    /// Covers the screen with a plain window below all others.
    void layGround(const QColor &colour);
    /// Clicks that the ground got since it was last asked.
    int clicksOnGround();
    /// A panel at the bottom edge that asks the window manager to keep `height` pixels free.
    void reserveBottom(int height);

private:
    xcb_atom_t atom(const char *name);

    xcb_connection_t *m_connection;
    xcb_screen_t *m_screen;
    xcb_window_t m_ground = XCB_WINDOW_NONE;
};

} // namespace quenda::desktop
