// The facade, and the subscriptions that managers hold on it.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "client/CallbackMapRegister.h"
#include "client/CorvidWifiClient.h"
#include "client/WifiClientCallback.h"
#include "tests/client/nl80211/Nl80211Fixture.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/FakeControlSocket.h"
#include "tests/support/FakeNl80211.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Patience.h"
#include "tests/support/TempFolder.h"

namespace Ursa::OS::Wifi {
namespace {

using Type = WifiClientCallbackType;
using Handler = std::function<void(const std::string&)>;

constexpr auto kSta = NetInterfaceType::STA;
constexpr auto kP2p = NetInterfaceType::P2P;
constexpr int kCapacity = 64;
constexpr char kTask[] = "Test.onEvent";

const std::string kConnected = "<3>CTRL-EVENT-CONNECTED x";
const std::string kScan = "<3>CTRL-EVENT-SCAN-RESULTS x";

/** A facade that is connected to a supplicant's STA and P2P sockets. */
class CorvidWifiClientTest : public testing::Test {
  protected:
    void SetUp() override {
        client_ = std::make_shared<CorvidWifiClient>(folder_.path() + "/");
        ASSERT_TRUE(
            log_.waitFor("[WPA-STA] Connected to supplicant socket: " + folder_.file("wlan0")));
        ASSERT_TRUE(
            log_.waitFor("[WPA-P2P] Connected to supplicant socket: " + folder_.file("p2p0")));
    }

    std::unique_ptr<WifiClientCallback> subscribe(std::vector<WifiClientCallbackItem> items) {
        return std::make_unique<WifiClientCallback>(client_, items);
    }

    /** Returns when every event sent before has been handled. */
    void drain(test::FakeControlSocket& socket, NetInterfaceType kind) {
        std::promise<void> arrived;
        Handler last = [&](const std::string& payload) {
            if (payload == "drained") {
                arrived.set_value();
            }
        };
        const auto subscription = subscribe({{Type::WPA_REGDOM_CHANGE, kind, kTask, last}});
        ASSERT_EQ(socket.sendEvent("<3>CTRL-EVENT-REGDOM-CHANGE drained"), 1u);
        ASSERT_EQ(arrived.get_future().wait_for(test::kPatience), std::future_status::ready);
    }
    void drain() { drain(sta_, kSta); }

    test::TempFolder folder_;
    test::LogCapture log_;
    test::FakeControlSocket sta_{folder_.file("wlan0")};
    test::FakeControlSocket p2p_{folder_.file("p2p0")};
    std::shared_ptr<CorvidWifiClient> client_;
};

/** A handler whose call lasts until the test releases it. */
class BlockedHandler {
  public:
    Handler handler = [this](const std::string&) {
        if (++calls == 1) {
            entered_.set_value();
            released_.wait();
        }
        ++finished;
    };
    std::atomic<int> calls{0};
    std::atomic<int> finished{0};

    bool waitUntilEntered() {
        return entered_.get_future().wait_for(test::kPatience) == std::future_status::ready;
    }
    void release() { release_.set_value(); }

  private:
    std::promise<void> entered_;
    std::promise<void> release_;
    std::shared_future<void> released_{release_.get_future()};
};

TEST_F(CorvidWifiClientTest, CommandGoesToItsInterfaceAndBringsTheReplyBack) {
    sta_.answerCommands([](const std::string&) { return "RSSI=-55\n"; });
    std::string reply;
    EXPECT_TRUE(client_->sendWpaCtrlCmd("SIGNAL_POLL", reply, kSta));
    EXPECT_EQ(reply, "RSSI=-55\n");
    EXPECT_TRUE(client_->sendWpaCtrlCmd("DRIVER X", reply, kP2p));
    EXPECT_THAT(p2p_.commands(), testing::ElementsAre("DRIVER X"));
}

TEST_F(CorvidWifiClientTest, SubscriberMayCallAgainFromInsideTheFacade) {
    // From a subscriber on the listener's thread, which registers while another sends.
    std::promise<bool> done;
    Handler inner = [](const std::string&) {};
    Handler outer = [&](const std::string&) {
        std::string reply;
        const bool sent = client_->sendWpaCtrlCmd("PING", reply, kSta);
        const int handle = client_->registerWpaCallback(Type::WPA_STA_SCAN_RESULTS, inner, kSta);
        done.set_value(sent && handle == 0 &&
                       client_->unregisterWpaCallback(Type::WPA_STA_SCAN_RESULTS, handle, kSta));
    };
    const auto subscription = subscribe({{Type::WPA_STA_CONNECTED, kSta, kTask, outer}});
    ASSERT_EQ(sta_.sendEvent(kConnected), 1u);
    EXPECT_TRUE(done.get_future().get());
}

TEST_F(CorvidWifiClientTest, CommandsOfSeveralThreadsRunOneAtATime) {
    std::atomic<int> running{0};
    std::atomic<int> most{0};
    const auto answer = [&](const std::string&) {
        most = std::max(most.load(), ++running);
        std::this_thread::yield();
        --running;
        return "OK\n";
    };
    sta_.answerCommands(answer);
    p2p_.answerCommands(answer);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 50; ++n) {
                std::string reply;
                EXPECT_TRUE(client_->sendWpaCtrlCmd("PING", reply, i % 2 == 0 ? kSta : kP2p));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(most, 1);
}

TEST_F(CorvidWifiClientTest, HolderOfThreeItemsWhoseSecondFailsKeepsTheOtherTwo) {
    std::vector<Handler> others(kCapacity, [](const std::string&) {});
    for (int i = 0; i < kCapacity; ++i) {
        ASSERT_EQ(client_->registerWpaCallback(Type::WPA_STA_CONNECTED, others[i], kSta), i);
    }
    std::atomic<int> calls{0};
    Handler counting = [&](const std::string&) { ++calls; };
    Handler refused = [](const std::string&) { ADD_FAILURE(); };
    auto holder = subscribe({{Type::WPA_STA_SCAN_RESULTS, kSta, kTask, counting},
                             {Type::WPA_STA_CONNECTED, kSta, kTask, refused},
                             {Type::WPA_P2P_GROUP_STARTED, kP2p, kTask, counting}});
    EXPECT_EQ(holder->size(), 2u);
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR),
                testing::ElementsAre(
                    "WifiClientCallback: Failed to register callback type:3 socket type:0"));
    ASSERT_EQ(sta_.sendEvent(kConnected), 1u);
    ASSERT_EQ(sta_.sendEvent(kScan), 1u);
    ASSERT_EQ(p2p_.sendEvent("<3>P2P-GROUP-STARTED p2p0 GO freq=5180 x"), 1u);
    drain();
    drain(p2p_, kP2p);
    EXPECT_EQ(calls, 2);

    // Destruction unregisters exactly those two.
    holder.reset();
    EXPECT_FALSE(client_->unregisterWpaCallback(Type::WPA_STA_SCAN_RESULTS, 0, kSta));
    EXPECT_FALSE(client_->unregisterWpaCallback(Type::WPA_P2P_GROUP_STARTED, 0, kP2p));
    for (int i = 0; i < kCapacity; ++i) {
        EXPECT_TRUE(client_->unregisterWpaCallback(Type::WPA_STA_CONNECTED, i, kSta));
    }
}

TEST_F(CorvidWifiClientTest, EmptyHolderRegistersNothing) { EXPECT_EQ(subscribe({})->size(), 0u); }

TEST_F(CorvidWifiClientTest, UnknownInterfaceTypeIsRefusedAndLogged) {
    Handler handler = [](const std::string&) {};
    const auto holder =
        subscribe({{Type::WPA_STA_CONNECTED, static_cast<NetInterfaceType>(2), kTask, handler}});
    EXPECT_EQ(holder->size(), 0u);
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR,
                         "WifiClientCallback: Failed to register callback type:3 socket type:2"),
              1u);
}

TEST_F(CorvidWifiClientTest, OneHandlerUnderTwoKindsFiresForBothUntilTheyEnd) {
    std::atomic<int> calls{0};
    Handler handler = [&](const std::string&) { ++calls; };
    auto both = subscribe({{Type::WPA_STA_CONNECTED, kSta, kTask, handler},
                           {Type::WPA_STA_SCAN_RESULTS, kSta, kTask, handler}});
    sta_.sendEvent(kConnected);
    sta_.sendEvent(kScan);
    drain();
    EXPECT_EQ(calls, 2);
    both.reset();
    sta_.sendEvent(kConnected);
    drain();
    EXPECT_EQ(calls, 2);
}

TEST_F(CorvidWifiClientTest, EndingOneOfTwoRegistrationsOfAHandlerDoesNotWaitForTheOther) {
    BlockedHandler blocked;
    auto first = subscribe({{Type::WPA_STA_CONNECTED, kSta, kTask, blocked.handler}});
    auto second = subscribe({{Type::WPA_STA_SCAN_RESULTS, kP2p, kTask, blocked.handler},
                             {Type::WPA_STA_SCAN_RESULTS, kSta, kTask, blocked.handler}});
    ASSERT_EQ(sta_.sendEvent(kConnected), 1u);
    ASSERT_TRUE(blocked.waitUntilEntered());
    second.reset();  // while the other registration's call runs
    EXPECT_EQ(blocked.finished, 0);
    blocked.release();
    ASSERT_EQ(sta_.sendEvent(kConnected), 1u);
    drain();
    EXPECT_EQ(blocked.finished, 2);
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR), testing::IsEmpty());
}

TEST_F(CorvidWifiClientTest, HandlerIsCalledWhileItsOtherRegistrationsComeAndGo) {
    std::atomic<int> calls{0};
    Handler handler = [&](const std::string&) { ++calls; };
    const auto steady = subscribe({{Type::WPA_STA_CONNECTED, kSta, kTask, handler}});
    std::atomic<bool> stop{false};
    std::thread flood([&] {
        while (!stop) {
            sta_.sendEvent(kConnected);
            sta_.sendEvent(kScan);
        }
    });
    for (int i = 0; i < 200; ++i) {
        subscribe({{Type::WPA_STA_SCAN_RESULTS, kSta, kTask, handler}});
        while (calls < i) {
            std::this_thread::yield();
        }
    }
    stop = true;
    flood.join();
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR),
                testing::Not(testing::Contains(testing::HasSubstr("subscriber"))));
}

TEST_F(CorvidWifiClientTest, EndingASubscriptionWaitsForItsRunningCall) {
    BlockedHandler blocked;
    auto holder = subscribe({{Type::WPA_STA_CONNECTED, kSta, kTask, blocked.handler}});
    ASSERT_EQ(sta_.sendEvent(kConnected), 1u);
    ASSERT_TRUE(blocked.waitUntilEntered());
    auto ended = std::async(std::launch::async, [&] {
        holder.reset();
        EXPECT_EQ(blocked.finished, 1);
    });
    EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    blocked.release();
    ended.get();
}

TEST_F(CorvidWifiClientTest, EndingASubscriptionWhileItsCallSendsACommandDoesNotDeadlock) {
    std::promise<void> entered;
    std::promise<void> proceed;
    std::atomic<bool> sent{false};
    Handler sending = [&](const std::string&) {
        entered.set_value();
        proceed.get_future().wait();
        std::string reply;
        sent = client_->sendWpaCtrlCmd("DRIVER SET_TXPOWER 10", reply, kSta);
    };
    auto holder = subscribe({{Type::WPA_STA_CONNECTED, kSta, kTask, sending}});
    ASSERT_EQ(sta_.sendEvent(kConnected), 1u);
    entered.get_future().wait();
    auto ended = std::async(std::launch::async, [&] { holder.reset(); });
    // The end of the subscription is under way, and still the command gets through.
    EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    proceed.set_value();
    EXPECT_EQ(ended.wait_for(test::kPatience), std::future_status::ready);
    EXPECT_TRUE(sent);
}

TEST_F(CorvidWifiClientTest, DestructionOfTheLastHolderReleasesTheClient) {
    Handler handler = [](const std::string&) {};
    auto holder = subscribe({{Type::WPA_STA_CONNECTED, kSta, kTask, handler}});
    const std::weak_ptr<CorvidWifiClient> weak = client_;
    client_.reset();
    EXPECT_FALSE(weak.expired());
    holder.reset();
    EXPECT_TRUE(weak.expired());
}

/** A composition root that only notes tasks. */
class NotedTasks final : public CompositionRoot {
  public:
    void mapTaskToPid(const std::string& task, int pid) override { tasks[task] = pid; }
    std::shared_ptr<StaManager> staManager() const override { return nullptr; }
    std::shared_ptr<P2pManager> p2pManager() const override { return nullptr; }
    std::shared_ptr<CoexManager> coexManager() const override { return nullptr; }

    std::map<std::string, int> tasks;
};

TEST_F(CorvidWifiClientTest, TaskIsRecordedWithItsThreadOnceThereIsACompositionRoot) {
    EXPECT_EQ(client_->compositionRoot(), nullptr);
    client_->recordTask("StaManager.worker");  // nowhere yet
    NotedTasks root;
    client_->setCompositionRoot(&root);
    EXPECT_EQ(client_->compositionRoot(), &root);
    client_->recordTask("StaManager.onStaConnected");
    EXPECT_THAT(root.tasks,
                testing::ElementsAre(testing::Pair("StaManager.onStaConnected", gettid())));
}

TEST_F(CorvidWifiClientTest, SubscriptionNotesItsTaskBeforeItsHandlerBegins) {
    NotedTasks root;
    client_->setCompositionRoot(&root);
    std::map<std::string, int> seen;
    const auto subscription =
        subscribe({{Type::WPA_STA_CONNECTED, kSta, "StaManager.onStaConnected",
                    [&](const std::string&) { seen = root.tasks; }}});
    EXPECT_THAT(root.tasks, testing::IsEmpty());
    sta_.sendEvent(kConnected);
    drain();
    EXPECT_THAT(seen, testing::ElementsAre(
                          testing::Pair("StaManager.onStaConnected", testing::Ne(gettid()))));
    client_->setCompositionRoot(nullptr);
}

TEST_F(CorvidWifiClientTest, SubscriptionToAMapNotesItsTaskAndLastsAsLongAsTheObject) {
    NotedTasks root;
    client_->setCompositionRoot(&root);
    const auto map = std::make_shared<CallbackMap<const std::string&>>();
    std::vector<std::string> calls;
    {
        const CallbackMapRegister<const std::string&> subscription(
            map, client_, kTask, [&](const std::string& value) {
                calls.push_back(value + " " + std::to_string(root.tasks.count(kTask)));
            });
        EXPECT_EQ(subscription.handle(), 0);
        map->trigger("a");
    }
    map->trigger("b");
    EXPECT_THAT(calls, testing::ElementsAre("a 1"));
    EXPECT_THAT(root.tasks, testing::ElementsAre(testing::Pair(kTask, gettid())));
    client_->setCompositionRoot(nullptr);
}

TEST_F(CorvidWifiClientTest, SubscriptionToAFullMapIsLoggedAndUnregistersNothing) {
    const auto map = std::make_shared<CallbackMap<const std::string&>>();
    std::vector<Handler> others(kCapacity, [](const std::string&) {});
    for (Handler& other : others) {
        map->registerCallback(other);
    }
    {
        const CallbackMapRegister<const std::string&> subscription(
            map, client_, kTask, [](const std::string&) { ADD_FAILURE(); });
        EXPECT_EQ(subscription.handle(), -1);
        map->trigger("a");
    }
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR),
                testing::ElementsAre("CallbackMapRegister: register CallbackMap failed"));
    for (int handle = 0; handle < kCapacity; ++handle) {
        EXPECT_TRUE(map->unregisterCallback(handle));
    }
}

/** A facade in front of a kernel that the test plays. */
class CorvidWifiClientNetlink : public testing::Test {
  protected:
    Nl80211VendorCmdInfo vendorCommand(NetInterfaceType type) {
        Nl80211VendorCmdInfo info;
        info.interfaceType = type;
        info.vendorId = 0x001018;
        info.subcmd = 1;
        info.command = "P2P_ECSA 5180";
        return info;
    }

    /** How many requests were more than a question for the interfaces. */
    size_t commands() const {
        size_t count = 0;
        for (const NetlinkRequest& request : kernel_.requests()) {
            count += request.cmd != NL80211_CMD_GET_INTERFACE ? 1 : 0;
        }
        return count;
    }

    test::DeviceRoot root_;
    test::LogCapture log_;
    test::FakeNl80211 kernel_{root_.path()};
    CorvidWifiClient client_{root_.path() + "/"};
};

TEST_F(CorvidWifiClientNetlink, VendorCommandForAMissingP2pInterfaceIsLoggedAndNotSent) {
    kernel_.answer(interfaces({"wlan0"}));
    Nl80211VendorCmdInfo info = vendorCommand(kP2p);
    EXPECT_FALSE(client_.sendVendorNlCmd(info));
    EXPECT_EQ(info.ifname, nullptr);
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR,
                         "CorvidWifiClient: P2P interface not found. Ignoring NlCmd [P2P_ECSA "
                         "5180]."),
              1u);
    EXPECT_EQ(commands(), 0u);
}

TEST_F(CorvidWifiClientNetlink, VendorCommandForAMissingOrUnknownInterfaceNamesItsKind) {
    kernel_.answer(interfaces({}));
    Nl80211VendorCmdInfo sta = vendorCommand(kSta);
    EXPECT_FALSE(client_.sendVendorNlCmd(sta));
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR,
                         "CorvidWifiClient: STA interface not found. Ignoring NlCmd [P2P_ECSA "
                         "5180]."),
              1u);
    Nl80211VendorCmdInfo unknown = vendorCommand(static_cast<NetInterfaceType>(2));
    EXPECT_FALSE(client_.sendVendorNlCmd(unknown));
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR,
                         "CorvidWifiClient: UNKNOWN interface not found. Ignoring NlCmd "
                         "[P2P_ECSA 5180]."),
              1u);
    EXPECT_EQ(commands(), 0u);
}

TEST_F(CorvidWifiClientNetlink, VendorCommandIsSentToTheInterfaceAndTraced) {
    kernel_.answer([](const NetlinkRequest& request) {
        return request.cmd == NL80211_CMD_GET_INTERFACE ? interfaces({"p2p0"})(request)
                                                        : std::vector<Bytes>{test::ack(request)};
    });
    Nl80211VendorCmdInfo info = vendorCommand(kP2p);
    EXPECT_TRUE(client_.sendVendorNlCmd(info));
    EXPECT_STREQ(info.ifname, "p2p0");
    EXPECT_EQ(log_.count(ANDROID_LOG_DEBUG,
                         "CorvidWifiClient: NL80211: ifname=p2p0 cmd=[P2P_ECSA 5180] oui=0x001018"),
              1u);
    EXPECT_EQ(commands(), 1u);
}

TEST_F(CorvidWifiClientNetlink, VendorCommandThatTheDriverRefusesIsLogged) {
    kernel_.answer([](const NetlinkRequest& request) {
        return request.cmd == NL80211_CMD_GET_INTERFACE
                   ? interfaces({"wlan0"})(request)
                   : std::vector<Bytes>{test::error(request, -EOPNOTSUPP)};
    });
    Nl80211VendorCmdInfo info = vendorCommand(kSta);
    EXPECT_FALSE(client_.sendVendorNlCmd(info));
    EXPECT_EQ(
        log_.count(ANDROID_LOG_ERROR, "CorvidWifiClient: Failed to send vendor command to driver."),
        1u);
    const HistoryEntry noted = client_.history().copy().entries.back();
    EXPECT_EQ(noted.text(), "vendor 0x001018/1 P2P_ECSA 5180");
    EXPECT_EQ(noted.reply(), "-95 Operation not supported");
}

TEST_F(CorvidWifiClientNetlink, GenericCommandIsSentToTheInterfaceWithoutALineHere) {
    kernel_.answer([](const NetlinkRequest& request) {
        return request.cmd == NL80211_CMD_GET_INTERFACE ? interfaces({"wlan0"})(request)
                                                        : std::vector<Bytes>{test::ack(request)};
    });
    log_.clear();
    Nl80211GenericCmdInfo info;
    info.cmd = NL80211_CMD_FRAME;
    EXPECT_TRUE(client_.sendGenericNlCmd(info));
    EXPECT_STREQ(info.ifname, "wlan0");
    Nl80211GenericCmdInfo missing;
    missing.interfaceType = kP2p;
    EXPECT_FALSE(client_.sendGenericNlCmd(missing));
    EXPECT_EQ(commands(), 1u);
    for (const test::LogCapture::Line& line : log_.lines()) {
        EXPECT_THAT(line.message, testing::Not(testing::StartsWith("CorvidWifiClient")));
    }
}

}  // namespace
}  // namespace Ursa::OS::Wifi
