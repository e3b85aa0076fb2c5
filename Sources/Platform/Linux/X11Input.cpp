#include "Platform/Linux/X11Input.h"

#include "Platform/Linux/X11Connection.h"

#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

namespace quenda {

std::uint8_t inputOpcode(X11Connection &connection) {
    const xcb_query_extension_reply_t *extension =
        xcb_get_extension_data(connection.get(), &xcb_input_id);
    if (extension == nullptr || extension->present == 0)
        return 0;
    const XcbOwned<xcb_input_xi_query_version_reply_t> version(xcb_input_xi_query_version_reply(
        connection.get(), xcb_input_xi_query_version(connection.get(), 2, 2), nullptr));
    if (!version || version->major_version < 2 ||
        (version->major_version == 2 && version->minor_version < 2))
        return 0;
    return extension->major_opcode;
}

std::uint8_t testOpcode(X11Connection &connection) {
    const xcb_query_extension_reply_t *extension =
        xcb_get_extension_data(connection.get(), &xcb_test_id);
    return extension != nullptr && extension->present != 0 ? extension->major_opcode : 0;
}

void selectRawKeys(X11Connection &connection, bool wanted) {
    struct {
        xcb_input_event_mask_t header;
        std::uint32_t mask;
    } selection{};
    selection.header.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    selection.header.mask_len = 1;
    if (wanted)
        selection.mask =
            XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE;
    xcb_input_xi_select_events(connection.get(), connection.root(), 1, &selection.header);
    xcb_flush(connection.get());
}

std::optional<RawKey> rawKey(const xcb_generic_event_t &event, std::uint8_t inputOpcode) {
    if (event.response_type != XCB_GE_GENERIC || inputOpcode == 0)
        return std::nullopt;
    const auto &generic = reinterpret_cast<const xcb_ge_generic_event_t &>(event);
    const bool press = generic.event_type == XCB_INPUT_RAW_KEY_PRESS;
    if (generic.extension != inputOpcode ||
        (!press && generic.event_type != XCB_INPUT_RAW_KEY_RELEASE))
        return std::nullopt;
    const auto &key = reinterpret_cast<const xcb_input_raw_key_press_event_t &>(event);
    if (key.detail > 0xFF)
        return std::nullopt;
    return RawKey{std::uint8_t(key.detail), press, key.full_sequence};
}

} // namespace quenda
