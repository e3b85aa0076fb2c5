#include "Quenda/LineQueue.h"

#include <exception>
#include <utility>

namespace quenda {

namespace {
// A burst's memory is given back once it is worked off; a few lines' is kept for the next ones.
constexpr std::size_t kKeptBytes = 256 * 1024;
} // namespace

void LineQueue::Batch::add(std::string_view head, std::string_view tail) {
    const std::size_t before = bytes.size();
    try {
        bytes.append(head).append(tail);
        ends.push_back(bytes.size());
    } catch (...) {
        bytes.resize(before);
        throw;
    }
}

void LineQueue::Batch::clear() {
    if (bytes.capacity() > kKeptBytes) {
        *this = Batch();
        return;
    }
    bytes.clear();
    ends.clear();
}

LineQueue::LineQueue(Write write, std::size_t limitBytes)
    : m_write(std::move(write)),
      m_limitBytes(limitBytes) {}

LineQueue::~LineQueue() {
    flush();
    finish(std::chrono::hours(24));
}

void LineQueue::submit(std::string_view head, std::string_view tail) noexcept {
    try {
        const std::size_t size = head.size() + tail.size();
        std::unique_lock lock(m_mutex);
        if (m_phase == Phase::Abandoned || size > m_limitBytes - m_heldBytes)
            return;
        m_waiting.add(head, tail);
        m_heldBytes += size;
        ++m_accepted;
        if (m_phase == Phase::Finished) {
            handOnWaiting();
            return;
        }
        if (m_phase == Phase::Unstarted && !startThread())
            return;
        const bool asleep = std::exchange(m_asleep, false);
        lock.unlock();
        if (asleep)
            m_wake.notify_one();
    } catch (const std::exception &) {
        // Out of memory: the line is lost, the caller is not disturbed.
    }
}

bool LineQueue::startThread() {
    try {
        m_thread = std::thread([this] { run(); });
        m_phase = Phase::Running;
        return true;
    } catch (const std::exception &) {
        return false;
    }
}

void LineQueue::run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        while (m_waiting.ends.empty() && m_phase == Phase::Running) {
            m_asleep = true;
            m_wake.wait(lock);
        }
        if (m_waiting.ends.empty())
            break;
        std::swap(m_waiting, m_current);
        lock.unlock();
        handOn(m_current);
        const std::size_t bytes = m_current.bytes.size();
        const std::size_t lines = m_current.ends.size();
        m_current.clear();
        lock.lock();
        m_heldBytes -= bytes;
        m_handedOn += lines;
        m_progress.notify_all();
    }
    if (m_phase == Phase::Finishing)
        m_phase = Phase::Finished;
    m_progress.notify_all();
}

void LineQueue::handOn(const Batch &batch) const {
    std::size_t begin = 0;
    for (const std::size_t end : batch.ends) {
        m_write(std::string_view(batch.bytes).substr(begin, end - begin));
        begin = end;
    }
}

void LineQueue::handOnWaiting() {
    handOn(m_waiting);
    m_waiting.clear();
    m_heldBytes = 0;
    m_handedOn = m_accepted;
}

void LineQueue::flush() {
    std::unique_lock lock(m_mutex);
    if (m_phase == Phase::Unstarted)
        handOnWaiting(); // nothing, or what found no thread
    const std::uint64_t goal = m_accepted;
    m_progress.wait(lock, [&] { return m_handedOn >= goal || m_phase == Phase::Abandoned; });
}

bool LineQueue::finish(std::chrono::milliseconds patience) {
    std::unique_lock lock(m_mutex);
    if (m_phase == Phase::Unstarted) {
        handOnWaiting();
        m_phase = Phase::Finished;
    }
    if (m_phase != Phase::Running)
        return m_phase == Phase::Finished;

    m_phase = Phase::Finishing;
    m_wake.notify_one();
    const bool ended =
        m_progress.wait_for(lock, patience, [&] { return m_phase == Phase::Finished; });
    if (!ended)
        m_phase = Phase::Abandoned;
    m_progress.notify_all();
    lock.unlock();
    if (ended)
        m_thread.join();
    else
        m_thread.detach();
    return ended;
}

} // namespace quenda
