#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "managers/CoexManager.h"
#include "tests/managers/CoexScene.h"
#include "tests/support/Descriptors.h"

namespace Ursa::OS::Wifi {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr CoexEventType kTypes[] = {
    CoexEventType::WIFI_STA_CONNECTED,      CoexEventType::WIFI_STA_DISCONNECTED,
    CoexEventType::WIFI_STA_CHANNEL_SWITCH, CoexEventType::WIFI_P2P_CONNECTED,
    CoexEventType::WIFI_P2P_DISCONNECTED,   CoexEventType::WIFI_P2P_CHANNEL_SWITCH,
};

constexpr char kSwitch[] = "CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=wlan0 width=80";

/** A subscriber of all six types. */
class Recorder {
  public:
    explicit Recorder(CoexManager& coex) {
        for (const CoexEventType type : kTypes) {
            registrations_.push_back(coex.registerCoexActionCallback(
                {type, "Recorder.note", [this](const CoexAction& action) { note_(action); }}));
        }
    }

    /** "2 freq=5745 ...", in order. */
    std::vector<std::string> events() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }
    /** The threads that it was called on. */
    std::vector<int> threads() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return threads_;
    }
    CoexRegistration& registration(CoexEventType type) {
        return registrations_[static_cast<size_t>(type)];
    }

  private:
    void note_(const CoexAction& action) {
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(std::to_string(static_cast<int>(action.type)) + " " + action.data);
        if (threads_.empty() || threads_.back() != gettid()) {
            threads_.push_back(gettid());
        }
    }

    mutable std::mutex mutex_;
    std::vector<std::string> events_;
    std::vector<int> threads_;
    std::vector<CoexRegistration> registrations_;  // last: goes first
};

/** A subscriber of one type that runs any function. */
struct Subscriber {
    Subscriber(CoexManager& coex, CoexEventType type, std::function<void(const CoexAction&)> call)
        : registration(
              coex.registerCoexActionCallback({type, "Subscriber.call", std::move(call)})) {}

    const CoexRegistration registration;
};

/** What an action waits for. */
class Latch {
  public:
    void open() {
        const std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return open_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

class CoexManagerTest : public CoexScene {};

TEST_F(CoexManagerTest, StationEventsKeepTheirTextAndGetTheirType) {
    Recorder recorder(coex());
    deliver(NetInterfaceType::STA, "CTRL-EVENT-CONNECTED - Connection to 02:00 completed [id=0]");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-DISCONNECTED bssid=02:00 reason=3 ");
    settle();
    EXPECT_THAT(recorder.events(),
                ElementsAre("0 - Connection to 02:00 completed [id=0]", "1 bssid=02:00 reason=3 "));
    EXPECT_TRUE(composition_->ran("CoexManager.onWifiStaConnected"));
    EXPECT_TRUE(composition_->ran("CoexManager.onWifiStaDisconnected"));
    EXPECT_FALSE(composition_->ran("CoexManager.onWifiStaChannelSwitch"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CoexManagerTest, P2pEventsKeepTheirTextAndGetTheirType) {
    startP2p();
    Recorder recorder(coex());
    deliver(NetInterfaceType::P2P, "P2P-GROUP-STARTED p2p-wlan0-0 GO ssid=\"x\" freq=5180 ");
    deliver(NetInterfaceType::P2P, "P2P-GROUP-REMOVED p2p-wlan0-0 GO reason=REQUESTED");
    settle();
    EXPECT_THAT(recorder.events(), ElementsAre("3 p2p-wlan0-0 GO ssid=\"x\" freq=5180 ",
                                               "4 p2p-wlan0-0 GO reason=REQUESTED"));
    EXPECT_TRUE(composition_->ran("CoexManager.onWifiP2pConnected"));
    EXPECT_TRUE(composition_->ran("CoexManager.onWifiP2pDisconnected"));
}

TEST_F(CoexManagerTest,
       TheP2pChannelSwitchHandlerListensOnTheStationsSocketSoEverySwitchIsTwoEvents) {
    startP2p();
    Recorder recorder(coex());
    deliver(NetInterfaceType::STA, kSwitch);
    settle();
    EXPECT_THAT(recorder.events(), ElementsAre("2 freq=5745 ifname=wlan0 width=80",
                                               "5 freq=5745 ifname=wlan0 width=80"));
    EXPECT_TRUE(composition_->ran("CoexManager.onWifiStaChannelSwitch"));
    EXPECT_TRUE(composition_->ran("CoexManager.onWifiP2pChannelSwitch"));
}

TEST_F(CoexManagerTest, AChannelSwitchOnTheP2pSocketIsNoEvent) {
    startP2p();
    Recorder recorder(coex());
    p2p_->sendEvent("CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=p2p-wlan0-0 width=80");
    deliver(NetInterfaceType::P2P, "P2P-GROUP-REMOVED p2p-wlan0-0 GO");  // which comes after it
    settle();
    EXPECT_THAT(recorder.events(), ElementsAre("4 p2p-wlan0-0 GO"));
}

TEST_F(CoexManagerTest, OtherEventsOfEitherSocketAreIgnored) {
    startP2p();
    Recorder recorder(coex());
    for (const char* event : {"CTRL-EVENT-SCAN-RESULTS ", "CTRL-EVENT-ASSOC-STARTED ifname=wlan0",
                              "CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=US"}) {
        deliver(NetInterfaceType::STA, event);
    }
    sta_.sendEvent("P2P-GROUP-STARTED p2p-wlan0-0 GO freq=5180 ");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-SCAN-RESULTS ");  // which comes after it
    p2p_->sendEvent("CTRL-EVENT-CONNECTED - Connection to 02:00 completed");
    p2p_->sendEvent("CTRL-EVENT-DISCONNECTED bssid=02:00 reason=3");
    deliver(NetInterfaceType::P2P, "AP-CSA-FINISHED freq=5180 dfs=0");
    settle();
    EXPECT_THAT(recorder.events(), IsEmpty());
}

TEST_F(CoexManagerTest, ALostSocketDisconnectsWhatItWasFor) {
    startP2p();
    Recorder recorder(coex());
    deliver(NetInterfaceType::STA, "CTRL-EVENT-TERMINATING ");
    settle();
    EXPECT_THAT(recorder.events(), ElementsAre("1 sockettype=STA"));
    deliver(NetInterfaceType::P2P, "CTRL-EVENT-TERMINATING ");
    settle();
    EXPECT_THAT(recorder.events(), ElementsAre("1 sockettype=STA", "4 sockettype=P2P"));
}

TEST_F(CoexManagerTest, EveryActionRunsOnTheDispatchersThread) {
    Recorder recorder(coex());
    for (const CoexEventType type : kTypes) {
        coex().signalEvent(type, "");
    }
    settle();
    const auto dispatcher = composition_->tasks().at("CoexManager.dispatcher");
    EXPECT_NE(dispatcher, gettid());
    EXPECT_THAT(recorder.threads(), ElementsAre(dispatcher));
}

TEST_F(CoexManagerTest, NamesEveryEventThatItProcesses) {
    for (const CoexEventType type : kTypes) {
        coex().signalEvent(type, "");
    }
    coex().signalEvent(static_cast<CoexEventType>(6), "");
    coex().signalEvent(static_cast<CoexEventType>(-1), "");
    ASSERT_TRUE(log_.waitFor("CoexManager: Failed to find a callback map with type -1"));
    EXPECT_THAT(
        linesOf("CoexManager"),
        ElementsAre(
            "D Process event WIFI_STA_CONNECTED (0)", "D Process event WIFI_STA_DISCONNECTED (1)",
            "D Process event WIFI_STA_CHANNEL_SWITCH (2)", "D Process event WIFI_P2P_CONNECTED (3)",
            "D Process event WIFI_P2P_DISCONNECTED (4)",
            "D Process event WIFI_P2P_CHANNEL_SWITCH (5)",  //
            "D Process event UNKNOWN (6)", "W Failed to find a callback map with type 6",
            "D Process event UNKNOWN (-1)", "W Failed to find a callback map with type -1"));
}

TEST_F(CoexManagerTest, ASubscriptionToAnUnknownTypeIsEmptyAndWarnedOf) {
    for (const int type : {-1, 6}) {
        log_.clear();
        EXPECT_EQ(coex().registerCoexActionCallback({static_cast<CoexEventType>(type), "None.none",
                                                     [](const CoexAction& /*action*/) {}}),
                  nullptr);
        EXPECT_THAT(
            linesOf("CoexManager"),
            ElementsAre("W Failed to find a callback map with type " + std::to_string(type)));
    }
}

TEST_F(CoexManagerTest, AFullMapGivesARecordThatUnregistersNothing) {
    std::atomic<int> calls{0};
    std::vector<std::unique_ptr<Subscriber>> subscribers;
    const auto subscribe = [&] {
        subscribers.push_back(std::make_unique<Subscriber>(
            coex(), CoexEventType::WIFI_P2P_CONNECTED, [&](const CoexAction&) { ++calls; }));
        return subscribers.back()->registration->handle();
    };
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(subscribe(), i);
    }
    EXPECT_THAT(errors(), IsEmpty());
    ASSERT_EQ(subscribe(), -1);
    EXPECT_THAT(errors(), ElementsAre("CallbackMapRegister: register CallbackMap failed"));
    subscribers.pop_back();
    dispatch(CoexEventType::WIFI_P2P_CONNECTED, "");
    EXPECT_EQ(calls, 64);
}

TEST_F(CoexManagerTest, DroppingARegistrationEndsThatSubscriptionAndNoOther) {
    Recorder first(coex());
    Recorder second(coex());
    first.registration(CoexEventType::WIFI_STA_CONNECTED).reset();
    dispatch(CoexEventType::WIFI_STA_CONNECTED, "a");
    dispatch(CoexEventType::WIFI_STA_DISCONNECTED, "b");
    EXPECT_THAT(first.events(), ElementsAre("1 b"));
    EXPECT_THAT(second.events(), ElementsAre("0 a", "1 b"));
}

TEST_F(CoexManagerTest, SubscribersOfATypeAreCalledInTheOrderInWhichTheyCame) {
    std::string order;
    const Subscriber a(coex(), CoexEventType::WIFI_STA_CONNECTED, [&](auto&) { order += "a"; });
    const Subscriber b(coex(), CoexEventType::WIFI_STA_CONNECTED, [&](auto&) { order += "b"; });
    const Subscriber c(coex(), CoexEventType::WIFI_STA_CONNECTED, [&](auto&) { order += "c"; });
    dispatch(CoexEventType::WIFI_STA_CONNECTED, "");
    EXPECT_EQ(order, "abc");
}

TEST_F(CoexManagerTest, EventsOfManyThreadsKeepTheOrderOfEach) {
    constexpr int kThreads = 4;
    constexpr int kEvents = 500;
    Recorder recorder(coex());
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEvents; ++i) {
                coex().signalEvent(kTypes[t], std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    settle();
    std::vector<int> next(kThreads, 0);
    for (const std::string& event : recorder.events()) {
        const auto type = static_cast<size_t>(event[0] - '0');
        ASSERT_EQ(event.substr(2), std::to_string(next[type])) << event;
        ++next[type];
    }
    EXPECT_THAT(next, testing::Each(kEvents));
}

TEST_F(CoexManagerTest, TheFirstTaskDrainsTheQueueAndTheSecondFindsItEmpty) {
    Recorder recorder(coex());
    Latch entered;
    Latch signalled;
    Latch seen;
    std::vector<std::string> seenInside;
    const Subscriber blocker(coex(), CoexEventType::WIFI_STA_CONNECTED, [&](const CoexAction&) {
        entered.open();
        signalled.wait();
        coex().processEvent();  // as the first of the two posted tasks does, a moment earlier
        seenInside = recorder.events();
        seen.open();
    });
    coex().signalEvent(CoexEventType::WIFI_STA_CONNECTED, "block");
    entered.wait();
    coex().signalEvent(CoexEventType::WIFI_P2P_CONNECTED, "one");
    coex().signalEvent(CoexEventType::WIFI_STA_DISCONNECTED, "two");
    signalled.open();
    seen.wait();
    settle();
    EXPECT_THAT(seenInside, ElementsAre("0 block", "3 one", "1 two"));
    EXPECT_EQ(recorder.events(), seenInside);
}

TEST_F(CoexManagerTest, AnActionMaySignalEventsItself) {
    Recorder recorder(coex());
    const Subscriber echo(coex(), CoexEventType::WIFI_STA_CONNECTED, [&](const CoexAction& action) {
        coex().signalEvent(CoexEventType::WIFI_STA_DISCONNECTED, action.data + "!");
        coex().signalEvent(CoexEventType::WIFI_P2P_DISCONNECTED, action.data + "?");
    });
    dispatch(CoexEventType::WIFI_STA_CONNECTED, "now");
    settle();
    EXPECT_THAT(recorder.events(), ElementsAre("0 now", "1 now!", "4 now?"));
}

TEST_F(CoexManagerTest, AnActionThatWaitsHoldsUpNeitherTheListenerNorWhoSignals) {
    Latch entered;
    Latch release;
    const Subscriber blocker(coex(), CoexEventType::WIFI_STA_CONNECTED, [&](const CoexAction&) {
        entered.open();
        release.wait();
    });
    Recorder recorder(coex());
    deliver(NetInterfaceType::STA, "CTRL-EVENT-CONNECTED - ");
    entered.wait();
    deliver(NetInterfaceType::STA, "CTRL-EVENT-DISCONNECTED bssid=02:00 ");  // is handled meanwhile
    EXPECT_THAT(recorder.events(), IsEmpty());
    release.open();
    settle();
    EXPECT_THAT(recorder.events(), ElementsAre("0 - ", "1 bssid=02:00 "));
}

TEST_F(CoexManagerTest, ASubscribersExceptionDoesNotEndTheDispatcher) {
    Subscriber throwing(coex(), CoexEventType::WIFI_P2P_CONNECTED,
                        [](const CoexAction&) { throw std::runtime_error("no number"); });
    Recorder recorder(coex());
    coex().signalEvent(CoexEventType::WIFI_P2P_CONNECTED, "none");
    dispatch(CoexEventType::WIFI_STA_CONNECTED, "next");
    EXPECT_THAT(errors(), ElementsAre("CoexManager: A subscriber of type 3 failed: no number"));
    EXPECT_THAT(recorder.events(), ElementsAre("0 next"));
}

TEST_F(CoexManagerTest, DestructionEndsTheDispatcherFirstWithEventsInFlight) {
    const int descriptors = test::openDescriptors();
    for (int i = 0; i < 20; ++i) {
        std::atomic<bool> alive{true};
        std::atomic<int> late{0};
        std::vector<int> touched;  // not guarded: the join is what makes looking at it safe
        auto manager = std::make_unique<CoexManager>(client_);
        const Subscriber subscriber(*manager, CoexEventType::WIFI_STA_CONNECTED,
                                    [&](const CoexAction&) {
                                        late += alive ? 0 : 1;
                                        touched.push_back(1);
                                    });
        for (int n = 0; n < 100; ++n) {
            manager->signalEvent(CoexEventType::WIFI_STA_CONNECTED, std::to_string(n));
        }
        manager.reset();
        alive = false;
        touched.clear();
        EXPECT_EQ(late, 0);
    }
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(CoexManagerTest, DestructionWaitsForTheActionThatRuns) {
    Latch entered;
    Latch release;
    std::atomic<bool> done{false};
    auto manager = std::make_unique<CoexManager>(client_);
    const Subscriber blocker(*manager, CoexEventType::WIFI_STA_CONNECTED, [&](const CoexAction&) {
        entered.open();
        release.wait();
        done = true;
    });
    manager->signalEvent(CoexEventType::WIFI_STA_CONNECTED, "");
    entered.wait();
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        release.open();
    });
    manager.reset();
    EXPECT_TRUE(done);
    opener.join();
}

TEST_F(CoexManagerTest, WhenItHasGoneTheSupplicantsEventsReachItNoMore) {
    composition_->coex.reset();
    log_.clear();
    deliver(NetInterfaceType::STA, kSwitch);
    deliver(NetInterfaceType::STA, "CTRL-EVENT-TERMINATING ");
    EXPECT_THAT(linesOf("CoexManager"), IsEmpty());
}

TEST_F(CoexManagerTest, HasNothingToDump) {
    std::string text = "before\n";
    EXPECT_FALSE(coex().dumpInfo(text));
    EXPECT_EQ(text, "before\n");
}

}  // namespace

}  // namespace Ursa::OS::Wifi
