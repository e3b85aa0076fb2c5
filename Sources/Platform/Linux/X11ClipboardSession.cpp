#include "Platform/Linux/X11ClipboardSession.h"

#include <poll.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <utility>

namespace quenda {

namespace {
constexpr std::chrono::milliseconds kServerPatience{1000};
constexpr std::chrono::milliseconds kHandOverTime{200};
// Bit that marks an event as sent by another client.
constexpr std::uint8_t kSynthetic = 0x80;
} // namespace

X11ClipboardSession::X11ClipboardSession(std::unique_ptr<X11SelectionLink> link,
                                         std::atomic<std::int64_t> &changes,
                                         X11SelectionReader::Done fetched)
    : m_link(std::move(link)),
      m_changes(changes),
      m_fetched(std::move(fetched)),
      m_clipboard(m_link->atom("CLIPBOARD")),
      m_clock(m_link->atom("QUENDA_TIME")),
      m_owner(*m_link),
      m_reader(*m_link, m_clipboard, m_fetched) {
    watch(m_clipboard, true);
    xcb_flush(m_link->xcb());
}

X11ClipboardSession::~X11ClipboardSession() {
    if (const std::shared_ptr<SelectionFetch> fetch = m_reader.stop()) {
        fetch->begin(m_changes);
        fetch->finish();
        m_fetched(fetch);
    }
}

void X11ClipboardSession::watch(xcb_atom_t selection, bool on) {
    const std::uint32_t mask = XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                               XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                               XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE;
    xcb_xfixes_select_selection_input(m_link->xcb(), m_link->window(), selection, on ? mask : 0);
}

std::optional<std::int64_t> X11ClipboardSession::own(const SelectionContents &contents) {
    m_reader.stop();
    return take(m_clipboard, m_owner.prepare(contents));
}

bool X11ClipboardSession::ownPrimary() {
    const auto clipboard = m_owner.offer(m_clipboard);
    if (!clipboard)
        return false;
    const auto text = m_owner.prepare(plainTextOf(clipboard->contents));
    if (text->contents.empty())
        return false;
    const bool taken = take(XCB_ATOM_PRIMARY, text).has_value();
    if (taken && m_owner.offer(m_clipboard) == clipboard)
        return true;
    givePrimaryUp(); // the clipboard has changed hands meanwhile
    return false;
}

// The server reports every change of owner in its place among the other events. The selection is
// ours, and our contents are served, from the place where our own change is reported: so neither a
// program that was there before nor one that comes after is mistaken for it.
std::optional<std::int64_t> X11ClipboardSession::take(xcb_atom_t selection,
                                                      std::shared_ptr<const SelectionOffer> offer) {
    const std::optional<xcb_timestamp_t> time = serverTime();
    if (!time)
        return std::nullopt;
    m_pending = Pending{selection, *time, std::move(offer), std::nullopt};
    watch(selection, true); // PRIMARY changes often, so it is watched only while it is ours
    xcb_set_selection_owner(m_link->xcb(), m_link->window(), selection, *time);
    const xcb_window_t owner = m_link->selectionOwner(selection);
    while (!m_pending->count && handleQueuedEvent()) {
    }
    const std::optional<Pending> taken = std::exchange(m_pending, std::nullopt);
    if (owner == m_link->window())
        return taken->count;
    if (selection == XCB_ATOM_PRIMARY && !m_owner.ownedSince(selection))
        watch(selection, false);
    return std::nullopt;
}

// Appending nothing to a property makes the server tell its time.
std::optional<xcb_timestamp_t> X11ClipboardSession::serverTime() {
    m_now.reset();
    xcb_change_property(m_link->xcb(), XCB_PROP_MODE_APPEND, m_link->window(), m_clock,
                        XCB_ATOM_STRING, 8, 0, nullptr);
    const Clock::time_point deadline = Clock::now() + kServerPatience;
    while (!m_now && waitForEvent(deadline)) {
    }
    return m_now;
}

bool X11ClipboardSession::waitForEvent(Clock::time_point deadline) {
    xcb_flush(m_link->xcb());
    if (handleEvents(1))
        return true;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0 || broken())
        return false;
    pollfd descriptor{fileDescriptor(), POLLIN, 0};
    poll(&descriptor, 1, int(left));
    return true;
}

bool X11ClipboardSession::handleEvents(int limit) {
    for (int i = 0; i < limit; ++i) {
        const XcbPointer<xcb_generic_event_t> event(xcb_poll_for_event(m_link->xcb()));
        if (!event)
            return false;
        handleEvent(*event);
    }
    return true;
}

bool X11ClipboardSession::handleQueuedEvent() {
    const XcbPointer<xcb_generic_event_t> event(xcb_poll_for_queued_event(m_link->xcb()));
    if (event)
        handleEvent(*event);
    return event != nullptr;
}

void X11ClipboardSession::handleEvent(const xcb_generic_event_t &event) {
    const auto type = std::uint8_t(event.response_type & ~kSynthetic);
    const bool synthetic = event.response_type & kSynthetic;
    if (type == XCB_SELECTION_NOTIFY) { // owners send it themselves
        const auto &notify = reinterpret_cast<const xcb_selection_notify_event_t &>(event);
        if (m_manager != XCB_NONE && notify.selection == m_manager)
            m_manager = XCB_NONE;
        else
            m_reader.handleSelectionNotify(notify);
        return;
    }
    if (synthetic)
        return;
    if (type == 0) {
        m_owner.forgetRequestor(reinterpret_cast<const xcb_value_error_t &>(event).bad_value);
    } else if (type == XCB_SELECTION_REQUEST) {
        m_owner.handleRequest(reinterpret_cast<const xcb_selection_request_event_t &>(event));
    } else if (type == XCB_DESTROY_NOTIFY) {
        const auto &gone = reinterpret_cast<const xcb_destroy_notify_event_t &>(event);
        m_lost = m_lost || gone.window == m_link->window();
        m_owner.forgetRequestor(gone.window);
    } else if (type == XCB_PROPERTY_NOTIFY) {
        const auto &change = reinterpret_cast<const xcb_property_notify_event_t &>(event);
        if (change.state == XCB_PROPERTY_DELETE)
            m_owner.handlePropertyDeleted(change.window, change.atom);
        else if (change.window == m_link->window() && change.atom == m_clock)
            m_now = change.time;
        else
            m_reader.handlePropertyChanged(change.window, change.atom);
    } else if (type == m_link->selectionNotifyEvent()) {
        const auto &change = reinterpret_cast<const xcb_xfixes_selection_notify_event_t &>(event);
        // Our own end, which other programs can bring about; the loss counts as the change.
        if (change.subtype != XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER &&
            m_owner.ownedSince(change.selection))
            m_lost = true;
        else
            handleSelectionChanged(change.selection, change.owner, change.selection_timestamp);
    }
}

void X11ClipboardSession::handleSelectionChanged(xcb_atom_t selection, xcb_window_t owner,
                                                 xcb_timestamp_t since) {
    const bool ours = owner == m_link->window();
    if (ours) {
        if (!m_pending || m_pending->selection != selection || m_pending->time != since)
            return;
        m_owner.install(selection, m_pending->offer, since);
    } else {
        if (selection == XCB_ATOM_PRIMARY && m_owner.ownedSince(selection))
            watch(selection, false);
        m_owner.drop(selection);
    }
    if (selection != m_clipboard) {
        if (ours)
            m_pending->count = m_changes;
        return;
    }
    const std::int64_t count = ++m_changes;
    givePrimaryUp();
    if (ours)
        m_pending->count = count;
    else if (const std::shared_ptr<SelectionFetch> fetch = m_reader.stop())
        startFetch(fetch); // it began with another owner's contents
}

// With the time of our own taking, so that a program which has taken it since then keeps it.
void X11ClipboardSession::givePrimaryUp() {
    const std::optional<xcb_timestamp_t> since = m_owner.ownedSince(XCB_ATOM_PRIMARY);
    if (!since)
        return;
    watch(XCB_ATOM_PRIMARY, false);
    xcb_set_selection_owner(m_link->xcb(), XCB_NONE, XCB_ATOM_PRIMARY, *since);
    m_owner.drop(XCB_ATOM_PRIMARY);
}

void X11ClipboardSession::startFetch(const std::shared_ptr<SelectionFetch> &fetch) {
    // The owner may change while its time is asked for; after that the reader is told of changes.
    for (int attempt = 0; attempt < 3; ++attempt) {
        const std::int64_t tag = m_changes;
        fetch->begin(tag);
        const xcb_window_t owner = m_link->selectionOwner(m_clipboard);
        const std::shared_ptr<const SelectionOffer> own = m_owner.offer(m_clipboard);
        if (owner == XCB_NONE || own) {
            const std::size_t count = own ? own->contents.size() : 0;
            fetch->setCount(count);
            for (std::size_t i = 0; i < count; ++i)
                fetch->set(i, own->contents[i]);
            break;
        }
        const std::optional<xcb_timestamp_t> time = serverTime();
        if (!time)
            break;
        if (m_changes == tag) {
            m_reader.start(fetch, *time);
            return;
        }
    }
    fetch->finish();
    m_fetched(fetch);
}

void X11ClipboardSession::handOver() {
    const auto offer = m_owner.offer(m_clipboard);
    const xcb_atom_t manager = m_link->atom("CLIPBOARD_MANAGER");
    const xcb_atom_t property = m_link->atom("QUENDA_SELECTION");
    const std::optional<xcb_timestamp_t> time = serverTime();
    if (!offer || offer->contents.empty() || !time || m_link->selectionOwner(manager) == XCB_NONE)
        return;
    xcb_change_property(m_link->xcb(), XCB_PROP_MODE_REPLACE, m_link->window(), property,
                        XCB_ATOM_ATOM, 32, std::uint32_t(offer->targets.size()),
                        offer->targets.data());
    xcb_convert_selection(m_link->xcb(), m_link->window(), manager, m_link->atom("SAVE_TARGETS"),
                          property, *time);
    m_manager = manager;
    const Clock::time_point deadline = Clock::now() + kHandOverTime;
    while (m_manager != XCB_NONE && Clock::now() < deadline && waitForEvent(deadline)) {
    }
}

void X11ClipboardSession::tick(Clock::time_point now) {
    m_owner.tick(now);
    m_reader.tick(now);
    xcb_flush(m_link->xcb());
}

std::optional<X11ClipboardSession::Clock::time_point> X11ClipboardSession::nextDeadline() const {
    const auto owner = m_owner.nextDeadline();
    const auto reader = m_reader.nextDeadline();
    return owner && reader ? std::min(owner, reader) : owner ? owner : reader;
}

} // namespace quenda
