#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "client/BssEventFilter.h"

namespace Ursa::OS::Wifi {
namespace {

const std::string kAdded = "CTRL-EVENT-BSS-ADDED ";
const std::string kRemoved = "CTRL-EVENT-BSS-REMOVED ";

/** A pair of sockets, the second of which filters. */
class BssEventFilter : public testing::Test {
  protected:
    BssEventFilter() {
        std::array<int, 2> ends = {};
        socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data());
        sender_.reset(ends[0]);
        receiver_.reset(ends[1]);
    }

    /** Whether a datagram arrives, and unchanged. */
    bool arrives(const std::string& datagram) {
        EXPECT_EQ(send(sender_.get(), datagram.data(), datagram.size(), 0),
                  static_cast<ssize_t>(datagram.size()));
        std::string received(8192, '\0');
        const ssize_t length = recv(receiver_.get(), received.data(), received.size(), 0);
        if (length < 0) {
            return false;
        }
        received.resize(static_cast<size_t>(length));
        EXPECT_EQ(received, datagram);
        return true;
    }

    android::base::unique_fd sender_;
    android::base::unique_fd receiver_;
};

TEST_F(BssEventFilter, TwoEventsAreDroppedInTheKernelAndTheSenderSeesNoError) {
    ASSERT_TRUE(dropBssEvents(receiver_.get()));
    EXPECT_FALSE(arrives("<3>CTRL-EVENT-BSS-ADDED 0 02:00:00:00:01:00"));
    EXPECT_FALSE(arrives("<2>CTRL-EVENT-BSS-REMOVED 0 02:00:00:00:01:00"));
    EXPECT_FALSE(arrives("<3>" + kAdded));
    EXPECT_FALSE(arrives("<3>" + kRemoved));
    EXPECT_FALSE(arrives("<3>" + kAdded + std::string(4000, 'x')));
}

TEST_F(BssEventFilter, EveryOtherEventArrivesUnchanged) {
    ASSERT_TRUE(dropBssEvents(receiver_.get()));
    EXPECT_TRUE(arrives("<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed"));
    EXPECT_TRUE(arrives("<3>CTRL-EVENT-SCAN-RESULTS "));
    EXPECT_TRUE(arrives("OK\n"));
    EXPECT_TRUE(arrives(""));
    EXPECT_TRUE(arrives("<3>"));
    EXPECT_TRUE(arrives(std::string(4096, '\0')));
    EXPECT_TRUE(arrives(kAdded));
    EXPECT_TRUE(arrives("IFNAME=wlan0 <3>" + kAdded));
}

TEST_F(BssEventFilter, KernelAndThePrefixTestAgreeOnEveryTextThatDiffersInOnePlace) {
    ASSERT_TRUE(dropBssEvents(receiver_.get()));
    for (const std::string& whole : {kAdded, kRemoved}) {
        for (size_t length = 0; length <= whole.size(); ++length) {
            const std::string cut = whole.substr(0, length);
            EXPECT_EQ(arrives("<3>" + cut), !isBssEvent(cut)) << cut;
        }
        for (size_t at = 0; at < whole.size(); ++at) {
            std::string changed = whole + "0 02:00:00:00:01:00";
            changed[at] = static_cast<char>(changed[at] ^ 1);
            EXPECT_FALSE(isBssEvent(changed));
            EXPECT_TRUE(arrives("<3>" + changed)) << changed;
        }
    }
}

TEST(IsBssEvent, OnlyTheTwoPrefixesWithTheirBlankMatch) {
    EXPECT_TRUE(isBssEvent(kAdded));
    EXPECT_TRUE(isBssEvent(kAdded + "0 02:00:00:00:01:00"));
    EXPECT_TRUE(isBssEvent(kRemoved));
    EXPECT_FALSE(isBssEvent("CTRL-EVENT-BSS-ADDED"));
    EXPECT_FALSE(isBssEvent("CTRL-EVENT-BSS-REMOVED"));
    EXPECT_FALSE(isBssEvent("CTRL-EVENT-BSS-"));
    EXPECT_FALSE(isBssEvent(""));
    EXPECT_FALSE(isBssEvent("<3>" + kAdded));
}

TEST(DropBssEvents, WhatIsNoSocketIsRefused) { EXPECT_FALSE(dropBssEvents(STDIN_FILENO + 1000)); }

}  // namespace
}  // namespace Ursa::OS::Wifi
