#include "Platform/Linux/X11KeyPoster.h"

#include "Platform/Linux/PrimarySelection.h"
#include "Platform/Linux/X11Input.h"
#include "Platform/Linux/X11KeyCodes.h"

#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <algorithm>
#include <utility>

namespace quenda {

namespace {

// The longest WM_CLASS that is looked at, in units of four bytes.
constexpr std::uint32_t kWindowClassLimit = 64;

std::uint8_t oneOf(const KeySet &keys, std::uint8_t preferred) {
    if (keys.none() || keys[preferred])
        return preferred;
    std::size_t key = 0;
    while (!keys[key])
        ++key;
    return std::uint8_t(key);
}

} // namespace

X11KeyPoster::X11KeyPoster(std::shared_ptr<SyntheticKeys> synthetic, PrimarySelection *primary)
    : m_synthetic(std::move(synthetic)),
      m_primary(primary) {}

X11KeyPoster::~X11KeyPoster() = default;

bool X11KeyPoster::ready() {
    if (m_connection && !m_connection->hasError()) {
        m_connection->discardEvents(); // reads the socket: a loss shows here
        if (!m_connection->hasError())
            return true;
    }
    m_connection = X11Connection::open();
    if (!m_connection)
        return false;
    m_testOpcode = testOpcode(*m_connection);
    m_inputOpcode = inputOpcode(*m_connection);
    if (m_inputOpcode != 0)
        m_inputFirstEvent = xcb_get_extension_data(m_connection->get(), &xcb_input_id)->first_event;
    m_connection->prefetchAtoms({"_NET_ACTIVE_WINDOW"});
    return !m_connection->hasError();
}

PostOutcome X11KeyPoster::postPaste() {
    if (!ready() || m_testOpcode == 0 || m_inputOpcode == 0)
        return PostOutcome::Refused;

    const PasteShortcut shortcut = shortcutOfActiveWindow();
    if (shortcut == PasteShortcut::ShiftInsert && m_primary != nullptr)
        m_primary->mirrorClipboardText();
    const ModifierKeys modifiers = modifierKeys(*m_connection);
    const std::vector<std::uint8_t> keys = keysOf(shortcut, modifiers);

    m_ownStrokes.clear();
    m_letGo.reset();
    selectRawKeys(*m_connection, true);
    struct Held {
        std::uint8_t device, key;
    };
    std::vector<Held> held;
    const KeySet down = keysDown(*m_connection) & modifiers.held;
    // What a keyboard holds of our own keys would swallow our strokes: that goes up in any case.
    KeySet upFirst = modifiers.held;
    for (const std::uint8_t key : keys)
        upFirst.set(key);
    for (const KeyboardDevice &keyboard : keyboardDevices(*m_connection)) {
        const KeySet up = keyboard.down & upFirst;
        for (std::size_t key = 0; key < up.size(); ++key) {
            if (!up[key])
                continue;
            type(std::uint8_t(key), false, keyboard.device);
            if (down[key])
                held.push_back({keyboard.device, std::uint8_t(key)});
        }
    }

    std::for_each(keys.begin(), keys.end(), [this](std::uint8_t key) { type(key, true); });
    std::for_each(keys.rbegin(), keys.rend(), [this](std::uint8_t key) { type(key, false); });
    bool posted = readStrokes();

    std::erase_if(held, [this](const Held &each) { return m_letGo[each.key]; });
    for (const Held &each : held)
        type(each.key, true, each.device);
    posted = readStrokes() && posted;
    // Let go just before it was pressed again: nobody else would ever release it.
    for (const Held &each : held) {
        if (m_letGo[each.key])
            type(each.key, false, each.device);
    }
    selectRawKeys(*m_connection, false);
    m_connection->sync();
    m_synthetic->finish();
    return posted && !m_connection->hasError() ? PostOutcome::Posted : PostOutcome::Refused;
}

PasteShortcut X11KeyPoster::shortcutOfActiveWindow() {
    const std::uint32_t window =
        m_connection->property32(m_connection->root(), "_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW);
    if (window == XCB_WINDOW_NONE)
        return PasteShortcut::ControlV;
    const XcbOwned<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(m_connection->get(),
                               xcb_get_property(m_connection->get(), 0, window, XCB_ATOM_WM_CLASS,
                                                XCB_ATOM_STRING, 0, kWindowClassLimit),
                               nullptr));
    if (!reply || reply->format != 8)
        return PasteShortcut::ControlV;
    return pasteShortcutFor(
        QByteArray(static_cast<const char *>(xcb_get_property_value(reply.get())),
                   xcb_get_property_value_length(reply.get())));
}

std::vector<std::uint8_t> X11KeyPoster::keysOf(PasteShortcut shortcut,
                                               const ModifierKeys &modifiers) {
    const std::uint8_t control = oneOf(modifiers.control, xkeys::kLeftControl);
    const std::uint8_t shift = oneOf(modifiers.shift, xkeys::kLeftShift);
    if (shortcut == PasteShortcut::ShiftInsert)
        return {shift, keyGiving(*m_connection, XKB_KEY_Insert).value_or(xkeys::kInsert)};
    // A layout without a Latin V (Cyrillic alone, say): toolkits look at the key's place there.
    const std::uint8_t v = keyGiving(*m_connection, XKB_KEY_v).value_or(xkeys::kV);
    if (shortcut == PasteShortcut::ControlShiftV)
        return {control, shift, v};
    return {control, v};
}

void X11KeyPoster::type(std::uint8_t keyCode, bool press, std::uint8_t device) {
    m_synthetic->announce(keyCode, press);
    m_ownStrokes.expect(keyCode, press);
    int event = press ? XCB_KEY_PRESS : XCB_KEY_RELEASE;
    if (device != 0)
        event =
            m_inputFirstEvent + (press ? XCB_INPUT_DEVICE_KEY_PRESS : XCB_INPUT_DEVICE_KEY_RELEASE);
    xcb_test_fake_input(m_connection->get(), std::uint8_t(event), keyCode, XCB_CURRENT_TIME,
                        XCB_WINDOW_NONE, 0, 0, device);
}

// Waits until the server has processed the strokes; false where it refused one.
bool X11KeyPoster::readStrokes() {
    bool accepted = m_connection->sync();
    while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(m_connection->get())}) {
        if (event->response_type == 0) {
            const auto *error = reinterpret_cast<const xcb_generic_error_t *>(event.get());
            accepted = accepted && error->major_code != m_testOpcode;
        }
        const std::optional<RawKey> key = rawKey(*event, m_inputOpcode);
        if (key && !m_ownStrokes.claim(key->keyCode, key->press))
            m_letGo[key->keyCode] = !key->press;
    }
    return accepted;
}

} // namespace quenda
