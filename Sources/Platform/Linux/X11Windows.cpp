#include "Platform/Linux/X11Windows.h"

#include <QGuiApplication>
#include <QWindow>

#include <xcb/shape.h>
#include <xcb/xcb.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace quenda::x11 {

namespace {

xcb_connection_t *connection() {
    const auto *application =
        qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return application ? application->connection() : nullptr;
}

template <std::size_t count>
std::array<xcb_atom_t, count> atoms(xcb_connection_t *server,
                                    const std::array<std::string_view, count> &names) {
    std::array<xcb_intern_atom_cookie_t, count> cookies;
    for (std::size_t i = 0; i < count; ++i)
        cookies[i] = xcb_intern_atom(server, false, uint16_t(names[i].size()), names[i].data());
    std::array<xcb_atom_t, count> found{};
    for (std::size_t i = 0; i < count; ++i) {
        xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(server, cookies[i], nullptr);
        found[i] = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        std::free(reply);
    }
    return found;
}

// Row by row what lies within round corners, pixels counted by their centres.
std::vector<xcb_rectangle_t> roundedRows(int width, int height, double radius) {
    std::vector<xcb_rectangle_t> rows;
    const int curved = int(std::ceil(radius));
    const auto add = [&rows, width](int y, int inset, int lines) {
        rows.push_back({int16_t(inset), int16_t(y), uint16_t(std::max(width - 2 * inset, 0)),
                        uint16_t(lines)});
    };
    const auto insetOf = [radius](int row) {
        const double rise = std::max(radius - (row + 0.5), 0.0);
        return int(std::ceil(radius - std::sqrt(radius * radius - rise * rise) - 0.5));
    };
    for (int row = 0; row < curved; ++row)
        add(row, insetOf(row), 1);
    if (height > 2 * curved)
        add(curved, 0, height - 2 * curved);
    for (int row = curved - 1; row >= 0; --row)
        add(height - 1 - row, insetOf(row), 1);
    return rows;
}

} // namespace

void markAsFloating(QWindow *window) {
    xcb_connection_t *const server = connection();
    if (!server || !window)
        return;
    const auto [typeProperty, type, stateProperty, above, sticky, noTaskbar, noPager, desktop] =
        atoms<8>(server,
                 {"_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_NOTIFICATION", "_NET_WM_STATE",
                  "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR",
                  "_NET_WM_STATE_SKIP_PAGER", "_NET_WM_DESKTOP"});
    const auto id = xcb_window_t(window->winId());
    const std::array states = {above, sticky, noTaskbar, noPager};
    const uint32_t everyDesktop = 0xFFFFFFFF;
    xcb_change_property(server, XCB_PROP_MODE_REPLACE, id, typeProperty, XCB_ATOM_ATOM, 32, 1,
                        &type);
    xcb_change_property(server, XCB_PROP_MODE_REPLACE, id, stateProperty, XCB_ATOM_ATOM, 32,
                        states.size(), states.data());
    xcb_change_property(server, XCB_PROP_MODE_REPLACE, id, desktop, XCB_ATOM_CARDINAL, 32, 1,
                        &everyDesktop);
}

void cutCorners(QWindow *window, int radius, bool visibly) {
    xcb_connection_t *const server = connection();
    if (!server || !window || !window->handle())
        return;
    const xcb_query_extension_reply_t *shape = xcb_get_extension_data(server, &xcb_shape_id);
    if (!shape || !shape->present)
        return;
    const double ratio = window->devicePixelRatio();
    const std::vector<xcb_rectangle_t> rows =
        roundedRows(int(std::lround(window->width() * ratio)),
                    int(std::lround(window->height() * ratio)), radius * ratio);
    const auto id = xcb_window_t(window->winId());
    const auto cut = [&](xcb_shape_sk_t kind) {
        xcb_shape_rectangles(server, XCB_SHAPE_SO_SET, kind, XCB_CLIP_ORDERING_YX_BANDED, id, 0, 0,
                             uint32_t(rows.size()), rows.data());
    };
    cut(XCB_SHAPE_SK_INPUT);
    if (visibly)
        cut(XCB_SHAPE_SK_BOUNDING);
}

void activate(QWindow *window) {
    xcb_connection_t *const server = connection();
    if (!server || !window)
        return;
    const auto [message] = atoms<1>(server, {"_NET_ACTIVE_WINDOW"});
    const auto id = xcb_window_t(window->winId());
    xcb_client_message_event_t event;
    std::memset(&event, 0, sizeof event);
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = id;
    event.type = message;
    event.data.data32[0] = 2; // on behalf of a person, as a pager does
    event.data.data32[1] = XCB_CURRENT_TIME;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(server)).data->root;
    xcb_send_event(server, false, root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char *>(&event));
    xcb_flush(server);
}

int screenNumber() {
    char *host = nullptr;
    int display = 0;
    int screen = 0;
    if (!xcb_parse_display(nullptr, &host, &display, &screen))
        return 0;
    std::free(host);
    return screen;
}

} // namespace quenda::x11
