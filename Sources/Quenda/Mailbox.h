#pragma once
// Lets a thread of work hand results to the main thread without knowing whether anybody still
// waits for them. Owned on the main thread; the posting end is copied into the thread.

#include <QMetaObject>
#include <QObject>

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace quenda {

class Mailbox {
public:
    /// The posting end. Any thread.
    class Slot {
    public:
        /// Runs `task` on the mailbox's thread, later; drops it where the mailbox is gone.
        void post(std::function<void()> task) const {
            const std::lock_guard lock(m_state->mutex);
            if (m_state->receiver)
                QMetaObject::invokeMethod(m_state->receiver, std::move(task), Qt::QueuedConnection);
        }

    private:
        friend class Mailbox;
        struct State {
            std::mutex mutex;
            QObject *receiver = nullptr;
        };
        std::shared_ptr<State> m_state = std::make_shared<State>();
    };

    Mailbox() { m_slot.m_state->receiver = &m_receiver; }
    Mailbox(const Mailbox &) = delete;
    Mailbox &operator=(const Mailbox &) = delete;
    ~Mailbox() {
        const std::lock_guard lock(m_slot.m_state->mutex);
        m_slot.m_state->receiver = nullptr;
    }

    Slot slot() const { return m_slot; }

private:
    QObject m_receiver;
    Slot m_slot;
};

} // namespace quenda
