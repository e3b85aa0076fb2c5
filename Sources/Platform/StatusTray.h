#pragma once
// Where status items are shown. Qt draws the item itself; this tells when it has to be made anew.
// Main thread only.

#include <functional>

namespace quenda {

class StatusTray {
public:
    StatusTray() = default;
    StatusTray(const StatusTray &) = delete;
    StatusTray &operator=(const StatusTray &) = delete;
    virtual ~StatusTray() = default;

    /// Whether an item made now finds somebody to show it. An item must not be made before.
    virtual bool hasHost() const = 0;

    /// Calls `handler` whenever the desktop's host for status items has come, gone or become
    /// another one, so that an item made for the former host no longer shows. Replaces an earlier
    /// handler.
    virtual void setHostChangedHandler(std::function<void()> handler) = 0;
};

} // namespace quenda
