#include "Platform/Linux/X11Connection.h"

#include <xcb/xcb.h>

#include <mutex>
#include <vector>

namespace quenda {

xcb_connection_t *connectToX(const char *display, int *screen) {
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    return xcb_connect(display, screen);
}

std::unique_ptr<X11Connection> X11Connection::open() {
    int screenNumber = 0;
    xcb_connection_t *connection = connectToX(nullptr, &screenNumber);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return nullptr;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; screenNumber > 0 && screens.rem > 1; --screenNumber)
        xcb_screen_next(&screens);
    if (screens.rem <= 0) {
        xcb_disconnect(connection);
        return nullptr;
    }
    return std::unique_ptr<X11Connection>(new X11Connection(connection, screens.data->root));
}

bool X11Connection::ensure(std::unique_ptr<X11Connection> &connection) {
    if (!connection || connection->hasError())
        connection = open();
    return connection != nullptr;
}

X11Connection::X11Connection(xcb_connection_t *connection, std::uint32_t root)
    : m_connection(connection),
      m_root(root) {}

X11Connection::~X11Connection() {
    xcb_disconnect(m_connection);
}

int X11Connection::fileDescriptor() const {
    return xcb_get_file_descriptor(m_connection);
}

bool X11Connection::hasError() const {
    return xcb_connection_has_error(m_connection) != 0;
}

std::uint32_t X11Connection::atom(const QByteArray &name) {
    if (!m_atoms.contains(name))
        prefetchAtoms({name});
    return m_atoms.value(name, XCB_ATOM_NONE);
}

void X11Connection::prefetchAtoms(std::initializer_list<QByteArray> names) {
    std::vector<xcb_intern_atom_cookie_t> cookies;
    cookies.reserve(names.size());
    for (const QByteArray &name : names)
        cookies.push_back(
            xcb_intern_atom(m_connection, 0, std::uint16_t(name.size()), name.constData()));
    auto cookie = cookies.begin();
    for (const QByteArray &name : names) {
        const XcbOwned<xcb_intern_atom_reply_t> reply(
            xcb_intern_atom_reply(m_connection, *cookie++, nullptr));
        if (reply)
            m_atoms.insert(name, reply->atom);
    }
}

bool X11Connection::sync() {
    const XcbOwned<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    return reply != nullptr;
}

void X11Connection::discardEvents() {
    while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(m_connection)}) {
    }
}

std::uint32_t X11Connection::property32(std::uint32_t window, const QByteArray &property,
                                        std::uint32_t type) {
    const XcbOwned<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, atom(property), type, 0, 1),
        nullptr));
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4)
        return 0;
    return *static_cast<const std::uint32_t *>(xcb_get_property_value(reply.get()));
}

} // namespace quenda
