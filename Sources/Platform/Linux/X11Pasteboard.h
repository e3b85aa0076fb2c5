#pragma once
// The clipboard of an X11 session, and at need its PRIMARY selection. Owned by the platform. Main
// thread only; all dealings with other programs are the clipboard thread's.
//
// An X11 clipboard holds one item: several that are written are merged in their order, the first
// of equally named representations wins. Contents of other programs are saved up to 64 MB and 256
// representations in all; what is beyond that is not. Contents end with this program unless a
// clipboard manager takes them over.

#include "Platform/Linux/PrimarySelection.h"
#include "Platform/Linux/SelectionContents.h"
#include "Platform/Linux/X11ClipboardThread.h"
#include "Platform/Pasteboard.h"

#include <QDeadlineTimer>
#include <QObject>
#include <QTimer>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

namespace quenda {

class X11Pasteboard final : public Pasteboard, public PrimarySelection {
public:
    /// Connects to `display` (empty: the environment's). Where there is no X server, writes are
    /// refused and reads are empty, until there is one.
    explicit X11Pasteboard(const QByteArray &display = {});
    ~X11Pasteboard() override;

    void prepareToRead() override;
    void readItems(ItemsHandler handler) override;
    void clear() override;
    bool setString(const QString &text) override;
    bool writeItems(const PasteboardItems &items) override;
    std::int64_t changeCount() const override;

    bool mirrorClipboardText() override;

private:
    struct Read {
        ItemsHandler handler;
        QDeadlineTimer deadline;
        std::optional<PasteboardItems> answer; ///< waits for the reads before it
    };
    /// What a pasteboard item has no place for, kept for the items that come back.
    struct Form {
        QByteArray target;
        qsizetype size = 0;
        std::size_t hash = 0;
        QByteArray type;
        int format = 8;
    };

    bool write(const SelectionContents &contents);
    bool ownsClipboard() const;
    bool fetchIsCurrent() const;
    void startFetch();
    void dropFetch();
    void handleFetched(const std::shared_ptr<SelectionFetch> &fetch);
    void handleChanged();
    void handleDeadline();
    void answerAll(const PasteboardItems &items);
    void flush();
    PasteboardItems itemsOf(const SelectionContents &contents);
    SelectionContents contentsOf(const PasteboardItems &items) const;

    QObject m_receiver; ///< of the clipboard thread's news
    SelectionContents m_own;
    std::int64_t m_ownCount = 0; ///< of the change that made m_own the contents; 0: none
    /// The first question after a write of ours gets that write's own count, even if another
    /// program has written since.
    mutable std::optional<std::int64_t> m_mark;
    std::shared_ptr<SelectionFetch> m_fetch;
    std::deque<Read> m_reads;
    std::deque<Form> m_forms;
    QTimer m_deadline; ///< of the first read that waits
    QTimer m_expiry;   ///< of a fetch that nobody asked for
    X11ClipboardThread m_thread;
};

} // namespace quenda
