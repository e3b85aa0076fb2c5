#include "Quenda/TimerScheduler.h"

#include <QEventLoop>
#include <QObject>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace quenda {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

// Runs the event loop until `ready`, at most for a time that only a broken scheduler needs.
template <typename Ready>
bool runUntil(Ready ready) {
    QEventLoop loop;
    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, &loop, &QEventLoop::quit);
    deadline.start(5000);
    while (!ready() && deadline.isActive())
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    return ready();
}

// Long enough for everything that is due within `span` to have run.
void runFor(std::chrono::milliseconds span) {
    QEventLoop loop;
    QTimer::singleShot(span, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

class TimerSchedulerTest : public testing::Test {
protected:
    TimerScheduler scheduler;
    QObject context;
    std::vector<int> ran;

    Scheduler::Task record(int number) {
        return [this, number] { ran.push_back(number); };
    }
};

TEST_F(TimerSchedulerTest, ATaskWithoutDelayRunsInTheNextRoundNotAtOnce) {
    scheduler.after(0ms, &context, record(1));
    scheduler.after(-5ms, &context, record(2));
    EXPECT_TRUE(ran.empty());
    ASSERT_TRUE(runUntil([&] { return ran.size() == 2; }));
    EXPECT_THAT(ran, ElementsAre(1, 2));
}

TEST_F(TimerSchedulerTest, TasksRunInTheOrderOfTheirDueTimesAndEqualOnesOfTheirCalls) {
    scheduler.after(30ms, &context, record(9));
    for (int i = 0; i < 8; ++i)
        scheduler.after(10ms, &context, record(i));
    ASSERT_TRUE(runUntil([&] { return ran.size() == 9; }));
    EXPECT_THAT(ran, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 9));
}

TEST_F(TimerSchedulerTest, ATaskRunsOnceAndNotBeforeItsTime) {
    const auto start = scheduler.uptime();
    auto due = 0ms;
    scheduler.after(25ms, &context, [&] {
        ran.push_back(1);
        due = scheduler.uptime() - start;
    });
    ASSERT_TRUE(runUntil([&] { return !ran.empty(); }));
    EXPECT_GE(due, 24ms) << "both clocks count whole milliseconds";
    runFor(60ms);
    EXPECT_THAT(ran, ElementsAre(1));
}

TEST_F(TimerSchedulerTest, ATaskDiesWithItsContext) {
    auto gone = std::make_unique<QObject>();
    scheduler.after(0ms, gone.get(), record(1));
    scheduler.after(5ms, gone.get(), record(2));
    scheduler.after(5ms, nullptr, record(3));
    scheduler.after(0ms, nullptr, record(4));
    scheduler.after(6ms, &context, record(5));
    gone.reset();
    ASSERT_TRUE(runUntil([&] { return !ran.empty(); }));
    runFor(20ms);
    EXPECT_THAT(ran, ElementsAre(5));
}

TEST_F(TimerSchedulerTest, ATaskMayDestroyItsContext) {
    auto *doomed = new QObject;
    scheduler.after(0ms, doomed, [this, doomed] {
        delete doomed;
        ran.push_back(1);
    });
    auto *other = new QObject;
    scheduler.after(1ms, other, [this, other] {
        delete other;
        ran.push_back(2);
    });
    ASSERT_TRUE(runUntil([&] { return ran.size() == 2; }));
    EXPECT_THAT(ran, ElementsAre(1, 2));
}

TEST_F(TimerSchedulerTest, AHandleCancelsItsTask) {
    Scheduler::TimerHandle kept = scheduler.once(5ms, record(1));
    Scheduler::TimerHandle cancelled = scheduler.once(5ms, record(2));
    Scheduler::TimerHandle stopped = scheduler.every(5ms, record(3));
    cancelled.reset();
    stopped.reset();
    runFor(40ms);
    EXPECT_THAT(ran, ElementsAre(1)) << "and only once";
}

TEST_F(TimerSchedulerTest, AssigningAHandleReplacesItsTask) {
    Scheduler::TimerHandle handle = scheduler.once(5ms, record(1));
    handle = scheduler.once(5ms, record(2));
    runFor(40ms);
    EXPECT_THAT(ran, ElementsAre(2));
}

TEST_F(TimerSchedulerTest, ARepeatingTaskRunsUntilItDestroysItsHandle) {
    Scheduler::TimerHandle handle;
    // What the task holds must live until it has returned.
    const std::vector<int> captured(1000, 7);
    handle = scheduler.every(2ms, [this, &handle, captured] {
        if (ran.size() == 2)
            handle.reset();
        ran.push_back(captured.back());
    });
    ASSERT_TRUE(runUntil([&] { return ran.size() == 3; }));
    runFor(20ms);
    EXPECT_THAT(ran, ElementsAre(7, 7, 7));
    EXPECT_EQ(handle, nullptr);
}

TEST_F(TimerSchedulerTest, AOneShotTaskMayDestroyItsHandleOrScheduleIntoIt) {
    Scheduler::TimerHandle handle;
    const std::vector<int> captured(1000, 1);
    handle = scheduler.once(1ms, [this, &handle, captured] {
        handle = scheduler.once(1ms, [this, &handle, captured] {
            handle.reset();
            ran.push_back(captured.back() + 1);
        });
        ran.push_back(captured.back());
    });
    ASSERT_TRUE(runUntil([&] { return ran.size() == 2; }));
    EXPECT_THAT(ran, ElementsAre(1, 2));
}

TEST_F(TimerSchedulerTest, UptimeAndNowGoOn) {
    const auto start = scheduler.uptime();
    const QDateTime wall = scheduler.now();
    runFor(20ms);
    EXPECT_GE(scheduler.uptime() - start, 19ms);
    EXPECT_LT(scheduler.uptime() - start, 5s);
    EXPECT_EQ(wall.timeSpec(), Qt::LocalTime);
    EXPECT_LT(qAbs(wall.secsTo(QDateTime::currentDateTime())), 60);
}

} // namespace

} // namespace quenda
