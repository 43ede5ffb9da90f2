#include <gtest/gtest.h>

#include "client/ReconnectSchedule.h"

namespace Ursa::OS::Wifi {
namespace {

TEST(ReconnectSchedule, BeginsAfter25MsThenEvery50MsForFiveSecondsThenEvery5SecondsForAnHour) {
    ReconnectSchedule schedule{ReconnectDelays{}};
    EXPECT_EQ(schedule.begin(), 25);
    int64_t accumulated = 0;
    int fast = 0;
    int slow = 0;
    while (!schedule.isOver()) {
        const int64_t delay = schedule.next();
        ASSERT_EQ(delay, accumulated < 5'000 ? 50 : 5'000) << accumulated;
        ++(delay == 50 ? fast : slow);
        accumulated += delay;
    }
    EXPECT_EQ(fast, 100);
    EXPECT_EQ(slow, 719);
    EXPECT_EQ(accumulated, 3'600'000);
    EXPECT_EQ(schedule.giveUpAfter(), 3'600'000);
}

TEST(ReconnectSchedule, IsOverOnceTheDelaysHaveReachedTheLimit) {
    ReconnectSchedule schedule({1, 2, 6, 3, 12});
    schedule.begin();
    for (const int64_t delay : {2, 2, 2, 3, 3}) {
        EXPECT_FALSE(schedule.isOver());
        EXPECT_EQ(schedule.next(), delay);
    }
    EXPECT_TRUE(schedule.isOver());
}

TEST(ReconnectSchedule, ForgetsTheDelaysWhenItBeginsAnew) {
    ReconnectSchedule schedule({1, 2, 2, 3, 5});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(schedule.begin(), 1);
        EXPECT_FALSE(schedule.isOver());
        EXPECT_EQ(schedule.next(), 2);
        EXPECT_EQ(schedule.next(), 3);
        EXPECT_TRUE(schedule.isOver());
    }
}

}  // namespace
}  // namespace Ursa::OS::Wifi
