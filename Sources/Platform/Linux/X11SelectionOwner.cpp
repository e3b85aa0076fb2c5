#include "Platform/Linux/X11SelectionOwner.h"

#include "Platform/Linux/X11SelectionLink.h"
#include "Quenda/Trace.h"

#include <algorithm>
#include <utility>

namespace quenda {

namespace {
// A requestor takes the next chunk within milliseconds; one that hangs may still wake up.
constexpr std::chrono::seconds kRequestorPatience{5};
constexpr std::size_t kMaxTransfers = 64;
constexpr std::size_t kMaxPairs = 256; ///< of one MULTIPLE request
} // namespace

X11SelectionOwner::X11SelectionOwner(X11SelectionLink &link) : m_link(link) {
    const std::vector<xcb_atom_t> atoms =
        link.atoms({"TARGETS", "TIMESTAMP", "MULTIPLE", "ATOM_PAIR", "INCR"});
    m_targets = atoms[0];
    m_timestamp = atoms[1];
    m_multiple = atoms[2];
    m_atomPair = atoms[3];
    m_incr = atoms[4];
}

std::shared_ptr<const SelectionOffer>
X11SelectionOwner::prepare(const SelectionContents &contents) {
    std::vector<QByteArray> names;
    for (const SelectionData &data : contents) {
        names.push_back(data.target);
        names.push_back(data.type);
    }
    const std::vector<xcb_atom_t> atoms = m_link.atoms(names);
    auto offer = std::make_shared<SelectionOffer>();
    for (std::size_t i = 0; i < contents.size(); ++i) {
        if (atoms[2 * i] == XCB_NONE || atoms[2 * i + 1] == XCB_NONE)
            continue;
        offer->contents.push_back(contents[i]);
        offer->targets.push_back(atoms[2 * i]);
        offer->types.push_back(atoms[2 * i + 1]);
    }
    return offer;
}

void X11SelectionOwner::install(xcb_atom_t selection, std::shared_ptr<const SelectionOffer> offer,
                                xcb_timestamp_t time) {
    drop(selection);
    m_owned.push_back({selection, std::move(offer), time});
}

void X11SelectionOwner::drop(xcb_atom_t selection) {
    std::erase_if(m_owned, [selection](const Owned &each) { return each.selection == selection; });
}

const X11SelectionOwner::Owned *X11SelectionOwner::find(xcb_atom_t selection) const {
    const auto found = std::find_if(m_owned.begin(), m_owned.end(), [selection](const Owned &each) {
        return each.selection == selection;
    });
    return found == m_owned.end() ? nullptr : &*found;
}

std::shared_ptr<const SelectionOffer> X11SelectionOwner::offer(xcb_atom_t selection) const {
    const Owned *owned = find(selection);
    return owned ? owned->offer : nullptr;
}

std::optional<xcb_timestamp_t> X11SelectionOwner::ownedSince(xcb_atom_t selection) const {
    const Owned *owned = find(selection);
    return owned ? std::optional(owned->since) : std::nullopt;
}

// A request's time is not compared with ours: whoever asks now gets what is there now, as a paste
// that comes from an event just before the change would otherwise yield nothing.
void X11SelectionOwner::handleRequest(const xcb_selection_request_event_t &request) {
    // Any program can name any window; our own ones keep their event mask and properties.
    if (m_link.isOwnWindow(request.requestor))
        return;
    // Requestors from before the present conventions leave the property to the owner.
    const xcb_atom_t property = request.property != XCB_NONE ? request.property : request.target;
    const Owned *owned = find(request.selection);
    bool done = false;
    if (owned && request.target == m_multiple)
        done = request.property != XCB_NONE && convertMultiple(*owned, request.requestor, property);
    else if (owned)
        done = convert(*owned, request.requestor, request.target, property);

    xcb_selection_notify_event_t notify{};
    notify.response_type = XCB_SELECTION_NOTIFY;
    notify.time = request.time;
    notify.requestor = request.requestor;
    notify.selection = request.selection;
    notify.target = request.target;
    notify.property = done ? property : XCB_NONE;
    char event[32] = {};
    static_assert(sizeof notify <= sizeof event);
    std::copy_n(reinterpret_cast<const char *>(&notify), sizeof notify, event);
    xcb_send_event(m_link.xcb(), 0, request.requestor, XCB_EVENT_MASK_NO_EVENT, event);
}

bool X11SelectionOwner::convert(const Owned &owned, xcb_window_t requestor, xcb_atom_t target,
                                xcb_atom_t property) {
    if (target == m_targets) {
        std::vector<xcb_atom_t> list{m_targets, m_timestamp, m_multiple};
        list.insert(list.end(), owned.offer->targets.begin(), owned.offer->targets.end());
        xcb_change_property(m_link.xcb(), XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_ATOM,
                            32, std::uint32_t(list.size()), list.data());
        return true;
    }
    if (target == m_timestamp) {
        xcb_change_property(m_link.xcb(), XCB_PROP_MODE_REPLACE, requestor, property,
                            XCB_ATOM_INTEGER, 32, 1, &owned.since);
        return true;
    }
    const auto &targets = owned.offer->targets;
    const auto found = std::find(targets.begin(), targets.end(), target);
    Trace::mark("read");
    return found != targets.end() &&
           sendData(owned, std::size_t(found - targets.begin()), requestor, property);
}

bool X11SelectionOwner::convertMultiple(const Owned &owned, xcb_window_t requestor,
                                        xcb_atom_t property) {
    const PropertyValue value = m_link.readProperty(
        requestor, property, qsizetype(kMaxPairs) * 2 * qsizetype(sizeof(xcb_atom_t)));
    if (value.type == XCB_NONE || value.tooLarge || value.format != 32)
        return false;
    std::vector<xcb_atom_t> atoms(std::size_t(value.bytes.size()) / sizeof(xcb_atom_t));
    std::copy_n(value.bytes.constData(), atoms.size() * sizeof(xcb_atom_t),
                reinterpret_cast<char *>(atoms.data()));
    bool refused = false;
    for (std::size_t i = 0; i + 1 < atoms.size(); i += 2) {
        const bool done = atoms[i] != m_multiple && atoms[i + 1] != XCB_NONE &&
                          convert(owned, requestor, atoms[i], atoms[i + 1]);
        if (!done) {
            atoms[i + 1] = XCB_NONE;
            refused = true;
        }
    }
    if (refused) {
        xcb_change_property(m_link.xcb(), XCB_PROP_MODE_REPLACE, requestor, property, m_atomPair,
                            32, std::uint32_t(atoms.size()), atoms.data());
    }
    return true;
}

bool X11SelectionOwner::sendData(const Owned &owned, std::size_t index, xcb_window_t requestor,
                                 xcb_atom_t property) {
    // A requestor that uses the property anew has given up what came by it.
    endTransfers([&](const Transfer &each) {
        return each.requestor == requestor && each.property == property;
    });
    const SelectionData &data = owned.offer->contents[index];
    const int unit = data.format / 8;
    if (data.bytes.size() <= m_link.chunkBytes()) {
        xcb_change_property(m_link.xcb(), XCB_PROP_MODE_REPLACE, requestor, property,
                            owned.offer->types[index], std::uint8_t(data.format),
                            std::uint32_t(data.bytes.size() / unit), data.bytes.constData());
        return true;
    }
    if (m_transfers.size() >= kMaxTransfers)
        return false;
    watch(requestor, true);
    const auto size = std::uint32_t(std::min<qsizetype>(data.bytes.size(), INT32_MAX));
    xcb_change_property(m_link.xcb(), XCB_PROP_MODE_REPLACE, requestor, property, m_incr, 32, 1,
                        &size);
    m_transfers.push_back(
        {requestor, property, owned.offer, index, 0, false, Clock::now() + kRequestorPatience});
    return true;
}

void X11SelectionOwner::handlePropertyDeleted(xcb_window_t requestor, xcb_atom_t property) {
    const auto found =
        std::find_if(m_transfers.begin(), m_transfers.end(), [&](const Transfer &each) {
            return each.requestor == requestor && each.property == property;
        });
    if (found == m_transfers.end())
        return;
    if (!found->ended) {
        sendChunk(*found);
        return;
    }
    m_transfers.erase(found);
    watch(requestor, false);
}

void X11SelectionOwner::sendChunk(Transfer &transfer) {
    const SelectionData &data = transfer.offer->contents[transfer.index];
    const qsizetype size =
        std::min<qsizetype>(m_link.chunkBytes(), data.bytes.size() - transfer.sent);
    xcb_change_property(m_link.xcb(), XCB_PROP_MODE_REPLACE, transfer.requestor, transfer.property,
                        transfer.offer->types[transfer.index], std::uint8_t(data.format),
                        std::uint32_t(size / (data.format / 8)),
                        data.bytes.constData() + transfer.sent);
    transfer.sent += size;
    transfer.ended = size == 0;
    transfer.deadline = Clock::now() + kRequestorPatience;
}

void X11SelectionOwner::forgetRequestor(xcb_window_t window) {
    endTransfers([window](const Transfer &each) { return each.requestor == window; });
}

void X11SelectionOwner::endTransfers(const std::function<bool(const Transfer &)> &ends) {
    std::vector<xcb_window_t> windows;
    std::erase_if(m_transfers, [&](const Transfer &each) {
        if (!ends(each))
            return false;
        windows.push_back(each.requestor);
        return true;
    });
    for (const xcb_window_t window : windows)
        watch(window, false);
}

// The event mask of another program's window is ours alone to set; it stays as long as any
// transfer to the window needs it.
void X11SelectionOwner::watch(xcb_window_t requestor, bool on) {
    const bool needed = on || std::any_of(m_transfers.begin(), m_transfers.end(),
                                          [requestor](const Transfer &each) {
                                              return each.requestor == requestor;
                                          });
    const std::uint32_t mask =
        needed ? XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY : 0;
    xcb_change_window_attributes(m_link.xcb(), requestor, XCB_CW_EVENT_MASK, &mask);
}

void X11SelectionOwner::tick(Clock::time_point now) {
    endTransfers([now](const Transfer &each) { return each.deadline <= now; });
}

std::optional<X11SelectionOwner::Clock::time_point> X11SelectionOwner::nextDeadline() const {
    std::optional<Clock::time_point> next;
    for (const Transfer &each : m_transfers)
        next = next ? std::min(*next, each.deadline) : each.deadline;
    return next;
}

} // namespace quenda
