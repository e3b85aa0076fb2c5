#include "X11TestClient.h"

#include <QProcess>

#include <gtest/gtest.h>
#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

namespace quenda {

bool runProgram(const QStringList &command) {
    return QProcess::execute(command.first(), command.mid(1)) == 0;
}

X11TestClient::X11TestClient() : m_connection(X11Connection::open()) {
    if (!m_connection)
        qFatal("no X server");
    xcb_connection_t *connection = m_connection->get();
    m_firstInputEvent = xcb_get_extension_data(connection, &xcb_input_id)->first_event;
    const XcbOwned<xcb_input_xi_query_version_reply_t> version(xcb_input_xi_query_version_reply(
        connection, xcb_input_xi_query_version(connection, 2, 2), nullptr));
    const XcbOwned<xcb_input_xi_query_device_reply_t> devices(xcb_input_xi_query_device_reply(
        connection, xcb_input_xi_query_device(connection, XCB_INPUT_DEVICE_ALL), nullptr));
    for (auto device = xcb_input_xi_query_device_infos_iterator(devices.get()); device.rem > 0;
         xcb_input_xi_device_info_next(&device)) {
        const QByteArray name(xcb_input_xi_device_info_name(device.data), device.data->name_len);
        if (device.data->type == XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD && !name.contains("XTEST"))
            m_hardware = device.data->deviceid;
    }
}

X11TestClient::~X11TestClient() {
    releaseAll();
}

void X11TestClient::fake(int type, int keyCode, int device) {
    xcb_test_fake_input(m_connection->get(), std::uint8_t(type), std::uint8_t(keyCode),
                        XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, std::uint8_t(device));
    m_connection->sync();
}

void X11TestClient::press(int keyCode) {
    fake(XCB_KEY_PRESS, keyCode, 0);
}

void X11TestClient::release(int keyCode) {
    fake(XCB_KEY_RELEASE, keyCode, 0);
}

void X11TestClient::tap(int keyCode) {
    press(keyCode);
    release(keyCode);
}

void X11TestClient::pressHardware(int keyCode) {
    fake(m_firstInputEvent + XCB_INPUT_DEVICE_KEY_PRESS, keyCode, m_hardware);
}

void X11TestClient::releaseHardware(int keyCode) {
    fake(m_firstInputEvent + XCB_INPUT_DEVICE_KEY_RELEASE, keyCode, m_hardware);
}

KeySet X11TestClient::down() {
    return keysDown(*m_connection);
}

bool X11TestClient::isDown(int keyCode) {
    return down()[std::size_t(keyCode)];
}

void X11TestClient::releaseAll() {
    const KeySet keys = down();
    for (std::size_t key = 0; key < keys.size(); ++key) {
        if (keys[key])
            release(int(key));
    }
}

int X11TestClient::modifierState() {
    const XcbOwned<xcb_query_pointer_reply_t> pointer(xcb_query_pointer_reply(
        m_connection->get(), xcb_query_pointer(m_connection->get(), m_connection->root()),
        nullptr));
    return pointer->mask & 0xFF;
}

std::uint32_t X11TestClient::openWindow(const QByteArray &instance, const QByteArray &windowClass) {
    xcb_connection_t *connection = m_connection->get();
    const std::uint32_t window = xcb_generate_id(connection);
    const std::uint32_t events = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE;
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, m_connection->root(), 50, 50, 300,
                      200, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_EVENT_MASK, &events);
    const QByteArray names = instance + '\0' + windowClass + '\0';
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS,
                        XCB_ATOM_STRING, 8, std::uint32_t(names.size()), names.constData());
    xcb_map_window(connection, window);
    m_connection->sync();
    const auto hasFocus = [this, window] {
        const XcbOwned<xcb_get_input_focus_reply_t> focus(xcb_get_input_focus_reply(
            m_connection->get(), xcb_get_input_focus(m_connection->get()), nullptr));
        return focus->focus == window &&
               m_connection->property32(m_connection->root(), "_NET_ACTIVE_WINDOW",
                                        XCB_ATOM_WINDOW) == window;
    };
    for (int attempt = 0; attempt < 30; ++attempt) {
        if (waitUntil(hasFocus, 300))
            return window;
        askForFocus(window);
    }
    ADD_FAILURE() << "the window did not get the focus";
    return window;
}

// As a taskbar does: a manager may otherwise leave the focus where the user last was.
void X11TestClient::askForFocus(std::uint32_t window) {
    constexpr std::uint32_t kFromPager = 2;
    xcb_client_message_event_t activate{};
    activate.response_type = XCB_CLIENT_MESSAGE;
    activate.format = 32;
    activate.window = window;
    activate.type = m_connection->atom("_NET_ACTIVE_WINDOW");
    activate.data.data32[0] = kFromPager;
    xcb_send_event(m_connection->get(), 0, m_connection->root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char *>(&activate));
    m_connection->sync();
}

void X11TestClient::closeWindow(std::uint32_t window) {
    xcb_destroy_window(m_connection->get(), window);
    m_connection->sync();
}

std::vector<KeyStroke> X11TestClient::strokes() {
    std::vector<KeyStroke> found;
    m_connection->sync();
    while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(m_connection->get())}) {
        const int type = event->response_type & 0x7F;
        if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE)
            continue;
        const auto *key = reinterpret_cast<const xcb_key_press_event_t *>(event.get());
        found.push_back({type == XCB_KEY_PRESS, key->detail, key->state & 0xFF});
    }
    return found;
}

bool X11TestClient::grabKeyboard() {
    const XcbOwned<xcb_grab_keyboard_reply_t> reply(xcb_grab_keyboard_reply(
        m_connection->get(),
        xcb_grab_keyboard(m_connection->get(), 0, m_connection->root(), XCB_CURRENT_TIME,
                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
        nullptr));
    return reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
}

void X11TestClient::ungrabKeyboard() {
    xcb_ungrab_keyboard(m_connection->get(), XCB_CURRENT_TIME);
    m_connection->sync();
}

void X11TestClient::setInputFocus(std::uint32_t window) {
    xcb_set_input_focus(m_connection->get(), XCB_INPUT_FOCUS_POINTER_ROOT, window,
                        XCB_CURRENT_TIME);
    m_connection->sync();
}

void X11TestClient::setActiveWindowProperty(std::uint32_t window) {
    xcb_change_property(m_connection->get(), XCB_PROP_MODE_REPLACE, m_connection->root(),
                        m_connection->atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW, 32, 1, &window);
    m_connection->sync();
}

void X11TestClient::setSymbol(int keyCode, std::uint32_t keysym) {
    xcb_change_keyboard_mapping(m_connection->get(), 1, std::uint8_t(keyCode), 1, &keysym);
    m_connection->sync();
}

bool X11TestClient::killOwnerOf(const QByteArray &windowName) {
    xcb_connection_t *connection = m_connection->get();
    const XcbOwned<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(
        connection, xcb_query_tree(connection, m_connection->root()), nullptr));
    const xcb_window_t *windows = xcb_query_tree_children(tree.get());
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
        const XcbOwned<xcb_get_property_reply_t> name(xcb_get_property_reply(
            connection,
            xcb_get_property(connection, 0, windows[i], XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 0, 64),
            nullptr));
        if (!name || QByteArray(static_cast<const char *>(xcb_get_property_value(name.get())),
                                xcb_get_property_value_length(name.get())) != windowName)
            continue;
        xcb_kill_client(connection, windows[i]);
        return m_connection->sync();
    }
    return false;
}

} // namespace quenda
