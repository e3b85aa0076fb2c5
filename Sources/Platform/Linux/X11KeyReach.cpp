// How far the key listener reaches in this session.

#include "Platform/Linux/X11Input.h"
#include "Platform/Linux/X11KeyTap.h"

#include <QByteArray>

namespace quenda {

namespace {

// Under XWayland the compositor passes on only the keys that are meant for an X11 window. An X11
// session in which somebody nests a compositor remains one.
bool isWaylandSession() {
    const QByteArray type = qgetenv("XDG_SESSION_TYPE");
    if (type == "wayland" || type == "x11")
        return type == "wayland";
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

} // namespace

// A server that cannot be reached just now says nothing about what it offers.
KeyReach X11KeyTapFactory::reach() const {
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return KeyReach::Nowhere;
    const std::unique_ptr<X11Connection> connection = X11Connection::open();
    if (connection && (inputOpcode(*connection) == 0 || testOpcode(*connection) == 0))
        return KeyReach::Nowhere;
    return isWaylandSession() ? KeyReach::OwnKindOfWindows : KeyReach::Everywhere;
}

} // namespace quenda
