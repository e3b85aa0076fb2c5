// How long threads that the main thread may wait for could have run, but the machine had no
// processor for them; for the stall watch.
//
// Owned by the watch and used on its thread only. The threads are those of the X server and of the
// message buses with the panel on them, if such with usual names are to be seen, and the program's
// own but the main one and the caller's. Their kernel's account is kept open, so that looking at it
// often costs little. All is 0 where there is no /proc.
#pragma once

#include <QString>

#include <chrono>
#include <vector>

namespace quenda {

class ThreadQueues {
public:
    struct Waits {
        std::chrono::nanoseconds server{};
        std::chrono::nanoseconds buses{};
        std::chrono::nanoseconds own{};
    };

    ThreadQueues() = default;
    ThreadQueues(const ThreadQueues &) = delete;
    ThreadQueues &operator=(const ThreadQueues &) = delete;
    ~ThreadQueues();

    /// From now on is counted.
    void begin();
    /// What came together since begin(), all threads of each kind added up.
    [[nodiscard]] Waits sinceBegin();

private:
    using Kind = std::chrono::nanoseconds Waits::*;
    struct Thread {
        QString folder;
        int file;
        Kind kind;
        std::chrono::nanoseconds before;
    };

    void look();
    void add(const QString &process, Kind kind);

    std::vector<Thread> m_threads;
    std::chrono::steady_clock::time_point m_lookAgain{};
};

} // namespace quenda
