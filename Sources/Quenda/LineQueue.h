#pragma once
// Lines on their way to a slow place: any thread submits, one own thread hands them on in the
// order of submission. The thread starts with the first line and sleeps without any wake-up while
// there is nothing to do. Owned by the log.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace quenda {

class LineQueue {
public:
    using Write = std::function<void(std::string_view line)>;

    /// `write` gets one line at a time, never two at once; it must not throw nor submit.
    /// `limitBytes`: how much may wait. While that much waits, because the place hangs or is much
    /// slower than the callers, further lines are dropped: a caller is never made to wait, and
    /// what was accepted first is kept.
    LineQueue(Write write, std::size_t limitBytes);
    LineQueue(const LineQueue &) = delete;
    LineQueue &operator=(const LineQueue &) = delete;
    /// Waits for the lines that are left. Not allowed after a finish() in vain.
    ~LineQueue();

    /// Queues the line `head` + `tail`. Where no thread can be started the line stays queued, and
    /// the next one tries again.
    void submit(std::string_view head, std::string_view tail) noexcept;

    /// Waits until every line accepted before the call has been handed on.
    void flush();

    /// Hands on what is left and ends the thread, waiting at most `patience`. From then on a line
    /// is handed on by its caller before submit() returns; where the wait was in vain, lines are
    /// dropped instead and the thread is left to itself. False in that case.
    bool finish(std::chrono::milliseconds patience);

private:
    // Lines end to end, so that a caller pays for two copies and, as a rule, no allocation.
    struct Batch {
        std::string bytes;
        std::vector<std::size_t> ends;

        void add(std::string_view head, std::string_view tail);
        void clear();
    };
    enum class Phase { Unstarted, Running, Finishing, Finished, Abandoned };

    void run();
    void handOn(const Batch &batch) const;
    void handOnWaiting();
    bool startThread();

    const Write m_write;
    const std::size_t m_limitBytes;

    std::mutex m_mutex; // guards all that follows but m_current and m_thread
    std::condition_variable m_wake;
    std::condition_variable m_progress;
    Phase m_phase = Phase::Unstarted;
    bool m_asleep = false;
    Batch m_waiting;
    std::size_t m_heldBytes = 0; // in m_waiting and m_current
    std::uint64_t m_accepted = 0;
    std::uint64_t m_handedOn = 0;

    Batch m_current; // the thread's own
    std::thread m_thread;
};

} // namespace quenda
