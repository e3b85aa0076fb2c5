#pragma once
// The thread that deals with other programs about the clipboard, so that a hung one never holds up
// the main thread. It connects when it is made and, once the connection was lost, at the next use.
// Owned by the pasteboard; called from the main thread. A call waits for this thread and the X
// server, half a second at most.

#include "Platform/Linux/SelectionContents.h"

#include <QByteArray>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace quenda {

class X11ClipboardThread {
public:
    /// Called on the clipboard thread, never after the destructor has returned.
    struct Handlers {
        std::function<void(std::shared_ptr<SelectionFetch>)> fetched; ///< all was read
        std::function<void()> changed; ///< by another program, or the connection is lost
    };

    X11ClipboardThread(const QByteArray &display, Handlers handlers);
    /// Lets a clipboard manager, if there is one, take over what is ours.
    ~X11ClipboardThread();
    X11ClipboardThread(const X11ClipboardThread &) = delete;
    X11ClipboardThread &operator=(const X11ClipboardThread &) = delete;

    std::int64_t changeCount() const;
    /// Takes the clipboard; the count of this very change, or none where that was refused.
    std::optional<std::int64_t> own(SelectionContents contents);
    /// Takes PRIMARY with the text that the clipboard holds.
    bool ownPrimary();
    /// Begins to fill `fetch`, in place of the one before; returns at once.
    void startFetch(std::shared_ptr<SelectionFetch> fetch);
    void cancelFetch(const std::shared_ptr<SelectionFetch> &fetch);

private:
    class Worker;
    std::shared_ptr<Worker> m_worker;
    std::thread m_thread;
};

} // namespace quenda
