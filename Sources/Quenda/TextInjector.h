#pragma once
// Puts a finished transcript into the application with the keyboard focus: by way of the
// pasteboard and a paste keystroke, and gives the pasteboard back a second later. Owned by the
// controller. Main thread only.

#include "Platform/Accessibility.h"
#include "Platform/KeyPoster.h"
#include "Platform/Pasteboard.h"
#include "Platform/Scheduler.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace quenda {

class TextInjector : public QObject {
    Q_OBJECT
public:
    enum class Outcome { pasted, copiedToClipboard };

    struct Environment {
        Pasteboard &pasteboard;
        KeyPoster &keyPoster;
        Accessibility &accessibility;
        Scheduler &scheduler;
    };

    explicit TextInjector(const Environment &environment, QObject *parent = nullptr);

    /// Lets the pasteboard fetch its contents while the transcript is still being made, so that
    /// insert() need not wait for their owner.
    void prepare();

    /// Inserts `text`. `copiedToClipboard` where nothing has the keyboard focus or the text is
    /// empty: the transcript stays on the pasteboard. The paste may follow up to 150 ms after the
    /// return, where the pasteboard's previous owner is slow, and comes no sooner than 300 ms after
    /// the one before it, whose text is still being read; insertions keep their order.
    Outcome insert(const QString &text);

private:
    struct Insertion {
        QString text;
        bool focused = false;
    };

    void startNext();
    void paste(const Insertion &insertion, const PasteboardItems &saved);
    void restore(std::int64_t mark, const PasteboardItems &saved);

    Environment m_env;
    std::deque<Insertion> m_queue; ///< not yet pasted; the front one's contents are being saved
    bool m_saving = false;
    bool m_waiting = false; ///< for the time between two pastes to pass
    std::optional<std::chrono::milliseconds> m_lastPaste; ///< by the scheduler's uptime
};

} // namespace quenda
