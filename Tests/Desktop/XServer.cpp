#include "Desktop/XServer.h"

#include <array>
#include <cstdlib>
#include <cstring>

namespace quenda::desktop {

XServer::XServer() : m_connection(xcb_connect(nullptr, nullptr)) {
    m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
}

XServer::~XServer() {
    xcb_disconnect(m_connection);
}

QColor XServer::colourAt(const QPoint &position) {
    xcb_get_image_reply_t *reply =
        xcb_get_image_reply(m_connection,
                            xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, m_screen->root,
                                          int16_t(position.x()), int16_t(position.y()), 1, 1, ~0U),
                            nullptr);
    if (!reply)
        return {};
    uint32_t pixel = 0;
    if (xcb_get_image_data_length(reply) >= 4)
        std::memcpy(&pixel, xcb_get_image_data(reply), 4);
    std::free(reply);
    return QColor::fromRgb(pixel & 0xFFFFFF);
}

xcb_window_t XServer::focus() {
    xcb_get_input_focus_reply_t *reply =
        xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr);
    const xcb_window_t window = reply ? reply->focus : xcb_window_t(XCB_WINDOW_NONE);
    std::free(reply);
    return window;
}

xcb_atom_t XServer::atom(const char *name) {
    xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, false, uint16_t(std::strlen(name)), name),
        nullptr);
    const xcb_atom_t found = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(reply);
    return found;
}

bool XServer::hasWindowManager() {
    xcb_get_property_reply_t *reply = xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, false, m_screen->root, atom("_NET_SUPPORTING_WM_CHECK"),
                         XCB_ATOM_WINDOW, 0, 1),
        nullptr);
    const bool has = reply && xcb_get_property_value_length(reply) == 4;
    std::free(reply);
    return has;
}

void XServer::layGround(const QColor &colour) {
    m_ground = xcb_generate_id(m_connection);
    const std::array<uint32_t, 3> values = {uint32_t(colour.rgb() & 0xFFFFFF), 1,
                                            XCB_EVENT_MASK_BUTTON_PRESS};
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_ground, m_screen->root, 0, 0,
                      m_screen->width_in_pixels, m_screen->height_in_pixels, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK,
                      values.data());
    const uint32_t below = XCB_STACK_MODE_BELOW;
    xcb_configure_window(m_connection, m_ground, XCB_CONFIG_WINDOW_STACK_MODE, &below);
    xcb_map_window(m_connection, m_ground);
    focus(); // a round trip: the server has done all that
}

int XServer::clicksOnGround() {
    focus();
    int clicks = 0;
    while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
        clicks += (event->response_type & 0x7f) == XCB_BUTTON_PRESS ? 1 : 0;
        std::free(event);
    }
    return clicks;
}

void XServer::reserveBottom(int height) {
    const xcb_window_t panel = xcb_generate_id(m_connection);
    const auto width = uint16_t(m_screen->width_in_pixels);
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, panel, m_screen->root, 0,
                      int16_t(m_screen->height_in_pixels - height), width, uint16_t(height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    const xcb_atom_t dock = atom("_NET_WM_WINDOW_TYPE_DOCK");
    const std::array<uint32_t, 12> strut = {0, 0, 0, uint32_t(height),   0, 0, 0, 0,
                                            0, 0, 0, uint32_t(width - 1)};
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, panel, atom("_NET_WM_WINDOW_TYPE"),
                        XCB_ATOM_ATOM, 32, 1, &dock);
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, panel, atom("_NET_WM_STRUT_PARTIAL"),
                        XCB_ATOM_CARDINAL, 32, strut.size(), strut.data());
    xcb_map_window(m_connection, panel);
    focus();
}

} // namespace quenda::desktop
