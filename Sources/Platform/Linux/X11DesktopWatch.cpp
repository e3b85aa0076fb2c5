#include "Platform/Linux/X11DesktopWatch.h"

#include "Platform/Linux/X11Windows.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QMetaObject>

#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <cstdlib>

namespace quenda {

namespace {

template <typename Reply>
using ReplyPtr = std::unique_ptr<Reply, decltype(&std::free)>;

template <typename Reply>
ReplyPtr<Reply> owned(Reply *reply) {
    return {reply, &std::free};
}

xcb_window_t rootOf(xcb_connection_t *connection, int number) {
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    while (number-- > 0 && screens.rem > 1)
        xcb_screen_next(&screens);
    return screens.data->root;
}

xcb_intern_atom_cookie_t askAtom(xcb_connection_t *connection, const QByteArray &name) {
    return xcb_intern_atom(connection, false, uint16_t(name.size()), name.constData());
}

xcb_atom_t atomOf(xcb_connection_t *connection, xcb_intern_atom_cookie_t cookie) {
    const auto reply = owned(xcb_intern_atom_reply(connection, cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

} // namespace

std::unique_ptr<X11DesktopWatch> X11DesktopWatch::create() {
    const auto *application =
        qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!application || !application->connection())
        return nullptr;
    return std::unique_ptr<X11DesktopWatch>(new X11DesktopWatch(application->connection()));
}

X11DesktopWatch::X11DesktopWatch(xcb_connection_t *connection) {
    const int screen = x11::screenNumber();
    m_root = rootOf(connection, screen);
    const auto selection = askAtom(connection, "_NET_WM_CM_S" + QByteArray::number(screen));
    const auto stacking = askAtom(connection, "_NET_CLIENT_LIST_STACKING");
    m_compositorSelection = atomOf(connection, selection);
    m_stackingProperty = atomOf(connection, stacking);

    const xcb_query_extension_reply_t *xfixes = xcb_get_extension_data(connection, &xcb_xfixes_id);
    if (xfixes && xfixes->present) {
        const auto version = owned(xcb_xfixes_query_version_reply(
            connection, xcb_xfixes_query_version(connection, 1, 0), nullptr));
        if (version) {
            m_selectionNotify = xfixes->first_event + XCB_XFIXES_SELECTION_NOTIFY;
            xcb_xfixes_select_selection_input(
                connection, m_root, m_compositorSelection,
                XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                    XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                    XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
        }
    }
    // Asked after the selection is watched: no change falls between.
    const auto owner = owned(xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, m_compositorSelection), nullptr));
    m_compositing = owner && owner->owner != XCB_WINDOW_NONE;
    qGuiApp->installNativeEventFilter(this);
}

X11DesktopWatch::~X11DesktopWatch() {
    if (qGuiApp)
        qGuiApp->removeNativeEventFilter(this);
}

bool X11DesktopWatch::nativeEventFilter(const QByteArray &type, void *message, qintptr *) {
    if (type != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    const int number = event->response_type & 0x7f;
    if (number == m_selectionNotify) {
        const auto *change = reinterpret_cast<const xcb_xfixes_selection_notify_event_t *>(event);
        if (change->selection == m_compositorSelection)
            setCompositing(change->owner != XCB_WINDOW_NONE);
    } else if (number == XCB_PROPERTY_NOTIFY) {
        const auto *change = reinterpret_cast<const xcb_property_notify_event_t *>(event);
        if (change->window == m_root && change->atom == m_stackingProperty && onRestacked)
            onRestacked();
    }
    return false;
}

void X11DesktopWatch::setCompositing(bool compositing) {
    if (m_compositing == compositing)
        return;
    m_compositing = compositing;
    // Windows will be made anew; not in the middle of Qt's reading of events.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (onCompositingChanged)
                onCompositingChanged();
        },
        Qt::QueuedConnection);
}

} // namespace quenda
