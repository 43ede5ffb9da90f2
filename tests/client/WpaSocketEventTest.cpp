// What becomes of the supplicant's events.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <linux/filter.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "tests/client/ControlPeer.h"
#include "tests/client/WpaSocketFixture.h"
#include "tests/support/Descriptors.h"
#include "tests/support/WaitUntil.h"

namespace Ursa::OS::Wifi {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const std::string kConnected =
    "<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed";
const std::string kConnectedPayload = "- Connection to 00:11:22:33:44:55 completed";

/** A connected socket whose every kind of event is subscribed to. */
class WpaSocketEvents : public WpaSocketTest, public testing::WithParamInterface<NetInterfaceType> {
  protected:
    WpaSocketEvents() {
        for (int i = 0; i < kWifiClientCallbackTypeCount; ++i) {
            callbacks_[i] = [this, i](const std::string& payload) {
                events_.emplace_back(static_cast<Type>(i), payload);
            };
        }
    }

    void connectAs(NetInterfaceType type) {
        socket_ = makeSocket(type);
        for (int i = 0; i < kWifiClientCallbackTypeCount; ++i) {
            ASSERT_EQ(socket_->registerEventCallback(static_cast<Type>(i), callbacks_[i]), 0);
        }
        ASSERT_TRUE(connect(socket_));
        events_.clear();
        log_.clear();
    }

    /** Sends one datagram and handles it. */
    void receive(const std::string& datagram) {
        ASSERT_EQ(supplicant_.sendEvent(datagram), 1u);
        turn();
    }

    bool connected() const { return socket_->state() == State::Connected; }

    /** -1 when closed. */
    int monitor() const {
        const std::vector<int> open = connections();
        return open.empty() ? -1 : open.front();
    }

    test::FakeControlSocket supplicant_{path_};
    std::map<int, std::function<void(const std::string&)>> callbacks_;
    std::vector<std::pair<Type, std::string>> events_;
    std::shared_ptr<WpaSocket> socket_;
};

TEST_F(WpaSocketEvents, ConnectedEventFiresItsTypeWithTheTextBehindThePrefix) {
    connectAs(NetInterfaceType::STA);
    receive(kConnected);
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_STA_CONNECTED, kConnectedPayload)));
}

TEST_F(WpaSocketEvents, EveryStaPrefixFiresItsType) {
    connectAs(NetInterfaceType::STA);
    receive("<3>CTRL-EVENT-SCAN-RESULTS ");
    receive("<3>CTRL-EVENT-CHANNEL-SWITCH freq=5200 ifname=wlan0 width=80");
    receive("<4>CTRL-EVENT-ASSOC-STARTED x");
    receive(kConnected);
    receive("<3>CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:00 reason=3 locally_generated=1");
    receive("<3>CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=US");
    EXPECT_THAT(events_,
                ElementsAre(Pair(Type::WPA_STA_SCAN_RESULTS, ""),
                            Pair(Type::WPA_STA_CHANNEL_SWITCH, "freq=5200 ifname=wlan0 width=80"),
                            Pair(Type::WPA_STA_ASSOC_STARTED, "x"),
                            Pair(Type::WPA_STA_CONNECTED, kConnectedPayload),
                            Pair(Type::WPA_STA_DISCONNECTED,
                                 "bssid=02:00:00:00:01:00 reason=3 locally_generated=1"),
                            Pair(Type::WPA_REGDOM_CHANGE, "init=USER type=COUNTRY alpha2=US")));
}

TEST_F(WpaSocketEvents, EveryP2pPrefixFiresItsType) {
    connectAs(NetInterfaceType::P2P);
    receive("<3>AP-CSA-FINISHED freq=5200 dfs=0");
    receive("<3>P2P-GROUP-STARTED p2p-wlan0-0 GO ssid=\"DIRECT-BI\" freq=5180 go_dev_addr=42:0");
    receive("<3>P2P-GROUP-REMOVED p2p-wlan0-0 GO reason=REQUESTED");
    receive("<3>CTRL-EVENT-REGDOM-CHANGE init=CORE type=WORLD");
    EXPECT_THAT(events_,
                ElementsAre(Pair(Type::WPA_P2P_CSA_FINISHED, "freq=5200 dfs=0"),
                            Pair(Type::WPA_P2P_GROUP_STARTED,
                                 "p2p-wlan0-0 GO ssid=\"DIRECT-BI\" freq=5180 go_dev_addr=42:0"),
                            Pair(Type::WPA_P2P_GROUP_REMOVED, "p2p-wlan0-0 GO reason=REQUESTED"),
                            Pair(Type::WPA_REGDOM_CHANGE, "init=CORE type=WORLD")));
}

TEST_F(WpaSocketEvents, ChannelSwitchEventOnTheP2pSocketFiresNothing) {
    connectAs(NetInterfaceType::P2P);
    receive("<3>CTRL-EVENT-CHANNEL-SWITCH freq=5200 ifname=p2p0 width=80");
    receive(kConnected);
    receive("<3>CTRL-EVENT-SCAN-RESULTS ");
    EXPECT_THAT(events_, IsEmpty());
    EXPECT_TRUE(connected());
}

TEST_F(WpaSocketEvents, GroupEventOnTheStaSocketFiresNothing) {
    connectAs(NetInterfaceType::STA);
    receive("<3>P2P-GROUP-STARTED p2p0 GO freq=5180 x");
    receive("<3>AP-CSA-FINISHED freq=5200 dfs=0");
    EXPECT_THAT(events_, IsEmpty());
}

TEST_F(WpaSocketEvents, PrefixIncludesItsBlankAndStandsAtTheBeginning) {
    connectAs(NetInterfaceType::STA);
    receive("<3>CTRL-EVENT-CONNECTED");
    receive("<3>CTRL-EVENT-CONNECTED-TWICE x");
    receive("<3> " + kConnected.substr(3));
    receive("IFNAME=wlan0 " + kConnected);
    receive("<3>ctrl-event-connected x");
    EXPECT_THAT(events_, IsEmpty());
}

TEST_F(WpaSocketEvents, PriorityTagIsDroppedUnseen) {
    connectAs(NetInterfaceType::STA);
    receive("abc" + kConnected.substr(3));
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_STA_CONNECTED, kConnectedPayload)));
}

TEST_F(WpaSocketEvents, OtherEventsOfARealSupplicantAreIgnored) {
    connectAs(NetInterfaceType::STA);
    for (const char* line : {
             "<3>CTRL-EVENT-SCAN-STARTED ",
             "<3>SME: Trying to authenticate with 02:00:00:00:01:00 (SSID='test' freq=5180 MHz)",
             "<3>CTRL-EVENT-SUBNET-STATUS-UPDATE status=0",
             "<3>CTRL-EVENT-BEACON-LOSS ",
             "<3>CTRL-EVENT-STARTED-CHANNEL-SWITCH freq=5200 ht_enabled=1",
             "<4>Failed to initiate AP scan",
             "<3>CTRL-EVENT-SIGNAL-CHANGE above=0 signal=-72 noise=-92 txrate=13000",
         }) {
        receive(line);
    }
    EXPECT_THAT(events_, IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_TRUE(connected());
}

TEST_F(WpaSocketEvents, GarbageIsIgnoredAndTheNextEventArrives) {
    connectAs(NetInterfaceType::STA);
    std::string binary(4096, '\0');
    for (size_t i = 0; i < binary.size(); ++i) {
        binary[i] = static_cast<char>(i * 7);
    }
    for (const std::string& datagram :
         {std::string(), std::string("<"), std::string("<3>"), std::string("\0\0\0\0", 4),
          std::string(4096, '\0'), std::string(4096, '<'), std::string(60'000, 'x'), binary}) {
        receive(datagram);
    }
    EXPECT_THAT(events_, IsEmpty());
    EXPECT_TRUE(connected());
    EXPECT_THAT(log_.lines(), IsEmpty());
    receive(kConnected);
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_STA_CONNECTED, kConnectedPayload)));
}

TEST_F(WpaSocketEvents, EventOfFourBytesIsLongEnoughToBeRead) {
    connectAs(NetInterfaceType::STA);
    receive("<3>C");
    EXPECT_THAT(events_, IsEmpty());
    EXPECT_TRUE(connected());
}

TEST_F(WpaSocketEvents, LongEventIsCutAtTheBuffersEnd) {
    connectAs(NetInterfaceType::STA);
    receive("<3>CTRL-EVENT-CONNECTED " + std::string(10'000, 'x'));
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_STA_CONNECTED, std::string(4095 - 24, 'x'))));
}

TEST_F(WpaSocketEvents, EventEndsAtANul) {
    connectAs(NetInterfaceType::STA);
    receive(std::string("<3>CTRL-EVENT-CONNECTED a\0b", 27));
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_STA_CONNECTED, "a")));
}

TEST_F(WpaSocketEvents, BssEventsDoNotEvenWakeTheLoop) {
    connectAs(NetInterfaceType::STA);
    ASSERT_EQ(supplicant_.sendEvent("<3>CTRL-EVENT-BSS-ADDED 0 02:00:00:00:01:00"), 1u);
    ASSERT_EQ(supplicant_.sendEvent("<3>CTRL-EVENT-BSS-REMOVED 0 02:00:00:00:01:00"), 1u);
    EXPECT_EQ(poll_->poll(0), 0);
}

TEST_F(WpaSocketEvents, BssEventsAreDroppedWithoutTheKernelsFilterToo) {
    connectAs(NetInterfaceType::STA);
    const int unused = 0;
    ASSERT_EQ(setsockopt(monitor(), SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof(unused)), 0);
    ASSERT_EQ(supplicant_.sendEvent("<3>CTRL-EVENT-BSS-ADDED 0 02:00:00:00:01:00"), 1u);
    EXPECT_EQ(poll_->poll(0), 1);
    ASSERT_EQ(supplicant_.sendEvent("<3>CTRL-EVENT-BSS-REMOVED 0 02:00:00:00:01:00"), 1u);
    EXPECT_EQ(poll_->poll(0), 1);
    EXPECT_THAT(events_, IsEmpty());
    EXPECT_TRUE(connected());
}

TEST_F(WpaSocketEvents, TerminatingSupplicantStopsTheSocket) {
    connectAs(NetInterfaceType::STA);
    receive("<3>CTRL-EVENT-TERMINATING ");
    EXPECT_EQ(count(ANDROID_LOG_INFO, "STA", "Supplicant exited gracefully"), 1u);
    EXPECT_EQ(socket_->state(), State::Stopped);
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_SOCKET_DISCONNECTED, "sockettype=STA")));
    EXPECT_EQ(monitor(), -1);
}

TEST_F(WpaSocketEvents, TerminatingSupplicantIsNotWaitedFor) {
    // It sleeps a moment for its last words to be read and then closes its socket: whatever comes
    // in between has no answer.
    connectAs(NetInterfaceType::STA);
    supplicant_.ignoreDetach();
    const auto before = std::chrono::steady_clock::now();
    receive("<3>CTRL-EVENT-TERMINATING ");
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_SOCKET_DISCONNECTED, "sockettype=STA")));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5))
        << "the library's 10 s were waited for";
    EXPECT_TRUE(test::waitUntil([&] { return supplicant_.detachRequests() == 1; }));
}

TEST_F(WpaSocketEvents, NextAfterATerminatedOneIsWaitedForAgain) {
    connectAs(NetInterfaceType::STA);
    receive("<3>CTRL-EVENT-TERMINATING ");
    ASSERT_TRUE(test::waitUntil([&] { return supplicant_.detachRequests() == 1; }));
    ASSERT_TRUE(connect(socket_));
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_EQ(supplicant_.detachRequests(), 2u);
}

TEST_F(WpaSocketEvents, TerminatingSupplicantStopsTheP2pSocketToo) {
    connectAs(NetInterfaceType::P2P);
    receive("<3>CTRL-EVENT-TERMINATING ");
    EXPECT_EQ(count(ANDROID_LOG_INFO, "P2P", "Supplicant exited gracefully"), 1u);
    EXPECT_EQ(socket_->state(), State::Stopped);
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_SOCKET_DISCONNECTED, "sockettype=P2P")));
}

TEST_F(WpaSocketEvents, EndOfAnOldSupplicantThatIsReadLateDoesNotStopTheWayToTheNewOne) {
    // The news of the new supplicant's file came first, while the loop was busy.
    connectAs(NetInterfaceType::STA);
    const android::base::unique_fd news(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    poll_->addFd(news.get(), EPOLLIN, [&](int, int) {
        socket_->onSocketFileDelete();
        socket_->onSocketFileCreate(path_);
        return PollAction::Remove;
    });
    eventfd_write(news.get(), 1);
    ASSERT_EQ(supplicant_.sendEvent("<3>CTRL-EVENT-TERMINATING "), 1u);
    ASSERT_EQ(poll_->poll(0), 2);
    ASSERT_EQ(count(ANDROID_LOG_INFO, "STA", "Supplicant exited gracefully"), 1u);
    ASSERT_TRUE(turnUntil([&] { return supplicant_.attachRequests() == 2; }));
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
    EXPECT_THAT(log_.messages(ANDROID_LOG_WARN), IsEmpty());
}

/** A supplicant that sends something right behind its answer to ATTACH, ahead of Connected. */
class WpaSocketEarlyEvents : public WpaSocketTest {
  protected:
    /** Runs until the supplicant has been asked something else. */
    std::thread answerAttachAndSend(const std::string& datagram) {
        return std::thread([this, datagram] {
            const auto attach = supplicant_.receive();
            supplicant_.send(attach, "OK\n");
            supplicant_.send(attach, datagram);
            supplicant_.send(supplicant_.receive(), "OK\n");
        });
    }

    const ControlPeer supplicant_{path_};
    const std::shared_ptr<WpaSocket> socket_ = makeSocket();
};

TEST_F(WpaSocketEarlyEvents, EventAheadOfConnectedWaitsSoThatItsSubscriberCanSendCommands) {
    std::thread supplicant = answerAttachAndSend(kConnected);
    std::vector<bool> sent;
    std::function<void(const std::string&)> asking = [&](const std::string& payload) {
        EXPECT_EQ(payload, kConnectedPayload);
        std::string reply;
        sent.push_back(socket_->sendCtrlCmd("SIGNAL_POLL", reply));
        if (!sent.back()) {
            supplicant_.send(supplicant_.receive(), "");  // ends its thread
        }
    };
    socket_->registerEventCallback(Type::WPA_STA_CONNECTED, asking);
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil([&] { return !sent.empty(); }));
    supplicant.join();
    EXPECT_THAT(sent, ElementsAre(true));
}

TEST_F(WpaSocketEarlyEvents, TerminationAheadOfConnectedStopsTheSocketAfterIt) {
    std::thread supplicant = answerAttachAndSend("<3>CTRL-EVENT-TERMINATING ");
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil([&] { return infos("Supplicant exited gracefully") == 1; }));
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    supplicant.join();
    EXPECT_EQ(infos("Connected to supplicant socket: " + path_), 1u);
}

TEST_F(WpaSocketEvents, HangUpAheadOfConnectedStopsTheSocketAfterIt) {
    socket_ = makeSocket();
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil([&] { return connections().size() == 2; }));
    ASSERT_EQ(socket_->state(), State::Connecting);
    ASSERT_EQ(shutdown(monitor(), SHUT_RDWR), 0);
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_GE(errors("onSocketReady_: unexpected poll error: 0x00000011"), 1u);
}

TEST_F(WpaSocketEvents, ErrorBesideAnEventStopsTheSocketAfterTheEvent) {
    connectAs(NetInterfaceType::STA);
    ASSERT_EQ(supplicant_.sendEvent(kConnected), 1u);
    ASSERT_EQ(shutdown(monitor(), SHUT_RDWR), 0);
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_GE(errors("onSocketReady_: unexpected poll error: 0x00000011"), 1u);
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_STA_CONNECTED, kConnectedPayload),
                                     Pair(Type::WPA_SOCKET_DISCONNECTED, "sockettype=STA")));
}

TEST_F(WpaSocketEvents, FailedReadStopsTheSocket) {
    connectAs(NetInterfaceType::STA);
    // Somebody else, ready ahead of the monitor, reads what is there.
    const android::base::unique_fd thief(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
    const int monitorFd = monitor();
    poll_->addFd(thief.get(), EPOLLIN, [&](int, int) {
        char byte;
        recv(monitorFd, &byte, sizeof(byte), MSG_DONTWAIT);
        return PollAction::Remove;
    });
    ASSERT_EQ(supplicant_.sendEvent(kConnected), 1u);
    ASSERT_EQ(poll_->poll(1000), 2);
    EXPECT_EQ(errors("Failed to receive supplicant control interface message: Resource "
                     "temporarily unavailable"),
              1u);
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_SOCKET_DISCONNECTED, "sockettype=STA")));
}

TEST_F(WpaSocketEvents, EventBehindTheAnswerToAttachTakesTwoTurnsAtMost) {
    socket_ = makeSocket();
    Subscriber subscriber;
    socket_->registerEventCallback(Type::WPA_STA_CONNECTED, subscriber.callback);
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil([&] { return connections().size() == 2; }));
    ASSERT_EQ(socket_->state(), State::Connecting);
    ASSERT_EQ(supplicant_.sendEvent(kConnected), 1u);
    poll_->poll(0);
    poll_->poll(0);
    EXPECT_TRUE(connected());
    EXPECT_THAT(subscriber.payloads, ElementsAre(kConnectedPayload));
    EXPECT_EQ(poll_->poll(0), 0);
}

TEST_F(WpaSocketEvents, HangUpStopsTheSocket) {
    connectAs(NetInterfaceType::STA);
    supplicant_.resetConnections();
    EXPECT_EQ(poll_->poll(1000), 1);
    EXPECT_EQ(errors("onSocketReady_: unexpected poll error: 0x00000008"), 1u);
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_SOCKET_DISCONNECTED, "sockettype=STA")));
}

TEST_F(WpaSocketEvents, UnknownKindOfInterfaceReadsNoEventsAndStops) {
    connectAs(static_cast<NetInterfaceType>(5));
    receive(kConnected);
    EXPECT_EQ(count(ANDROID_LOG_ERROR, "UNKNOWN", "receiveEvent_: unrecognized socket type 5"), 1u);
    EXPECT_EQ(socket_->state(), State::Stopped);
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_SOCKET_DISCONNECTED, "sockettype=UNKNOWN")));
}

TEST_F(WpaSocketEvents, KindOfEventOutsideTheEnumerationIsRefused) {
    connectAs(NetInterfaceType::STA);
    Subscriber subscriber;
    const auto unknown = static_cast<Type>(10);
    EXPECT_EQ(socket_->registerEventCallback(unknown, subscriber.callback), -1);
    EXPECT_FALSE(socket_->unregisterEventCallback(unknown, 0));
    EXPECT_EQ(count(ANDROID_LOG_WARN, "STA", "Failed to find a callback map with type 10"), 2u);
}

TEST_F(WpaSocketEvents, KindThatTheSocketNeverProducesIsAccepted) {
    connectAs(NetInterfaceType::STA);
    Subscriber subscriber;
    EXPECT_EQ(socket_->registerEventCallback(Type::WPA_P2P_GROUP_STARTED, subscriber.callback), 1);
    EXPECT_TRUE(socket_->unregisterEventCallback(Type::WPA_P2P_GROUP_STARTED, 1));
    EXPECT_FALSE(socket_->unregisterEventCallback(Type::WPA_P2P_GROUP_STARTED, 1));
}

TEST_F(WpaSocketEvents, SubscribersExceptionDoesNotEndTheLoop) {
    connectAs(NetInterfaceType::STA);
    std::function<void(const std::string&)> throwing = [](const std::string&) {
        throw std::runtime_error("no number");
    };
    socket_->registerEventCallback(Type::WPA_STA_SCAN_RESULTS, throwing);
    EXPECT_NO_THROW(receive("<3>CTRL-EVENT-SCAN-RESULTS none"));
    EXPECT_EQ(errors("A subscriber of type 0 failed: no number"), 1u);
    receive(kConnected);
    EXPECT_THAT(events_, ElementsAre(Pair(Type::WPA_STA_SCAN_RESULTS, "none"),
                                     Pair(Type::WPA_STA_CONNECTED, kConnectedPayload)));
    EXPECT_TRUE(connected());
}

TEST_F(WpaSocketEvents, EventsOfOneTurnArriveInOrder) {
    connectAs(NetInterfaceType::STA);
    std::vector<std::string> payloads;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(supplicant_.sendEvent("<3>CTRL-EVENT-CONNECTED " + std::to_string(i)), 1u);
    }
    turn();
    for (const auto& event : events_) {
        payloads.push_back(event.second);
    }
    EXPECT_THAT(payloads, ElementsAre("0", "1", "2", "3", "4"));
}

TEST_F(WpaSocketEvents, TenThousandEventsInOneBurstAllArriveInOrder) {
    connectAs(NetInterfaceType::STA);
    constexpr int kEvents = 10'000;
    std::thread sender([&] {
        for (int i = 0; i < kEvents; ++i) {
            supplicant_.sendEvent("<3>CTRL-EVENT-BSS-ADDED 0 02:00:00:00:01:00");
            supplicant_.sendEvent("<3>CTRL-EVENT-CONNECTED " + std::to_string(i));
        }
    });
    EXPECT_TRUE(turnUntil([&] { return events_.size() == kEvents; }));
    sender.join();
    for (int i = 0; i < static_cast<int>(events_.size()); ++i) {
        ASSERT_EQ(events_[i].second, std::to_string(i));
    }
    EXPECT_TRUE(connected());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(WpaSocketEvents, SubscriberMayEndItsNeighboursSubscription) {
    connectAs(NetInterfaceType::STA);
    Subscriber victim;
    int handle = -1;
    std::function<void(const std::string&)> ending = [&](const std::string&) {
        socket_->unregisterEventCallback(Type::WPA_STA_CONNECTED, handle);
    };
    socket_->registerEventCallback(Type::WPA_STA_CONNECTED, ending);
    handle = socket_->registerEventCallback(Type::WPA_STA_CONNECTED, victim.callback);
    receive(kConnected);
    EXPECT_THAT(victim.payloads, IsEmpty());
}

TEST(WpaSocketDestruction, IsSafeOnAnotherThreadWithEventsInFlight) {
    const test::TempFolder folder;
    const std::string path = folder.file("wlan0");
    const test::LogCapture log;
    const auto poll = std::make_shared<Poll>();
    History history;
    EventFd eventFd(poll);
    eventFd.open();
    const LoopThread loop(poll);
    test::FakeControlSocket supplicant(path);
    std::atomic<int> calls{0};
    std::function<void(const std::string&)> counting = [&](const std::string&) { ++calls; };

    for (int round = 0; round < 30; ++round) {
        auto socket =
            WpaSocket::create(NetInterfaceType::STA, poll, eventFd, history, {1, 1, 5, 1, 1000});
        ASSERT_EQ(
            socket->registerEventCallback(WifiClientCallbackType::WPA_STA_CONNECTED, counting), 0);
        socket->onSocketFileCreate(path);
        ASSERT_TRUE(supplicant.waitForAttached(1));
        std::atomic<bool> stop{false};
        std::thread sender([&] {
            while (!stop && supplicant.sendEvent(kConnected) == 1) {
            }
        });
        const int before = calls;
        while (calls < before + 5) {
            std::this_thread::yield();
        }
        if (round % 2 == 1) {
            socket->onSocketFileDelete();  // and tasks posted, too
            socket->onSocketFileCreate(path);
        }
        const std::weak_ptr<WpaSocket> weak = socket;
        socket.reset();
        stop = true;
        sender.join();
        while (!weak.expired()) {  // the loop may have been inside
            std::this_thread::yield();
        }
        while (supplicant.attached() != 0) {
            supplicant.sendEvent("<3>drops those that have gone");
        }
    }
}

}  // namespace
}  // namespace Ursa::OS::Wifi
