#include "Platform/Linux/X11Accessibility.h"

#include "Platform/Linux/X11Input.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QInputMethodQueryEvent>
#include <QWindow>

#include <xcb/xcb.h>

#include <algorithm>
#include <span>

namespace quenda {

namespace {

// The longest _NET_SUPPORTED that is looked at, in atoms; window managers list about a hundred.
constexpr std::uint32_t kSupportedLimit = 1024;

xcb_get_property_cookie_t askWindow(xcb_connection_t *x, std::uint32_t window, std::uint32_t name) {
    return xcb_get_property(x, 0, window, name, XCB_ATOM_WINDOW, 0, 1);
}

std::uint32_t answeredWindow(xcb_connection_t *x, xcb_get_property_cookie_t asked) {
    const XcbOwned<xcb_get_property_reply_t> reply(xcb_get_property_reply(x, asked, nullptr));
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4)
        return XCB_WINDOW_NONE;
    return *static_cast<const std::uint32_t *>(xcb_get_property_value(reply.get()));
}

bool lists(const xcb_get_property_reply_t &property, xcb_atom_t atom) {
    if (property.format != 32)
        return false;
    const std::span atoms(static_cast<const xcb_atom_t *>(xcb_get_property_value(&property)),
                          std::size_t(xcb_get_property_value_length(&property)) /
                              sizeof(xcb_atom_t));
    return std::find(atoms.begin(), atoms.end(), atom) != atoms.end();
}

// Of our own windows we know more than that they have the focus: an alert that came to the front
// just before would swallow the words, and nobody would be told.
bool isOursAndTakesNoText(std::uint32_t id) {
    const QWindowList windows = QGuiApplication::topLevelWindows();
    const auto ours = std::find_if(windows.begin(), windows.end(), [id](const QWindow *window) {
        return window->handle() != nullptr && window->winId() == id;
    });
    if (ours == windows.end())
        return false;
    QObject *const focused = (*ours)->focusObject();
    if (!focused) // of a window that is just going
        return true;
    QInputMethodQueryEvent question(Qt::ImEnabled | Qt::ImReadOnly);
    QCoreApplication::sendEvent(focused, &question);
    return !question.value(Qt::ImEnabled).toBool() || question.value(Qt::ImReadOnly).toBool();
}

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

// What can be asked together is, for each round trip is a wait: the root window's properties, then
// what they name. The properties of a window manager that is gone may still be there; its check
// window is not. (The input focus itself says less: some managers focus a helper window when
// nothing is active.) A manager may go on naming a window that was destroyed, until another one
// becomes active.
bool X11Accessibility::focusedElementExists() const {
    if (!ready())
        return false;
    xcb_connection_t *const x = m_connection->get();
    const std::uint32_t root = m_connection->root();
    const std::uint32_t checkAtom = m_connection->atom("_NET_SUPPORTING_WM_CHECK");
    const std::uint32_t activeAtom = m_connection->atom("_NET_ACTIVE_WINDOW");

    const auto askedCheck = askWindow(x, root, checkAtom);
    const auto askedActive = askWindow(x, root, activeAtom);
    const auto askedSupported = xcb_get_property(x, 0, root, m_connection->atom("_NET_SUPPORTED"),
                                                 XCB_ATOM_ATOM, 0, kSupportedLimit);
    const auto askedFocus = xcb_get_input_focus(x);
    const std::uint32_t check = answeredWindow(x, askedCheck);
    const std::uint32_t active = answeredWindow(x, askedActive);
    const XcbOwned<xcb_get_property_reply_t> supported(
        xcb_get_property_reply(x, askedSupported, nullptr));
    const XcbOwned<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(x, askedFocus, nullptr));

    const auto askedOfCheck = askWindow(x, check, checkAtom);
    const auto askedOfActive = xcb_get_window_attributes(x, active);
    const bool managed = check != XCB_WINDOW_NONE && answeredWindow(x, askedOfCheck) == check;
    const XcbOwned<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(x, askedOfActive, nullptr));
    if (managed && supported && lists(*supported, activeAtom))
        return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
               !isOursAndTakesNoText(active);
    return focus && focus->focus != XCB_INPUT_FOCUS_NONE &&
           focus->focus != XCB_INPUT_FOCUS_POINTER_ROOT && !isOursAndTakesNoText(focus->focus);
}

} // namespace quenda
