// Commands and their replies.

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/client/WpaSocketFixture.h"

namespace Ursa::OS::Wifi {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class WpaSocketCommands : public WpaSocketTest {
  protected:
    void SetUp() override { ASSERT_TRUE(connect(socket_)); }

    void answer(const std::string& reply) {
        supplicant_.answerCommands([reply](const std::string&) { return reply; });
    }

    test::FakeControlSocket supplicant_{path_};
    std::shared_ptr<WpaSocket> socket_ = makeSocket();
};

TEST_F(WpaSocketCommands, ReplyIsExactlyWhatCameBack) {
    answer("RSSI=-55\nFREQUENCY=5180\n");
    std::string reply = "before";
    EXPECT_TRUE(socket_->sendCtrlCmd("SIGNAL_POLL", reply));
    EXPECT_EQ(reply, "RSSI=-55\nFREQUENCY=5180\n");
    EXPECT_THAT(supplicant_.commands(), ElementsAre("SIGNAL_POLL"));
}

TEST_F(WpaSocketCommands, FailReplyIsAReply) {
    answer("FAIL\n");
    std::string reply;
    EXPECT_TRUE(socket_->sendCtrlCmd("DRIVER SET_TXPOWER 10", reply));
    EXPECT_EQ(reply, "FAIL\n");
}

TEST_F(WpaSocketCommands, EmptyAndABinaryReplyAreKept) {
    std::string reply = "before";
    answer("");
    EXPECT_TRUE(socket_->sendCtrlCmd("X", reply));
    EXPECT_EQ(reply, "");
    answer(std::string("a\0b\n", 4));
    EXPECT_TRUE(socket_->sendCtrlCmd("X", reply));
    EXPECT_EQ(reply, std::string("a\0b\n", 4));
}

TEST_F(WpaSocketCommands, OversizedReplyIsCutAtTheLibrarysLimit) {
    std::string reply;
    answer(std::string(4095, 'x'));
    EXPECT_TRUE(socket_->sendCtrlCmd("X", reply));
    EXPECT_EQ(reply, std::string(4095, 'x'));
    answer(std::string(9000, 'y'));
    EXPECT_TRUE(socket_->sendCtrlCmd("X", reply));
    EXPECT_EQ(reply, std::string(4095, 'y'));
    answer("OK\n");
    EXPECT_TRUE(socket_->sendCtrlCmd("X", reply));
    EXPECT_EQ(reply, "OK\n");
}

TEST_F(WpaSocketCommands, CommandWhileConnectingIsNotConnected) {
    const auto connecting = makeSocket();
    connecting->onSocketFileCreate(folder_.file("nobody"));
    ASSERT_TRUE(turnUntil(connecting, State::Connecting));
    std::string reply;
    EXPECT_FALSE(connecting->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
}

TEST_F(WpaSocketCommands, CommandToAStoppedSocketIsNotConnected) {
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    std::string reply;
    EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
    EXPECT_THAT(supplicant_.commands(), IsEmpty());
}

TEST_F(WpaSocketCommands, CommandBetweenTheConnectionAndItsStateIsNotConnected) {
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil([&] { return connections().size() == 2; }));
    ASSERT_EQ(socket_->state(), State::Connecting);
    std::string reply;
    EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
}

TEST_F(WpaSocketCommands, CommandToASupplicantThatHasGoneFailsAtOnce) {
    supplicant_.crash();
    std::string reply;
    EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: SEND-RECV");
}

/** A socket that does not wait long for a reply. */
class WpaSocketLateReplies : public WpaSocketCommands {
  protected:
    void SetUp() override {
        socket_ = WpaSocket::create(NetInterfaceType::STA, poll_, eventFd_, history_, kEndless,
                                    std::chrono::milliseconds(20));
        ASSERT_TRUE(connect(socket_));
        supplicant_.answerCommands([released = released_](const std::string& command) {
            if (command == "PING") {
                released.wait();
            }
            return "re " + command;
        });
    }

    ~WpaSocketLateReplies() override { release(); }

    /** The supplicant, which stands still at a PING, goes on. Once. */
    void release() {
        if (released_.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            release_.set_value();
        }
    }

    std::string timeOut() {
        std::string reply;
        EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
        return reply;
    }

    /** Sends until the reply comes in time, which depends on the machine too. */
    std::string ask(const std::string& command) {
        std::string reply;
        while (!socket_->sendCtrlCmd(command, reply) && reply == "ERROR: TIMEOUT") {
        }
        return reply;
    }

    std::promise<void> release_;
    const std::shared_future<void> released_ = release_.get_future().share();
};

TEST_F(WpaSocketLateReplies, CommandThatNobodyAnswersTimesOut) {
    EXPECT_EQ(timeOut(), "ERROR: TIMEOUT");
}

TEST_F(WpaSocketLateReplies, LateReplyBeforeTheNextCommandIsNotTakenForItsReply) {
    EXPECT_EQ(timeOut(), "ERROR: TIMEOUT");
    release();
    // The answer to this one comes after the late reply; it goes by another connection.
    std::string reply;
    const auto other = makeSocket();
    ASSERT_TRUE(connect(other));
    EXPECT_TRUE(other->sendCtrlCmd("OTHER", reply));
    EXPECT_EQ(ask("STATUS"), "re STATUS");
    EXPECT_EQ(ask("GET country"), "re GET country");
}

TEST_F(WpaSocketLateReplies, LateReplyDuringTheNextCommandIsNotTakenForItsReply) {
    EXPECT_EQ(timeOut(), "ERROR: TIMEOUT");
    auto next = std::async(std::launch::async, [this] { return ask("STATUS"); });
    release();
    EXPECT_EQ(next.get(), "re STATUS");
    EXPECT_EQ(ask("GET country"), "re GET country");
}

TEST_F(WpaSocketLateReplies, LateRepliesOfSeveralTimeoutsAreNotTakenForTheNextReplies) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(timeOut(), "ERROR: TIMEOUT");
    }
    auto next = std::async(std::launch::async, [this] { return ask("STATUS"); });
    release();
    EXPECT_EQ(next.get(), "re STATUS");
    for (int i = 0; i < 20; ++i) {
        const std::string command = "GET " + std::to_string(i);
        EXPECT_EQ(ask(command), "re " + command);
    }
}

TEST_F(WpaSocketLateReplies, TimeoutChangesNeitherStateNorLog) {
    log_.clear();
    EXPECT_EQ(timeOut(), "ERROR: TIMEOUT");
    release();
    EXPECT_EQ(ask("STATUS"), "re STATUS");
    turn();
    EXPECT_EQ(socket_->state(), State::Connected);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_EQ(supplicant_.attachRequests(), 1u);
}

TEST_F(WpaSocketLateReplies, ReopeningThatFailsIsTheCommandsFailure) {
    EXPECT_EQ(timeOut(), "ERROR: TIMEOUT");
    release();
    supplicant_.crash();
    std::string reply;
    EXPECT_FALSE(socket_->sendCtrlCmd("STATUS", reply));
    EXPECT_EQ(reply, "ERROR: SEND-RECV");
    turn();
    EXPECT_EQ(socket_->state(), State::Connected);
}

TEST_F(WpaSocketCommands, SubscriberMaySendFromInsideItsCallback) {
    answer("RSSI=-55\n");
    std::string reply;
    bool sent = false;
    std::function<void(const std::string&)> sending = [&](const std::string&) {
        sent = socket_->sendCtrlCmd("SIGNAL_POLL", reply);
    };
    socket_->registerEventCallback(Type::WPA_STA_CONNECTED, sending);
    ASSERT_EQ(supplicant_.sendEvent("<3>CTRL-EVENT-CONNECTED x"), 1u);
    ASSERT_TRUE(turnUntil([&] { return !reply.empty(); }));
    EXPECT_TRUE(sent);
    EXPECT_EQ(reply, "RSSI=-55\n");
}

TEST_F(WpaSocketCommands, SubscriberOfTheDisconnectionMaySendAndIsNotConnected) {
    std::string reply;
    std::function<void(const std::string&)> sending = [&](const std::string&) {
        EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
    };
    socket_->registerEventCallback(Type::WPA_SOCKET_DISCONNECTED, sending);
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil([&] { return !reply.empty(); }));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
}

TEST_F(WpaSocketCommands, EventsThatArriveMeanwhileDoNotMixWithReplies) {
    supplicant_.answerCommands([&](const std::string& command) {
        supplicant_.sendEvent("<3>CTRL-EVENT-CONNECTED during " + command);
        return command + " done\n";
    });
    Subscriber subscriber;
    socket_->registerEventCallback(Type::WPA_STA_CONNECTED, subscriber.callback);
    std::string reply;
    EXPECT_TRUE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "PING done\n");
    turn();
    EXPECT_THAT(subscriber.payloads, ElementsAre("during PING"));
}

TEST_F(WpaSocketCommands, CommandsFromSeveralThreadsEachGetTheirOwnReply) {
    supplicant_.answerCommands([](const std::string& command) { return "re " + command; });
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 100; ++n) {
                const std::string command = std::to_string(i) + "/" + std::to_string(n);
                std::string reply;
                if (socket_->sendCtrlCmd(command, reply) && reply == "re " + command) {
                    ++right;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 400);
}

TEST_F(WpaSocketCommands, CommandsGoOnWhileTheSocketReconnects) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.reserve(2);
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                std::string reply;
                if (!socket_->sendCtrlCmd("PING", reply)) {
                    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
                } else {
                    EXPECT_EQ(reply, "OK\n");
                }
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(connect(socket_));
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace Ursa::OS::Wifi
