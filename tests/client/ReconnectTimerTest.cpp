#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include "client/ReconnectTimer.h"
#include "tests/support/Descriptors.h"
#include "tests/support/LogCapture.h"

namespace Ursa::OS::Wifi {
namespace {

class ReconnectTimerTest : public testing::Test {
  protected:
    using Wake = ReconnectTimer::Wake;

    void SetUp() override { ASSERT_TRUE(timer_.init()); }

    /** Milliseconds until it expires, rounded up; 0 when it is not armed. */
    int64_t left() const {
        itimerspec left = {};
        timerfd_gettime(timer_.fd(), &left);
        return left.it_value.tv_sec * 1000 + (left.it_value.tv_nsec + 999'999) / 1'000'000;
    }

    bool waitForExpiry() const {
        pollfd readable = {timer_.fd(), POLLIN, 0};
        return ::poll(&readable, 1, 30'000) == 1;
    }

    size_t errors(const std::string& text) const {
        return log_.count(ANDROID_LOG_ERROR, "[WPA-P2P] " + text);
    }

    test::LogCapture log_;
    ReconnectTimer timer_{NetInterfaceType::P2P};
};

TEST_F(ReconnectTimerTest, DelayIsMillisecondsZeroExpiresAtOnceAndNegativeDisarms) {
    EXPECT_TRUE(timer_.set(61'500));
    EXPECT_GT(left(), 31'500);
    EXPECT_LE(left(), 61'500);
    EXPECT_TRUE(timer_.set(-1));
    EXPECT_EQ(left(), 0);
    EXPECT_TRUE(timer_.set(0));
    EXPECT_TRUE(waitForExpiry());
}

TEST_F(ReconnectTimerTest, ExpiryIsTakenOnce) {
    ASSERT_TRUE(timer_.set(0));
    ASSERT_TRUE(waitForExpiry());
    EXPECT_EQ(timer_.take(EPOLLIN), Wake::Expired);
    EXPECT_EQ(timer_.take(EPOLLIN), Wake::Nothing);
    EXPECT_EQ(errors("onReconnectTimerFire_: no valid reconnect timer event"), 1u);
}

TEST_F(ReconnectTimerTest, WakeUpForNothingIsNotLogged) {
    EXPECT_EQ(timer_.take(0), Wake::Nothing);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(ReconnectTimerTest, ErrorOfTheDescriptorBreaksTheTimer) {
    EXPECT_EQ(timer_.take(EPOLLERR), Wake::Broken);
    EXPECT_EQ(errors("onReconnectTimerFire_: unexpected poll error: 0x00000008"), 1u);
    EXPECT_EQ(timer_.take(EPOLLHUP | EPOLLIN), Wake::Broken);
    EXPECT_EQ(errors("onReconnectTimerFire_: unexpected poll error: 0x00000011"), 1u);
}

TEST_F(ReconnectTimerTest, DelayThatCannotBeSetIsLogged) {
    const android::base::unique_fd noTimer(open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_NE(dup2(noTimer.get(), timer_.fd()), -1);
    EXPECT_FALSE(timer_.set(50));
    EXPECT_EQ(errors("Failed to config wpa socket reconnect timer with delay = 50 ms: err 22"), 1u);
}

TEST_F(ReconnectTimerTest, SecondDescriptorIsRefused) {
    const int fd = timer_.fd();
    EXPECT_FALSE(timer_.init());
    EXPECT_EQ(timer_.fd(), fd);
    EXPECT_EQ(errors("Cannot initialize wpa socket reconnect timer due to the unexpected file "
                     "descriptor"),
              1u);
}

TEST_F(ReconnectTimerTest, TimerWithoutADescriptorCannotBeSet) {
    ReconnectTimer without(NetInterfaceType::P2P);
    {
        const test::DescriptorLimit limit(0);
        EXPECT_FALSE(without.init());
    }
    EXPECT_EQ(errors("Failed to init wpa socket reconnect timer: err 24"), 1u);
    EXPECT_EQ(without.fd(), -1);
    EXPECT_FALSE(without.set(50));
    EXPECT_EQ(
        log_.count(ANDROID_LOG_WARN,
                   "[WPA-P2P] Failed to config wpa socket reconnect timer due to no valid fd"),
        1u);
}

}  // namespace
}  // namespace Ursa::OS::Wifi
