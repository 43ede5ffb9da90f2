// Commands and their replies.

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
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

TEST_F(WpaSocketCommands, AReplyIsExactlyWhatCameBack) {
    answer("RSSI=-55\nFREQUENCY=5180\n");
    std::string reply = "before";
    EXPECT_TRUE(socket_->sendCtrlCmd("SIGNAL_POLL", reply));
    EXPECT_EQ(reply, "RSSI=-55\nFREQUENCY=5180\n");
    EXPECT_THAT(supplicant_.commands(), ElementsAre("SIGNAL_POLL"));
}

TEST_F(WpaSocketCommands, AFailReplyIsAReply) {
    answer("FAIL\n");
    std::string reply;
    EXPECT_TRUE(socket_->sendCtrlCmd("DRIVER SET_TXPOWER 10", reply));
    EXPECT_EQ(reply, "FAIL\n");
}

TEST_F(WpaSocketCommands, AnEmptyAndABinaryReplyAreKept) {
    std::string reply = "before";
    answer("");
    EXPECT_TRUE(socket_->sendCtrlCmd("X", reply));
    EXPECT_EQ(reply, "");
    answer(std::string("a\0b\n", 4));
    EXPECT_TRUE(socket_->sendCtrlCmd("X", reply));
    EXPECT_EQ(reply, std::string("a\0b\n", 4));
}

TEST_F(WpaSocketCommands, AnOversizedReplyIsCutAtTheLibrarysLimit) {
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

TEST_F(WpaSocketCommands, ACommandWhileConnectingIsNotConnected) {
    const auto connecting = makeSocket();
    connecting->onSocketFileCreate(folder_.file("nobody"));
    ASSERT_TRUE(turnUntil(connecting, State::Connecting));
    std::string reply;
    EXPECT_FALSE(connecting->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
}

TEST_F(WpaSocketCommands, ACommandToAStoppedSocketIsNotConnected) {
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    std::string reply;
    EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
    EXPECT_THAT(supplicant_.commands(), IsEmpty());
}

TEST_F(WpaSocketCommands, ACommandBetweenTheConnectionAndItsStateIsNotConnected) {
    const auto socket = makeSocket();
    socket->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket, State::Connecting));
    ASSERT_EQ(Peer::connect(*socket), 0);
    std::string reply;
    EXPECT_FALSE(socket->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
}

TEST_F(WpaSocketCommands, AConnectedSocketWithoutItsCommandConnectionIsNotConnected) {
    Peer::dropCommand(*socket_);
    std::string reply;
    EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
}

TEST_F(WpaSocketCommands, ACommandToASupplicantThatHasGoneFailsAtOnce) {
    supplicant_.crash();
    std::string reply;
    EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: SEND-RECV");
}

TEST_F(WpaSocketCommands, ACommandThatNobodyAnswersTimesOut) {
    supplicant_.answerCommands([](const std::string&) { return std::nullopt; });
    std::string reply;
    EXPECT_FALSE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_EQ(reply, "ERROR: TIMEOUT");
}

TEST_F(WpaSocketCommands, ASubscriberMaySendFromInsideItsCallback) {
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

TEST_F(WpaSocketCommands, ASubscriberOfTheDisconnectionMaySendAndIsNotConnected) {
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
