#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include "sim/EventLoop.h"

using namespace std::chrono_literals;
using android::base::unique_fd;
using sim::EventLoop;

namespace {

/** A descriptor that is readable. */
unique_fd readable() { return unique_fd(eventfd(1, EFD_CLOEXEC)); }

TEST(EventLoop, TimersRunAtTheirTimeAndNotBefore) {
    EventLoop loop;
    const auto begin = EventLoop::Clock::now();
    std::vector<std::string> ran;
    loop.after(20ms, [&] {
        ran.push_back("second");
        EXPECT_GE(EventLoop::Clock::now(), begin + 20ms);
        loop.stop();
    });
    loop.after(300us, [&] { ran.push_back("first"); });
    loop.run();
    EXPECT_THAT(ran, testing::ElementsAre("first", "second"));
}

TEST(EventLoop, CancelledTimerDoesNotRun) {
    EventLoop loop;
    bool ran = false;
    EventLoop::TimerId late{};
    loop.after({}, [&] {
        std::this_thread::sleep_for(2ms);  // it is due by now
        loop.cancel(late);
    });
    late = loop.after(1ms, [&] { ran = true; });
    loop.after(10ms, [&] { loop.stop(); });
    loop.run();
    EXPECT_FALSE(ran);
}

TEST(EventLoop, TimerThatRearmsItselfLeavesTurnsToDescriptors) {
    EventLoop loop;
    const unique_fd fd = readable();
    std::function<void()> again = [&] { loop.after({}, again); };
    again();
    loop.watch(fd.get(), [&] { loop.stop(); });
    loop.run();
}

TEST(EventLoop, ReadyDescriptorThatIsForgottenIsNotCalled) {
    EventLoop loop;
    const unique_fd first = readable();
    const unique_fd second = readable();
    int calls = 0;
    const auto forgetBoth = [&] {
        ++calls;
        loop.forget(first.get());
        loop.forget(second.get());
    };
    loop.watch(first.get(), forgetBoth);
    loop.watch(second.get(), forgetBoth);
    loop.after(10ms, [&] { loop.stop(); });
    loop.run();
    EXPECT_EQ(calls, 1);
}

TEST(EventLoop, LaterWatchReplacesTheEarlier) {
    EventLoop loop;
    const unique_fd fd = readable();
    bool old = false;
    loop.watch(fd.get(), [&] { old = true; });
    loop.watch(fd.get(), [&] { loop.stop(); });
    loop.run();
    EXPECT_FALSE(old);
}

TEST(EventLoop, PostedTasksRunInOrderOnTheThreadOfTheLoop) {
    EventLoop loop;
    std::vector<int> ran;
    std::thread other([&] {
        for (int i = 0; i < 1000; ++i) {
            loop.post([&ran, i] { ran.push_back(i); });
        }
        loop.post([&] { loop.stop(); });
    });
    loop.run();
    other.join();
    ASSERT_EQ(ran.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(ran.begin(), ran.end()));
}

}  // namespace
