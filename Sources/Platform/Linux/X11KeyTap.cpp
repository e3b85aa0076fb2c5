#include "Platform/Linux/X11KeyTap.h"

#include "Platform/Linux/X11Input.h"
#include "Platform/Linux/X11KeyCodes.h"

#include <QPointer>
#include <QSocketNotifier>

#include <xcb/xcb.h>
#include <xcb/xcbext.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <chrono>
#include <utility>

namespace quenda {

namespace {

// While a modifier is held, how often its true state is asked for: a release that never came as an
// event (the session went to another virtual terminal, say) is noticed after one to two of these.
constexpr std::chrono::milliseconds kTruthInterval{250};

// What the listener's window is called in xwininfo and the like.
constexpr char kWindowName[] = "Quenda key listener";

} // namespace

std::unique_ptr<X11KeyTap> X11KeyTap::create(std::shared_ptr<SyntheticKeys> synthetic,
                                             Handler handler) {
    std::unique_ptr<X11KeyTap> tap(new X11KeyTap(std::move(synthetic), std::move(handler)));
    if (!tap->connectToServer())
        return nullptr;
    return tap;
}

X11KeyTap::X11KeyTap(std::shared_ptr<SyntheticKeys> synthetic, Handler handler)
    : m_synthetic(std::move(synthetic)),
      m_handler(std::move(handler)) {
    m_truthTimer.setInterval(kTruthInterval);
    connect(&m_truthTimer, &QTimer::timeout, this, &X11KeyTap::askForTruth);
    m_synthetic->addListener(this);
}

X11KeyTap::~X11KeyTap() {
    m_synthetic->removeListener(this);
    dropConnection();
}

bool X11KeyTap::connectToServer() {
    dropConnection();
    std::unique_ptr<X11Connection> connection = X11Connection::open();
    if (!connection)
        return false;
    m_inputOpcode = inputOpcode(*connection);
    if (m_inputOpcode == 0)
        return false;
    m_connection = std::move(connection);

    // Never shown: it lets a person who looks at the server's windows see whose connection this is,
    // and end it.
    const std::uint32_t window = xcb_generate_id(m_connection->get());
    xcb_create_window(m_connection->get(), 0, window, m_connection->root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_change_property(m_connection->get(), XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME,
                        XCB_ATOM_STRING, 8, sizeof(kWindowName) - 1, kWindowName);
    xcb_flush(m_connection->get());

    m_notifier =
        std::make_unique<QSocketNotifier>(m_connection->fileDescriptor(), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &X11KeyTap::readSocket);
    return true;
}

void X11KeyTap::dropConnection() {
    if (m_notifier) {
        m_notifier->setEnabled(false);
        if (m_delivering) // perhaps from inside its own signal
            m_notifier.release()->deleteLater();
        m_notifier.reset();
    }
    m_connection.reset();
    m_truthRequest.reset();
    m_truthTimer.stop();
    m_fnKeys.reset();
}

void X11KeyTap::setEnabled(bool enabled) {
    if (enabled == m_enabled)
        return;
    if (!enabled)
        stopListening();
    else if ((m_connection && !m_connection->hasError()) || connectToServer())
        m_enabled = startListening();
}

bool X11KeyTap::startListening() {
    selectRawKeys(*m_connection, true);
    // What is held already is no news, but its flag counts from here on.
    const KeySet down = keysDown(*m_connection);
    if (m_connection->hasError()) {
        dropConnection();
        return false;
    }
    m_down.reset();
    for (std::size_t key = 0; key < down.size(); ++key) {
        const std::optional<MacKey> mac =
            down[key] ? translate(std::uint8_t(key)) : std::optional<MacKey>();
        m_down[key] = mac && mac->flag != 0;
    }
    m_confirmed = m_down;
    m_deniedOnce.reset();
    askOnlyWhileHeld();
    deliverSoon();
    return true;
}

void X11KeyTap::stopListening() {
    m_enabled = false;
    m_down.reset();
    askOnlyWhileHeld();
    if (m_connection)
        selectRawKeys(*m_connection, false);
}

void X11KeyTap::readSocket() {
    readWhatIsThere();
    deliver();
}

void X11KeyTap::readArrivedEvents() {
    if (!m_connection)
        return;
    m_connection->sync();
    readWhatIsThere();
    deliverSoon();
}

void X11KeyTap::readWhatIsThere() {
    if (!m_connection)
        return;
    while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(m_connection->get())}) {
        if (event->response_type == XCB_MAPPING_NOTIFY)
            m_fnKeys.reset();
        const std::optional<RawKey> key = rawKey(*event, m_inputOpcode);
        if (key && m_enabled)
            handleKey(key->keyCode, key->press, key->sequence);
    }
    readTruth();
    if (m_connection->hasError())
        reportLoss();
}

void X11KeyTap::handleKey(std::uint8_t xKeyCode, bool press, std::uint32_t sequence) {
    if (ownStrokes.claim(xKeyCode, press))
        return;
    const std::optional<MacKey> mac = translate(xKeyCode);
    if (!mac)
        return;
    if (mac->flag == 0) {
        if (press)
            m_pending.push_back({KeyEvent::Type::KeyDown, mac->keyCode, flagsNow()});
        return;
    }
    if (!press) {
        reportRelease(xKeyCode);
    } else {
        m_down.set(xKeyCode);
        m_pressedAt[xKeyCode] = sequence;
        m_confirmed.reset(xKeyCode);
        m_deniedOnce.reset(xKeyCode);
        m_pending.push_back({KeyEvent::Type::FlagsChanged, mac->keyCode, flagsNow()});
    }
    askOnlyWhileHeld();
}

std::optional<MacKey> X11KeyTap::translate(std::uint8_t xKeyCode) {
    const std::optional<MacKey> known = macKey(xKeyCode);
    if (known)
        return known;
    if (!m_fnKeys)
        m_fnKeys = keysGiving(*m_connection, {XKB_KEY_XF86WakeUp, XKB_KEY_XF86Fn});
    return m_fnKeys->test(xKeyCode) ? std::optional(fnKey()) : std::nullopt;
}

std::uint64_t X11KeyTap::flagsNow() {
    std::uint64_t flags = 0;
    for (std::size_t key = 0; m_down.any() && key < m_down.size(); ++key) {
        if (m_down[key])
            flags |= macKey(std::uint8_t(key)).value_or(fnKey()).flag;
    }
    return flags;
}

void X11KeyTap::reportRelease(std::uint8_t xKeyCode) {
    m_down.reset(xKeyCode);
    m_pending.push_back(
        {KeyEvent::Type::FlagsChanged, macKey(xKeyCode).value_or(fnKey()).keyCode, flagsNow()});
}

// A key that is held now will never be seen to go up on this connection.
void X11KeyTap::reportLoss() {
    dropConnection();
    for (std::size_t key = 0; key < m_down.size(); ++key) {
        if (m_down[key])
            reportRelease(std::uint8_t(key));
    }
    if (std::exchange(m_enabled, false))
        m_pending.push_back({KeyEvent::Type::TapDisabledByUserInput, 0, 0});
}

void X11KeyTap::deliver() {
    if (m_delivering)
        return;
    const QPointer<X11KeyTap> self(this);
    const Handler handler = m_handler;
    m_delivering = true;
    while (self && !m_pending.empty()) {
        const KeyEvent event = m_pending.front();
        m_pending.pop_front();
        handler(event);
    }
    if (self)
        m_delivering = false;
}

void X11KeyTap::deliverSoon() {
    if (m_pending.empty() || m_delivering)
        return;
    QMetaObject::invokeMethod(this, &X11KeyTap::deliver, Qt::QueuedConnection);
}

void X11KeyTap::askOnlyWhileHeld() {
    if (m_down.none())
        m_truthTimer.stop();
    else if (!m_truthTimer.isActive())
        m_truthTimer.start();
}

void X11KeyTap::askForTruth() {
    if (!m_connection || m_truthRequest)
        return;
    m_truthRequest = xcb_query_keymap(m_connection->get()).sequence;
    m_generationAtRequest = m_synthetic->generation();
    xcb_flush(m_connection->get());
}

void X11KeyTap::readTruth() {
    if (!m_truthRequest)
        return;
    void *answer = nullptr;
    xcb_generic_error_t *failure = nullptr;
    if (xcb_poll_for_reply(m_connection->get(), *m_truthRequest, &answer, &failure) == 0)
        return;
    const XcbOwned<xcb_query_keymap_reply_t> reply(static_cast<xcb_query_keymap_reply_t *>(answer));
    const XcbOwned<xcb_generic_error_t> error(failure);
    const std::uint32_t sequence = *std::exchange(m_truthRequest, std::nullopt);
    // While we type, the user's modifiers are up for a moment.
    if (reply && m_generationAtRequest == m_synthetic->generation())
        compareWithTruth(keySet(reply->keys), sequence);
}

// One denial is not enough for a key that the server never called down: with slow keys switched on
// (an accessibility setting) it takes a press for real only after a while.
void X11KeyTap::compareWithTruth(const KeySet &truth, std::uint32_t sequence) {
    for (std::size_t key = 0; key < m_down.size(); ++key) {
        if (!m_down[key])
            continue;
        const bool pressedSince = std::int32_t(m_pressedAt[key] - sequence) >= 0;
        if (truth[key])
            m_confirmed.set(key);
        else if (!pressedSince && !m_confirmed[key] && !m_deniedOnce[key])
            m_deniedOnce.set(key);
        else if (!pressedSince)
            reportRelease(std::uint8_t(key));
    }
    askOnlyWhileHeld();
}

X11KeyTapFactory::X11KeyTapFactory(std::shared_ptr<SyntheticKeys> synthetic)
    : m_synthetic(std::move(synthetic)) {}

std::unique_ptr<KeyTap> X11KeyTapFactory::createTap(KeyTap::Handler handler) {
    return X11KeyTap::create(m_synthetic, std::move(handler));
}

} // namespace quenda
