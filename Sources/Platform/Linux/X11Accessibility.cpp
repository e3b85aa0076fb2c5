#include "Platform/Linux/X11Accessibility.h"

#include "Platform/Linux/X11Input.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <span>

namespace quenda {

namespace {

// The longest _NET_SUPPORTED that is looked at, in atoms; window managers list about a hundred.
constexpr std::uint32_t kSupportedLimit = 1024;

} // namespace

X11Accessibility::X11Accessibility() = default;
X11Accessibility::~X11Accessibility() = default;

bool X11Accessibility::ready() const {
    if (m_connection) {
        m_connection->discardEvents();
        if (m_connection->sync())
            return true;
    }
    m_connection = X11Connection::open();
    m_capable = m_connection && inputOpcode(*m_connection) != 0 && testOpcode(*m_connection) != 0;
    if (m_connection)
        m_connection->prefetchAtoms(
            {"_NET_SUPPORTING_WM_CHECK", "_NET_SUPPORTED", "_NET_ACTIVE_WINDOW"});
    return m_connection != nullptr;
}

bool X11Accessibility::isTrusted(TrustPrompt) const {
    return ready() && m_capable;
}

bool X11Accessibility::focusedElementExists() const {
    if (!ready())
        return false;
    if (managerTellsActiveWindow())
        return isViewable(
            m_connection->property32(m_connection->root(), "_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW));
    const XcbOwned<xcb_get_input_focus_reply_t> focus(xcb_get_input_focus_reply(
        m_connection->get(), xcb_get_input_focus(m_connection->get()), nullptr));
    return focus && focus->focus != XCB_INPUT_FOCUS_NONE &&
           focus->focus != XCB_INPUT_FOCUS_POINTER_ROOT;
}

// The properties of a window manager that is gone may still be there; its check window is not.
// (The input focus itself says less: some managers focus a helper window when nothing is active.)
bool X11Accessibility::managerTellsActiveWindow() const {
    const std::uint32_t check =
        m_connection->property32(m_connection->root(), "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW);
    if (check == XCB_WINDOW_NONE ||
        m_connection->property32(check, "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW) != check)
        return false;
    const XcbOwned<xcb_get_property_reply_t> supported(xcb_get_property_reply(
        m_connection->get(),
        xcb_get_property(m_connection->get(), 0, m_connection->root(),
                         m_connection->atom("_NET_SUPPORTED"), XCB_ATOM_ATOM, 0, kSupportedLimit),
        nullptr));
    if (!supported || supported->format != 32)
        return false;
    const std::span atoms(static_cast<const xcb_atom_t *>(xcb_get_property_value(supported.get())),
                          std::size_t(xcb_get_property_value_length(supported.get())) /
                              sizeof(xcb_atom_t));
    return std::find(atoms.begin(), atoms.end(), m_connection->atom("_NET_ACTIVE_WINDOW")) !=
           atoms.end();
}

// A manager may go on naming a window that was destroyed, until another one becomes active.
bool X11Accessibility::isViewable(std::uint32_t window) const {
    if (window == XCB_WINDOW_NONE)
        return false;
    const XcbOwned<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        m_connection->get(), xcb_get_window_attributes(m_connection->get(), window), nullptr));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

} // namespace quenda
