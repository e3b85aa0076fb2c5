#include "Quenda/TimelyEnd.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace quenda {
namespace {

using namespace std::chrono_literals;

TEST(TimelyEndDeathTest, EndsAProcessThatDoesNotEnd) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            TimelyEnd end;
            end.expect(10ms, 7);
            std::this_thread::sleep_for(60s); // as whoever waits for somebody else
        },
        testing::ExitedWithCode(7), "");
}

TEST(TimelyEndDeathTest, LeavesOneAloneThatEndsInTime) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            {
                TimelyEnd end;
                end.expect(50ms, 7);
            }
            std::this_thread::sleep_for(100ms);
            std::_Exit(3);
        },
        testing::ExitedWithCode(3), "");
}

} // namespace
} // namespace quenda
