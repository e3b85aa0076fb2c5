#pragma once
// The X server's two input extensions: XInput 2.2, which shows raw key events to a listener, and
// XTest, which types. For implementation files only: it takes in xcb's own header.

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>

namespace quenda {

class X11Connection;

/// The major opcode of XInput where the server offers at least 2.2, otherwise 0. Also announces to
/// the server that this connection speaks 2.2.
std::uint8_t inputOpcode(X11Connection &connection);

/// The major opcode of XTest, 0 where the server lacks it.
std::uint8_t testOpcode(X11Connection &connection);

/// Begins or ends the delivery of raw key events of all master keyboards.
void selectRawKeys(X11Connection &connection, bool wanted);

struct RawKey {
    std::uint8_t keyCode;
    bool press;
    std::uint32_t sequence; ///< of the last request that the server had processed before
};
/// The raw key event in `event`; none where it is anything else.
std::optional<RawKey> rawKey(const xcb_generic_event_t &event, std::uint8_t inputOpcode);

} // namespace quenda
