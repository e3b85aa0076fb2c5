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
    if (m_saving || m_queue.empty())
        return;
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
