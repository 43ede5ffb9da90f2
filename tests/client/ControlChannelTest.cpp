// Requests and replies on one connection, against a peer that the test itself plays.

#include <chrono>
#include <functional>
#include <future>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "client/ControlChannel.h"
#include "tests/client/ControlPeer.h"
#include "tests/support/Descriptors.h"
#include "tests/support/TempFolder.h"

namespace Ursa::OS::Wifi {
namespace {

using namespace std::chrono_literals;
using ::testing::IsEmpty;

constexpr auto kShort = 20ms;
constexpr auto kLong = 30s;

class CommandChannelTest : public testing::Test, NoOldControlClientFiles {
  protected:
    void SetUp() override { ASSERT_TRUE(channel_.open(path_)); }

    RequestResult request(const std::string& command) {
        std::string reply;
        return channel_.request(command, reply);
    }

    /** A request that nobody answers in time, as the peer got it. */
    ControlPeer::Request timeOut(const std::string& command) {
        EXPECT_EQ(request(command), RequestResult::TimedOut);
        ControlPeer::Request unanswered = peer_.receive();
        EXPECT_EQ(unanswered.text, command);
        return unanswered;
    }

    /**
     * The reply to a command that the peer answers with "re " and the command's text, after doing
     * `meanwhile`. Where the machine was too slow for the time-out, the command is repeated.
     */
    std::string ask(
        const std::string& command, const std::function<void()>& meanwhile = [] {}) {
        while (true) {
            std::string reply;
            auto result =
                std::async(std::launch::async, [&] { return channel_.request(command, reply); });
            const ControlPeer::Request received = peer_.receive();
            meanwhile();
            peer_.send(received, "re " + received.text);
            const RequestResult ended = result.get();
            if (ended != RequestResult::TimedOut || testing::Test::HasFailure()) {
                EXPECT_EQ(ended, RequestResult::Replied);
                return reply;
            }
        }
    }

    const test::TempFolder folder_;
    const std::string path_ = folder_.file("wlan0");
    ControlPeer peer_{path_};
    CommandChannel channel_{kShort};
};

TEST_F(CommandChannelTest, LateReplyBeforeTheNextCommandReachesNobody) {
    const auto late = timeOut("PING");
    EXPECT_FALSE(peer_.send(late, "PONG"));
    EXPECT_EQ(ask("GET country"), "re GET country");
    EXPECT_EQ(ask("STATUS"), "re STATUS");
}

TEST_F(CommandChannelTest, LateReplyDuringTheNextCommandIsNotTakenForItsReply) {
    const auto late = timeOut("PING");
    EXPECT_EQ(ask("GET country", [&] { EXPECT_FALSE(peer_.send(late, "PONG")); }),
              "re GET country");
    EXPECT_EQ(ask("STATUS"), "re STATUS");
}

TEST_F(CommandChannelTest, LateReplyAfterTheNextCommandIsNotTakenForTheOneBehindIt) {
    const auto late = timeOut("PING");
    EXPECT_EQ(ask("GET country"), "re GET country");
    EXPECT_FALSE(peer_.send(late, "PONG"));
    EXPECT_EQ(ask("STATUS"), "re STATUS");
}

TEST_F(CommandChannelTest, LateRepliesOfSeveralTimeoutsInARowReachNobody) {
    std::vector<ControlPeer::Request> late;
    std::set<std::string> senders;
    for (int i = 0; i < 5; ++i) {
        late.push_back(timeOut("PING " + std::to_string(i)));
        senders.insert(late.back().sender());
    }
    EXPECT_EQ(senders.size(), late.size());
    EXPECT_EQ(ask("GET country",
                  [&] {
                      for (const auto& unanswered : late) {
                          EXPECT_FALSE(peer_.send(unanswered, "PONG"));
                      }
                  }),
              "re GET country");
}

TEST_F(CommandChannelTest, SecondReplyToACommandIsNotTakenForTheNextOnes) {
    CommandChannel patient(kLong);
    ASSERT_TRUE(patient.open(path_));
    for (const char* second : {"PONG again", "", "<3>CTRL-EVENT-SCAN-STARTED "}) {
        std::string reply;
        const auto send = [&](const std::string& command) {
            return std::async(std::launch::async,
                              [&, command] { return patient.request(command, reply); });
        };
        auto result = send("PING");
        const auto first = peer_.receive();
        EXPECT_TRUE(peer_.send(first, "PONG"));
        EXPECT_TRUE(peer_.send(first, second));
        EXPECT_EQ(result.get(), RequestResult::Replied);
        EXPECT_EQ(reply, "PONG");

        result = send("GET country");
        const auto next = peer_.receive();
        EXPECT_NE(next.sender(), first.sender());
        EXPECT_FALSE(peer_.send(first, "PONG yet again"));
        EXPECT_TRUE(peer_.send(next, "DE"));
        EXPECT_EQ(result.get(), RequestResult::Replied);
        EXPECT_EQ(reply, "DE");
    }
}

TEST_F(CommandChannelTest, EventsAheadOfTheReplyAreSkipped) {
    CommandChannel patient(kLong);
    ASSERT_TRUE(patient.open(path_));
    std::string reply;
    auto result = std::async(std::launch::async, [&] { return patient.request("PING", reply); });
    const auto received = peer_.receive();
    for (const char* text : {"<3>CTRL-EVENT-SCAN-STARTED ", "<", "IFNAME=wlan0 <3>x", "IFNAME="}) {
        EXPECT_TRUE(peer_.send(received, text));
    }
    EXPECT_TRUE(peer_.send(received, "IFNAME"));
    EXPECT_EQ(result.get(), RequestResult::Replied);
    EXPECT_EQ(reply, "IFNAME");
}

TEST_F(CommandChannelTest, EventsThatKeepComingDoNotProlongTheWait) {
    auto result = std::async(std::launch::async, [&] { return request("PING"); });
    const auto received = peer_.receive();
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (result.wait_for(1ms) != std::future_status::ready &&
           std::chrono::steady_clock::now() < end) {
        peer_.send(received, "<3>CTRL-EVENT-SCAN-STARTED ");
    }
    EXPECT_LT(std::chrono::steady_clock::now(), end);
    EXPECT_EQ(result.get(), RequestResult::TimedOut);
}

TEST_F(CommandChannelTest, FailedReopeningIsTheCommandsOwnFailure) {
    timeOut("PING");
    { const ControlPeer replaced(path_); }  // closed again: the file is there, nobody behind it
    EXPECT_EQ(request("GET country"), RequestResult::NotSent);
    EXPECT_TRUE(channel_.isOpen());
    EXPECT_EQ(request("GET country"), RequestResult::NotSent);
    peer_ = ControlPeer(path_);
    EXPECT_EQ(ask("GET country"), "re GET country");
}

TEST_F(CommandChannelTest, FullQueueIsWaitedForWithinTheTimeout) {
    // A stopped process: what it does not read fills its queue.
    RequestResult result = RequestResult::TimedOut;
    int sent = 0;
    while (result == RequestResult::TimedOut && sent < 10'000) {
        result = request("PING");
        ++sent;
    }
    EXPECT_EQ(result, RequestResult::NotSent);
    for (int i = 1; i < sent; ++i) {
        peer_.receive();
    }
    EXPECT_EQ(ask("GET country"), "re GET country");
}

TEST_F(CommandChannelTest, WaitInReceiveLeavesHalfOfTheTimeForTheWaitForRoom) {
    channel_.close();
    CommandChannel patient(kLong);
    ASSERT_TRUE(patient.open(path_));
    int connections = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        sockaddr_un peer = {};
        socklen_t length = sizeof(peer);
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) == 0 &&
            peer.sun_path == path_) {
            ++connections;
            timeval limit = {};
            length = sizeof(limit);
            ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length), 0);
            EXPECT_EQ(std::chrono::seconds(limit.tv_sec), kLong / 2);
        }
    }
    EXPECT_EQ(connections, 1);
}

TEST_F(CommandChannelTest, CommandGoesOnWhenTheQueueHasRoomAgain) {
    int filled = 0;
    while (request("PING") == RequestResult::TimedOut) {
        ++filled;
    }
    CommandChannel patient(kLong);
    ASSERT_TRUE(patient.open(path_));
    std::string reply;
    auto result = std::async(std::launch::async, [&] { return patient.request("STATUS", reply); });
    for (int i = 0; i < filled; ++i) {
        EXPECT_EQ(peer_.receive().text, "PING");
    }
    peer_.send(peer_.receive(), "COMPLETED");
    EXPECT_EQ(result.get(), RequestResult::Replied);
    EXPECT_EQ(reply, "COMPLETED");
}

TEST_F(CommandChannelTest, ThousandTimeoutsLeaveNeitherFilesNorDescriptors) {
    CommandChannel impatient(1ms);
    ASSERT_TRUE(impatient.open(path_));
    std::string reply;
    const int descriptors = test::openDescriptors();
    const size_t files = controlClientFiles().size();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(impatient.request("PING", reply), RequestResult::TimedOut);
        // Closed at once, not only by the next command.
        ASSERT_EQ(test::openDescriptors(), descriptors - 1);
        peer_.receive();
    }
    EXPECT_EQ(controlClientFiles().size(), files - 1);
    impatient.close();
    channel_.close();
    EXPECT_THAT(controlClientFiles(), IsEmpty());
}

class ControlChannelTest : public testing::Test, NoOldControlClientFiles {
  protected:
    /** A path of that many bytes. */
    std::string pathOf(size_t length) const {
        std::string path = folder_.file("");
        path.resize(length, 'x');
        return path;
    }

    const test::TempFolder folder_;
    ControlChannel channel_;
};

TEST_F(ControlChannelTest, PathOf107BytesIsOpened) {
    const ControlPeer peer(pathOf(107));
    EXPECT_TRUE(channel_.open(pathOf(107)));
}

TEST_F(ControlChannelTest, PathOf108BytesIsRefusedWithoutAFileLeftBehind) {
    const ControlPeer peer(pathOf(108));  // the address needs no NUL
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(channel_.open(pathOf(108)));
        EXPECT_FALSE(channel_.open(pathOf(300)));
    }
    EXPECT_FALSE(channel_.isOpen());
    EXPECT_THAT(controlClientFiles(), IsEmpty());
}

}  // namespace
}  // namespace Ursa::OS::Wifi
