#pragma once
// The clipboard thread's own connection to the X server, with the window that owns and asks for
// selections, atoms by name, and properties read in bounded slices. Clipboard thread only; every
// call waits for the X server at most, never for another client.

#include "Platform/Linux/SelectionProperty.h"

#include <QByteArray>
#include <QHash>

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

namespace quenda {

struct FreeDeleter {
    void operator()(void *memory) const { std::free(memory); }
};
template <typename T>
using XcbPointer = std::unique_ptr<T, FreeDeleter>;

class X11SelectionLink {
public:
    /// Connects to `display` (empty: the environment's). Null where there is no X server to be
    /// reached or it has no XFixes extension.
    static std::unique_ptr<X11SelectionLink> open(const QByteArray &display);
    ~X11SelectionLink();
    X11SelectionLink(const X11SelectionLink &) = delete;
    X11SelectionLink &operator=(const X11SelectionLink &) = delete;

    xcb_connection_t *xcb() const { return m_xcb; }
    int fileDescriptor() const { return xcb_get_file_descriptor(m_xcb); }
    bool broken() const { return xcb_connection_has_error(m_xcb) != 0; }
    /// Owns and requests; its property changes and its end are reported.
    xcb_window_t window() const { return m_window; }
    /// Whether `window` was made by this connection.
    bool isOwnWindow(xcb_window_t window) const;
    /// An unmapped window whose property changes and end are reported.
    xcb_window_t createWindow();
    /// The event code of XFixes' selection notification.
    std::uint8_t selectionNotifyEvent() const { return m_selectionNotify; }
    /// The most bytes that one property change may carry.
    int chunkBytes() const { return m_chunkBytes; }

    /// XCB_NONE where the server fails.
    xcb_atom_t atom(const QByteArray &name);
    /// One answer per name, in one round trip.
    std::vector<xcb_atom_t> atoms(const std::vector<QByteArray> &names);
    /// One answer per atom, in one round trip; empty where there is no such atom or its name is
    /// longer than 255 bytes.
    std::vector<QByteArray> names(const std::vector<xcb_atom_t> &atoms);

    xcb_window_t selectionOwner(xcb_atom_t selection) const;

    /// Reads a property of at most `limit` bytes, and leaves it. Gives up between slices once
    /// `wanted` answers false.
    PropertyValue readProperty(xcb_window_t window, xcb_atom_t property, qsizetype limit,
                               const std::function<bool()> &wanted = {}) const;

private:
    explicit X11SelectionLink(xcb_connection_t *xcb) : m_xcb(xcb) {}
    bool setUp(int screen);
    void remember(const QByteArray &name, xcb_atom_t atom);

    xcb_connection_t *m_xcb;
    xcb_window_t m_root = XCB_NONE;
    xcb_window_t m_window = XCB_NONE;
    std::uint8_t m_selectionNotify = 0;
    int m_chunkBytes = 0;
    QHash<QByteArray, xcb_atom_t> m_atoms;
    QHash<xcb_atom_t, QByteArray> m_names;
};

} // namespace quenda
