#include "Platform/Linux/X11Keyboard.h"

#include "Platform/Linux/X11Connection.h"

#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xkbcommon/xkbcommon-x11.h>

#include <algorithm>

namespace quenda {

namespace {

constexpr std::uint8_t kLowestKeyCode = 8;
constexpr int kHighestDevice = 127; // what the requests for single devices can name

template <auto Unref>
struct Unreferencer {
    template <typename T>
    void operator()(T *object) const {
        Unref(object);
    }
};
using XkbContext = std::unique_ptr<xkb_context, Unreferencer<xkb_context_unref>>;
using XkbKeymap = std::unique_ptr<xkb_keymap, Unreferencer<xkb_keymap_unref>>;
using XkbState = std::unique_ptr<xkb_state, Unreferencer<xkb_state_unref>>;

bool givesPlainly(xkb_keymap *keymap, xkb_keycode_t key, xkb_layout_index_t layout,
                  std::uint32_t keysym) {
    const xkb_keysym_t *symbols = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap, key, layout, 0, &symbols);
    return count == 1 && symbols[0] == keysym;
}

} // namespace

KeySet keySet(const std::uint8_t *keymap) {
    KeySet keys;
    for (std::size_t key = kLowestKeyCode; key < keys.size(); ++key)
        keys[key] = (keymap[key / 8] >> (key % 8)) & 1;
    return keys;
}

KeySet keysDown(X11Connection &connection) {
    const XcbOwned<xcb_query_keymap_reply_t> reply(
        xcb_query_keymap_reply(connection.get(), xcb_query_keymap(connection.get()), nullptr));
    return reply ? keySet(reply->keys) : KeySet();
}

std::vector<KeyboardDevice> keyboardDevices(X11Connection &connection) {
    const XcbOwned<xcb_input_xi_query_device_reply_t> devices(xcb_input_xi_query_device_reply(
        connection.get(), xcb_input_xi_query_device(connection.get(), XCB_INPUT_DEVICE_ALL),
        nullptr));
    struct Question {
        std::uint8_t device;
        xcb_input_open_device_cookie_t opened; ///< a closed device does not answer
        xcb_input_query_device_state_cookie_t state;
    };
    std::vector<Question> questions;
    if (devices) {
        for (auto device = xcb_input_xi_query_device_infos_iterator(devices.get()); device.rem > 0;
             xcb_input_xi_device_info_next(&device)) {
            if (device.data->type != XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD ||
                device.data->deviceid > kHighestDevice)
                continue;
            const auto id = std::uint8_t(device.data->deviceid);
            questions.push_back({id, xcb_input_open_device(connection.get(), id),
                                 xcb_input_query_device_state(connection.get(), id)});
        }
    }
    std::vector<KeyboardDevice> keyboards;
    for (const Question &question : questions) {
        const XcbOwned<xcb_input_open_device_reply_t> opened(
            xcb_input_open_device_reply(connection.get(), question.opened, nullptr));
        const XcbOwned<xcb_input_query_device_state_reply_t> state(
            xcb_input_query_device_state_reply(connection.get(), question.state, nullptr));
        if (!state)
            continue;
        for (auto input = xcb_input_query_device_state_classes_iterator(state.get()); input.rem > 0;
             xcb_input_input_state_next(&input)) {
            if (input.data->class_id != XCB_INPUT_INPUT_CLASS_KEY)
                continue;
            const auto *keys = reinterpret_cast<const xcb_input_key_state_t *>(input.data);
            keyboards.push_back({question.device, keySet(keys->keys)});
        }
    }
    return keyboards;
}

ModifierKeys modifierKeys(X11Connection &connection) {
    ModifierKeys keys;
    const auto asked = xcb_get_modifier_mapping(connection.get());
    // Its answer comes in the same round trip.
    const KeySet locks = keysGiving(
        connection, {XKB_KEY_Caps_Lock, XKB_KEY_Shift_Lock, XKB_KEY_Num_Lock, XKB_KEY_Scroll_Lock});
    const XcbOwned<xcb_get_modifier_mapping_reply_t> reply(
        xcb_get_modifier_mapping_reply(connection.get(), asked, nullptr));
    if (!reply)
        return keys;
    const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(reply.get());
    const int width = reply->keycodes_per_modifier;
    const int length = std::min(8 * width, xcb_get_modifier_mapping_keycodes_length(reply.get()));
    for (int i = 0; i < length; ++i) {
        const int row = i / width;
        if (codes[i] < kLowestKeyCode || row == XCB_MAP_INDEX_LOCK)
            continue;
        keys.held.set(codes[i]);
        if (row == XCB_MAP_INDEX_SHIFT)
            keys.shift.set(codes[i]);
        if (row == XCB_MAP_INDEX_CONTROL)
            keys.control.set(codes[i]);
    }
    keys.held &= ~locks;
    return keys;
}

KeySet keysGiving(X11Connection &connection, std::initializer_list<std::uint32_t> keysyms) {
    const xcb_setup_t *setup = xcb_get_setup(connection.get());
    const int first = setup->min_keycode;
    const XcbOwned<xcb_get_keyboard_mapping_reply_t> reply(xcb_get_keyboard_mapping_reply(
        connection.get(),
        xcb_get_keyboard_mapping(connection.get(), setup->min_keycode,
                                 std::uint8_t(setup->max_keycode - first + 1)),
        nullptr));
    KeySet keys;
    if (!reply || reply->keysyms_per_keycode == 0)
        return keys;
    const xcb_keysym_t *symbols = xcb_get_keyboard_mapping_keysyms(reply.get());
    const int length = xcb_get_keyboard_mapping_keysyms_length(reply.get());
    for (int i = 0; i < length; ++i) {
        const int key = first + i / reply->keysyms_per_keycode;
        if (key < int(keys.size()) &&
            std::find(keysyms.begin(), keysyms.end(), symbols[i]) != keysyms.end())
            keys.set(std::size_t(key));
    }
    return keys;
}

std::optional<std::uint8_t> keyGiving(X11Connection &connection, std::uint32_t keysym) {
    if (xkb_x11_setup_xkb_extension(
            connection.get(), XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
            XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr) == 0)
        return std::nullopt;
    const std::int32_t device = xkb_x11_get_core_keyboard_device_id(connection.get());
    const XkbContext context(xkb_context_new(static_cast<xkb_context_flags>(
        XKB_CONTEXT_NO_DEFAULT_INCLUDES | XKB_CONTEXT_NO_ENVIRONMENT_NAMES)));
    if (device < 0 || !context)
        return std::nullopt;
    xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
    const XkbKeymap keymap(xkb_x11_keymap_new_from_device(context.get(), connection.get(), device,
                                                          XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap)
        return std::nullopt;
    const XkbState state(xkb_x11_state_new_from_device(keymap.get(), connection.get(), device));
    if (!state)
        return std::nullopt;

    std::optional<std::uint8_t> elsewhere;
    const xkb_keycode_t last = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(keymap.get()), 255);
    for (xkb_keycode_t key = kLowestKeyCode; key <= last; ++key) {
        const xkb_layout_index_t active = xkb_state_key_get_layout(state.get(), key);
        if (active == XKB_LAYOUT_INVALID)
            continue;
        if (givesPlainly(keymap.get(), key, active, keysym))
            return std::uint8_t(key);
        const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap.get(), key);
        for (xkb_layout_index_t layout = 0; layout < layouts && !elsewhere; ++layout) {
            if (givesPlainly(keymap.get(), key, layout, keysym))
                elsewhere = std::uint8_t(key);
        }
    }
    return elsewhere;
}

} // namespace quenda
