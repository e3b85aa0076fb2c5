#pragma once
// One connection's life on the clipboard thread: it owns CLIPBOARD and PRIMARY, reads CLIPBOARD,
// and counts its changes. Built anew after the connection was lost. Clipboard thread only.

#include "Platform/Linux/SelectionContents.h"
#include "Platform/Linux/X11SelectionLink.h"
#include "Platform/Linux/X11SelectionOwner.h"
#include "Platform/Linux/X11SelectionReader.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

namespace quenda {

class X11ClipboardSession {
public:
    using Clock = std::chrono::steady_clock;

    /// `changes` counts up with each change of CLIPBOARD; `fetched` is called with each fetch that
    /// has ended.
    X11ClipboardSession(std::unique_ptr<X11SelectionLink> link, std::atomic<std::int64_t> &changes,
                        X11SelectionReader::Done fetched);
    /// A fetch under way ends with nothing.
    ~X11ClipboardSession();
    X11ClipboardSession(const X11ClipboardSession &) = delete;
    X11ClipboardSession &operator=(const X11ClipboardSession &) = delete;

    /// Takes CLIPBOARD with `contents`. The count of this very change; none where another program
    /// was quicker or the server fails.
    std::optional<std::int64_t> own(const SelectionContents &contents);
    /// Takes PRIMARY with the text that CLIPBOARD holds; it goes with the next change of CLIPBOARD.
    bool ownPrimary();
    /// Fills `fetch` with what CLIPBOARD holds.
    void startFetch(const std::shared_ptr<SelectionFetch> &fetch);
    /// Lets a clipboard manager, if there is one, take over what CLIPBOARD holds of ours.
    void handOver();

    int fileDescriptor() const { return m_link->fileDescriptor(); }
    /// The connection or its window is gone; nothing works any more.
    bool broken() const { return m_lost || m_link->broken(); }
    /// Handles what has arrived, at most `limit` events; whether more may wait.
    bool handleEvents(int limit);
    /// Handles what was read along with an answer; false where there was nothing.
    bool handleQueuedEvent();
    void tick(Clock::time_point now);
    std::optional<Clock::time_point> nextDeadline() const;

private:
    struct Pending {
        xcb_atom_t selection = XCB_NONE;
        xcb_timestamp_t time = 0;
        std::shared_ptr<const SelectionOffer> offer;
        std::optional<std::int64_t> count; ///< set once it is ours
    };

    std::optional<std::int64_t> take(xcb_atom_t selection,
                                     std::shared_ptr<const SelectionOffer> offer);
    std::optional<xcb_timestamp_t> serverTime();
    bool waitForEvent(Clock::time_point deadline);
    void handleEvent(const xcb_generic_event_t &event);
    void handleSelectionChanged(xcb_atom_t selection, xcb_window_t owner, xcb_timestamp_t since);
    void givePrimaryUp();
    void watch(xcb_atom_t selection, bool on);

    std::unique_ptr<X11SelectionLink> m_link;
    std::atomic<std::int64_t> &m_changes;
    X11SelectionReader::Done m_fetched;
    xcb_atom_t m_clipboard;
    xcb_atom_t m_clock; ///< the property that yields the server's time
    X11SelectionOwner m_owner;
    X11SelectionReader m_reader;
    std::optional<Pending> m_pending;
    std::optional<xcb_timestamp_t> m_now; ///< the answer to serverTime()
    bool m_lost = false;
    xcb_atom_t m_manager = XCB_NONE; ///< of a hand-over that waits for its answer
};

} // namespace quenda
