#include <chrono>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/WpaConnection.h"
#include "tests/client/ControlPeer.h"
#include "tests/support/Descriptors.h"
#include "tests/support/FakeControlSocket.h"
#include "tests/support/TempFolder.h"

namespace Ursa::OS::Wifi {
namespace {

using namespace std::chrono_literals;
using ::testing::IsEmpty;

class WpaConnectionTest : public testing::Test, NoOldControlClientFiles {
  protected:
    const test::TempFolder folder_;
    const std::string path_ = folder_.file("wlan0");
    WpaConnection connection_{30s};
};

TEST_F(WpaConnectionTest, OpensAMonitorThatIsAttachedAndACommandConnection) {
    const test::FakeControlSocket supplicant(path_);
    EXPECT_EQ(connection_.monitorFd(), -1);
    EXPECT_EQ(connection_.open(path_), ConnectResult::Connected);
    EXPECT_TRUE(connection_.isOpen());
    EXPECT_NE(connection_.monitorFd(), -1);
    EXPECT_EQ(supplicant.attached(), 1u);
    EXPECT_EQ(connection_.open(path_), ConnectResult::Connected);  // already
    EXPECT_EQ(supplicant.attachRequests(), 1u);
    connection_.close();
    EXPECT_FALSE(connection_.isOpen());
    EXPECT_EQ(connection_.monitorFd(), -1);
    EXPECT_EQ(supplicant.attached(), 0u);
    EXPECT_THAT(controlClientFiles(), IsEmpty());
}

TEST_F(WpaConnectionTest, CannotOpenWithoutAListenerOrAPath) {
    EXPECT_EQ(connection_.open(""), ConnectResult::NoPath);
    EXPECT_EQ(connection_.open(path_), ConnectResult::CannotOpen);
    EXPECT_EQ(connection_.open(std::string(300, 'x')), ConnectResult::CannotOpen);
    EXPECT_FALSE(connection_.isOpen());
}

TEST_F(WpaConnectionTest, RefusedAttachLeavesNothingOpen) {
    test::FakeControlSocket supplicant(path_);
    supplicant.answerAttach(test::FakeControlSocket::Attach::Refuse);
    EXPECT_EQ(connection_.open(path_), ConnectResult::CannotAttach);
    EXPECT_EQ(connection_.monitorFd(), -1);
    EXPECT_THAT(controlClientFiles(), IsEmpty());
}

TEST_F(WpaConnectionTest, AttachThatNobodyAnswersFailsAfterTheTimeout) {
    test::FakeControlSocket supplicant(path_);
    supplicant.answerAttach(test::FakeControlSocket::Attach::Ignore);
    WpaConnection impatient(20ms);
    EXPECT_EQ(impatient.open(path_), ConnectResult::CannotAttach);
    EXPECT_EQ(impatient.monitorFd(), -1);
}

TEST_F(WpaConnectionTest, CommandConnectionThatCannotOpenLeavesTheMonitorToBeClosed) {
    const test::FakeControlSocket supplicant(path_);
    // Once before the limit: the undefined-behaviour sanitizer opens pipes at first uses.
    ASSERT_EQ(connection_.open(path_), ConnectResult::Connected);
    connection_.close();
    ASSERT_EQ(supplicant.detachRequests(), 1u);
    {
        const test::DescriptorLimit limit(1);  // enough for the monitor
        EXPECT_EQ(connection_.open(path_), ConnectResult::CannotOpen);
        EXPECT_NE(connection_.monitorFd(), -1);
        EXPECT_FALSE(connection_.isOpen());
    }
    EXPECT_EQ(connection_.open(path_), ConnectResult::HalfOpen);
    connection_.close();
    EXPECT_EQ(connection_.monitorFd(), -1);
    EXPECT_EQ(supplicant.detachRequests(), 2u);
}

TEST_F(WpaConnectionTest, EventComesWithoutItsTagAndShortMessagesAreEmpty) {
    test::FakeControlSocket supplicant(path_);
    ASSERT_EQ(connection_.open(path_), ConnectResult::Connected);
    for (const char* text : {"", "<3>", "<3>CTRL-EVENT-TERMINATING ", "abcd"}) {
        ASSERT_EQ(supplicant.sendEvent(text), 1u);
    }
    EXPECT_EQ(connection_.receive(), "");
    EXPECT_EQ(connection_.receive(), "");
    EXPECT_EQ(connection_.receive(), "CTRL-EVENT-TERMINATING ");
    EXPECT_EQ(connection_.receive(), "d");
    EXPECT_EQ(connection_.receive(), std::nullopt);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(ConnectResult, EachFailureHasItsText) {
    EXPECT_STREQ(toString(ConnectResult::NoPath), "Wpa socket file path is not ready");
    EXPECT_STREQ(toString(ConnectResult::HalfOpen),
                 "Unexpected non-empty pointers to supplicant hal/death/ctrl interfaces");
    EXPECT_STREQ(toString(ConnectResult::NoService), "Failed to get ISupplicant service");
    EXPECT_STREQ(toString(ConnectResult::CannotAttach),
                 "Failed to register as event monitor for wpa_supplicant control interface.");
    EXPECT_STREQ(toString(ConnectResult::CannotOpen),
                 "Failed to open wpa_supplicant control interface.");
}

}  // namespace
}  // namespace Ursa::OS::Wifi
