#include "Quenda/TextInjector.h"

#include "Quenda/Log.h"
#include "Quenda/Trace.h"

#include <QPointer>

#include <chrono>
#include <utility>

namespace quenda {

namespace {
// How long the application has to read the pasteboard before the old contents come back.
constexpr std::chrono::milliseconds kRestoreDelay{1000};
// How long the pasteboard is left to it when another transcript is waiting. Applications read it
// some time after the keystroke, 50 ms is usual: one that found the next text there would paste
// that one twice and the first one never.
constexpr std::chrono::milliseconds kPasteInterval{300};
} // namespace

TextInjector::TextInjector(const Environment &environment, QObject *parent)
    : QObject(parent),
      m_env(environment) {}

void TextInjector::prepare() {
    m_env.pasteboard.prepareToRead();
}

TextInjector::Outcome TextInjector::insert(const QString &text) {
    if (text.isEmpty())
        return Outcome::copiedToClipboard;
    const bool focused = m_env.accessibility.focusedElementExists();
    m_queue.push_back({text, focused});
    startNext();
    return focused ? Outcome::pasted : Outcome::copiedToClipboard;
}

// Each insertion saves what the one before it left, so the next read waits for the paste before it.
void TextInjector::startNext() {
    if (m_saving || m_waiting || m_queue.empty())
        return;
    if (m_lastPaste) {
        const std::chrono::milliseconds due = *m_lastPaste + kPasteInterval;
        const std::chrono::milliseconds now = m_env.scheduler.uptime();
        if (now < due) {
            m_waiting = true;
            m_env.scheduler.after(due - now, this, [this] {
                m_waiting = false;
                startNext();
            });
            return;
        }
    }
    m_saving = true;
    m_env.pasteboard.readItems(
        [injector = QPointer<TextInjector>(this)](const PasteboardItems &saved) {
            if (!injector)
                return;
            const Insertion insertion = std::move(injector->m_queue.front());
            injector->m_queue.pop_front();
            injector->paste(insertion, saved);
            injector->m_saving = false;
            injector->startNext();
        });
}

void TextInjector::paste(const Insertion &insertion, const PasteboardItems &saved) {
    // Without the text on the pasteboard the keystroke would paste something else.
    if (!m_env.pasteboard.setString(insertion.text))
        return;
    const std::int64_t mark = m_env.pasteboard.changeCount();
    m_env.keyPoster.postPaste();
    m_lastPaste = m_env.scheduler.uptime();
    Trace::mark("paste");
    if (insertion.focused) {
        m_env.scheduler.after(kRestoreDelay, this, [this, mark, saved] { restore(mark, saved); });
    } else {
        Log::log(QStringLiteral("insert: no focused text element — left transcript on clipboard"));
    }
}

void TextInjector::restore(std::int64_t mark, const PasteboardItems &saved) {
    // Whoever wrote to the pasteboard since then keeps what they put there.
    if (m_env.pasteboard.changeCount() != mark)
        return;
    if (saved.empty())
        m_env.pasteboard.clear();
    else
        m_env.pasteboard.writeItems(saved);
}

} // namespace quenda
