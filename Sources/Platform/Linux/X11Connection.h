#pragma once
// One connection of our own to the X server, apart from Qt's: an error on it never ends the
// program. Owned by the part that opened it. Main thread only. Every wait is for the X server
// alone, never for another client.

#include <QByteArray>
#include <QHash>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>

struct xcb_connection_t;

namespace quenda {

/// Replies and events that xcb allocates with malloc.
struct MallocDeleter {
    void operator()(void *memory) const { std::free(memory); }
};
template <typename T>
using XcbOwned = std::unique_ptr<T, MallocDeleter>;

/// xcb_connect for every thread of the program: the library that finds the display's authority
/// keeps the name of its file in a variable of its own. Waits for the X server alone, also where
/// another thread connects at the same time.
xcb_connection_t *connectToX(const char *display, int *screen);

class X11Connection {
public:
    /// Connects to the display named by $DISPLAY. Null where there is none or it refuses.
    static std::unique_ptr<X11Connection> open();
    /// Makes `connection` usable: opens it where it is null or lost. False where that fails;
    /// `connection` is null then.
    static bool ensure(std::unique_ptr<X11Connection> &connection);

    ~X11Connection();
    X11Connection(const X11Connection &) = delete;
    X11Connection &operator=(const X11Connection &) = delete;

    xcb_connection_t *get() const { return m_connection; }
    std::uint32_t root() const { return m_root; }
    /// Readable when something has arrived.
    int fileDescriptor() const;
    /// The connection is lost; nothing will come or go any more.
    bool hasError() const;

    /// The atom of `name`, created where the server lacks it; one round trip the first time.
    /// 0 where the connection is lost.
    std::uint32_t atom(const QByteArray &name);
    /// Asks for several atoms in one round trip, so that atom() answers from memory.
    void prefetchAtoms(std::initializer_list<QByteArray> names);

    /// The server's clock is past everything sent so far when this returns. False on a lost
    /// connection.
    bool sync();
    /// Throws away the events and errors that have arrived.
    void discardEvents();

    /// The first 32-bit value of a window's property of the given type, 0 where there is none.
    std::uint32_t property32(std::uint32_t window, const QByteArray &property, std::uint32_t type);

private:
    X11Connection(xcb_connection_t *connection, std::uint32_t root);

    xcb_connection_t *m_connection;
    std::uint32_t m_root;
    QHash<QByteArray, std::uint32_t> m_atoms;
};

} // namespace quenda
