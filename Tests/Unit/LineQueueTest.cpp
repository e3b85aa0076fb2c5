#include "Quenda/LineQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <semaphore>

namespace quenda {

namespace {

using namespace std::chrono_literals;

// A place to write to that can hang.
class Place {
public:
    LineQueue::Write write() {
        return [this](std::string_view line) {
            EXPECT_FALSE(m_busy.exchange(true)) << "two lines at once";
            if (m_hangs) {
                m_reached.release();
                m_released.acquire();
            }
            m_lines.emplace_back(line);
            m_lastWriter = std::this_thread::get_id();
            m_busy = false;
        };
    }
    void hang() { m_hangs = true; }
    void waitUntilReached() { m_reached.acquire(); }
    void release() {
        m_hangs = false;
        m_released.release();
    }
    // Only after a flush().
    const std::vector<std::string> &lines() const { return m_lines; }
    std::thread::id lastWriter() const { return m_lastWriter; }

private:
    std::atomic<bool> m_hangs = false;
    std::atomic<bool> m_busy = false;
    std::counting_semaphore<> m_reached{0};
    std::counting_semaphore<> m_released{0};
    std::vector<std::string> m_lines;
    std::thread::id m_lastWriter;
};

using Lines = std::vector<std::string>;

TEST(LineQueue, LinesAreHandedOnInOrderOnAnotherThread) {
    Place place;
    LineQueue queue(place.write(), 1 << 20);
    Lines expected;
    for (int i = 0; i < 5000; ++i) {
        queue.submit("head ", std::to_string(i) + "\n");
        expected.push_back("head " + std::to_string(i) + "\n");
    }
    queue.flush();
    EXPECT_EQ(place.lines(), expected);
    EXPECT_NE(place.lastWriter(), std::this_thread::get_id());
}

TEST(LineQueue, ManyThreadsKeepTheirOwnOrderAndLoseNothing) {
    Place place;
    LineQueue queue(place.write(), 16 << 20);
    constexpr int kThreads = 8;
    constexpr int kEach = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&queue, t] {
            for (int i = 0; i < kEach; ++i)
                queue.submit(std::to_string(t), ":" + std::to_string(i));
        });
    for (std::thread &thread : threads)
        thread.join();
    queue.flush();
    std::vector<int> next(kThreads, 0);
    for (const std::string &line : place.lines()) {
        const int thread = line.at(0) - '0';
        EXPECT_EQ(line.substr(2), std::to_string(next.at(std::size_t(thread))++));
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kEach));
}

TEST(LineQueue, SubmittingReturnsWhileThePlaceHangs) {
    Place place;
    LineQueue queue(place.write(), 1 << 20);
    place.hang();
    queue.submit("", "first");
    place.waitUntilReached();
    queue.submit("", "second");
    queue.submit("", "third");
    place.release();
    queue.flush();
    EXPECT_EQ(place.lines(), (Lines{"first", "second", "third"}));
}

TEST(LineQueue, WhatDoesNotFitIsDroppedAndLaterLinesFollow) {
    Place place;
    LineQueue queue(place.write(), 10);
    place.hang();
    queue.submit("", "1234");
    place.waitUntilReached(); // being written, it still counts
    queue.submit("12", "34");
    queue.submit("", "567");
    queue.submit("", "56");
    queue.submit("", "7");
    place.release();
    queue.flush();
    EXPECT_EQ(place.lines(), (Lines{"1234", "1234", "56"}));

    queue.submit("", "0123456789");
    queue.flush();
    queue.submit("", "0123456789+");
    queue.submit("", "after");
    queue.flush();
    EXPECT_EQ(place.lines(), (Lines{"1234", "1234", "56", "0123456789", "after"}));
}

TEST(LineQueue, FlushWithoutALineReturns) {
    Place place;
    LineQueue queue(place.write(), 10);
    queue.flush();
    EXPECT_TRUE(place.lines().empty());
}

TEST(LineQueue, FinishHandsOnWhatWaitsAndLaterLinesAreHandedOnByTheirCaller) {
    Place place;
    LineQueue queue(place.write(), 1 << 20);
    Lines expected;
    for (int i = 0; i < 1000; ++i) {
        queue.submit("", std::to_string(i));
        expected.push_back(std::to_string(i));
    }
    EXPECT_TRUE(queue.finish(1h));
    EXPECT_EQ(place.lines(), expected);
    queue.submit("", "late");
    EXPECT_EQ(place.lines().back(), "late");
    EXPECT_EQ(place.lastWriter(), std::this_thread::get_id());
    queue.flush();
    EXPECT_TRUE(queue.finish(1h));
}

TEST(LineQueue, AQueueThatWasNeverUsedFinishes) {
    Place place;
    LineQueue queue(place.write(), 1 << 20);
    EXPECT_TRUE(queue.finish(0ms));
    queue.submit("", "late");
    EXPECT_EQ(place.lines(), Lines{"late"});
}

TEST(LineQueue, FinishGivesUpOnAPlaceThatHangs) {
    // Left to themselves like the thread that hangs in them.
    auto &place = *new Place;
    auto &queue = *new LineQueue(place.write(), 1 << 20);
    static void *const reachable[] = {&place, &queue};
    ASSERT_NE(reachable[0], nullptr);
    place.hang();
    queue.submit("", "stuck");
    place.waitUntilReached();
    EXPECT_FALSE(queue.finish(20ms));
    queue.submit("", "dropped");
    queue.flush();
    EXPECT_FALSE(queue.finish(1h));
    EXPECT_TRUE(place.lines().empty());
}

TEST(LineQueue, DestructionWaitsForTheLinesThatAreLeft) {
    Place place;
    {
        LineQueue queue(place.write(), 1 << 20);
        for (int i = 0; i < 1000; ++i)
            queue.submit("", "line");
    }
    EXPECT_EQ(place.lines().size(), 1000U);
}

} // namespace

} // namespace quenda
