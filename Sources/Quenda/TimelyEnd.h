#pragma once
// Ends the process when its end takes too long. Qt's application object, going, waits for every
// look-up of a name that is under way, and that takes as long as the name server likes.
//
// Owned by main, before the application object, so that it goes after it. Used on the main thread.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace quenda {

class TimelyEnd {
public:
    TimelyEnd() = default;
    TimelyEnd(const TimelyEnd &) = delete;
    TimelyEnd &operator=(const TimelyEnd &) = delete;
    /// It was timely.
    ~TimelyEnd();

    /// All that matters is done: if this object still lives after `patience`, the process ends with
    /// `status` at once, whatever its threads do. Once only.
    void expect(std::chrono::milliseconds patience, int status);

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_over = false; ///< guarded by m_mutex
    std::thread m_thread;
};

} // namespace quenda
