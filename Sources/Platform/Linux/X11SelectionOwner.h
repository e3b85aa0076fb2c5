#pragma once
// Answers the programs that ask for a selection this program owns: any number at once, large
// contents in chunks (INCR), and whoever stops taking its chunks is forgotten. Owned by the
// clipboard session; clipboard thread only. Waits for no requestor.

#include "Platform/Linux/SelectionContents.h"

#include <xcb/xcb.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quenda {

class X11SelectionLink;

/// Contents with their names as atoms of one connection.
struct SelectionOffer {
    SelectionContents contents;
    std::vector<xcb_atom_t> targets; ///< of each representation
    std::vector<xcb_atom_t> types;
};

class X11SelectionOwner {
public:
    using Clock = std::chrono::steady_clock;

    explicit X11SelectionOwner(X11SelectionLink &link);

    /// Resolves the names; representations whose names the server does not take are left out.
    std::shared_ptr<const SelectionOffer> prepare(const SelectionContents &contents);

    /// `selection` is ours since `time` and holds `offer`.
    void install(xcb_atom_t selection, std::shared_ptr<const SelectionOffer> offer,
                 xcb_timestamp_t time);
    /// `selection` is not ours any more. Transfers that have begun run on.
    void drop(xcb_atom_t selection);
    /// What `selection` holds; null where it is not ours.
    std::shared_ptr<const SelectionOffer> offer(xcb_atom_t selection) const;
    std::optional<xcb_timestamp_t> ownedSince(xcb_atom_t selection) const;

    void handleRequest(const xcb_selection_request_event_t &request);
    /// A requestor has taken a chunk.
    void handlePropertyDeleted(xcb_window_t requestor, xcb_atom_t property);
    /// `window` is gone, or does not take what is sent to it.
    void forgetRequestor(xcb_window_t window);

    /// Forgets requestors that have not moved for too long.
    void tick(Clock::time_point now);
    std::optional<Clock::time_point> nextDeadline() const;

private:
    struct Owned {
        xcb_atom_t selection = XCB_NONE;
        std::shared_ptr<const SelectionOffer> offer;
        xcb_timestamp_t since = 0;
    };
    struct Transfer {
        xcb_window_t requestor = XCB_NONE;
        xcb_atom_t property = XCB_NONE;
        std::shared_ptr<const SelectionOffer> offer;
        std::size_t index = 0;
        qsizetype sent = 0;
        bool ended = false; ///< the closing empty chunk is on its way
        Clock::time_point deadline;
    };

    const Owned *find(xcb_atom_t selection) const;
    bool convert(const Owned &owned, xcb_window_t requestor, xcb_atom_t target,
                 xcb_atom_t property);
    bool convertMultiple(const Owned &owned, xcb_window_t requestor, xcb_atom_t property);
    bool sendData(const Owned &owned, std::size_t index, xcb_window_t requestor,
                  xcb_atom_t property);
    void sendChunk(Transfer &transfer);
    void endTransfers(const std::function<bool(const Transfer &)> &ends);
    void watch(xcb_window_t requestor, bool on);

    X11SelectionLink &m_link;
    xcb_atom_t m_targets;
    xcb_atom_t m_timestamp;
    xcb_atom_t m_multiple;
    xcb_atom_t m_atomPair;
    xcb_atom_t m_incr;
    std::vector<Owned> m_owned;
    std::vector<Transfer> m_transfers;
};

} // namespace quenda
