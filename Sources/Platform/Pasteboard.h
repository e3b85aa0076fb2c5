#pragma once
// The general pasteboard (the clipboard): ordered items of ordered (type, bytes) and a counter of
// changes. Main thread only. Contents of another program are read without blocking the caller.

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace quenda {

/// One item: its representations in the owner's order. The type is the system's own name of it
/// (a uniform type identifier on macOS, a target atom's name on X11).
struct PasteboardItem {
    std::vector<std::pair<QString, QByteArray>> types;

    bool operator==(const PasteboardItem &) const = default;
};
using PasteboardItems = std::vector<PasteboardItem>;

class Pasteboard {
public:
    using ItemsHandler = std::function<void(PasteboardItems)>;

    Pasteboard() = default;
    Pasteboard(const Pasteboard &) = delete;
    Pasteboard &operator=(const Pasteboard &) = delete;
    virtual ~Pasteboard() = default;

    /// A hint that the contents will be asked for soon. A backend whose contents must be fetched
    /// from another program starts fetching; elsewhere it does nothing.
    virtual void prepareToRead() {}

    /// Reads a copy of everything on the pasteboard and hands it to `handler` exactly once, on the
    /// main thread: before this call returns where the system can answer at once, otherwise at the
    /// latest 150 ms later with what could be read by then. A representation that cannot be read
    /// is left out; an unreadable or empty pasteboard gives an empty list. Calls are answered in
    /// their order. `handler` is dropped if the pasteboard is destroyed first.
    virtual void readItems(ItemsHandler handler) = 0;

    /// Empties the pasteboard and becomes its owner. Counts as a change.
    virtual void clear() = 0;

    /// Puts `text` on the pasteboard as plain text, in place of what was there. In effect when the
    /// call returns. False where the system refuses; the pasteboard may then be empty.
    virtual bool setString(const QString &text) = 0;

    /// Puts `items` on the pasteboard, in place of what was there. In effect when the call
    /// returns. False where the system refuses.
    virtual bool writeItems(const PasteboardItems &items) = 0;

    /// Differs from an earlier answer when anyone, this program included, has changed the
    /// pasteboard in between.
    virtual std::int64_t changeCount() const = 0;
};

} // namespace quenda
