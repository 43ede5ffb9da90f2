#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "managers/StaManager.h"
#include "tests/support/ManagerTest.h"
#include "tests/support/NoNewThreads.h"

namespace Ursa::OS::Wifi {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kConnected[] =
    "CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed [id=0 id_str=]";
constexpr char kDisconnected[] = "CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:00 reason=3";
constexpr char kChannelSwitch[] = "CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=wlan0 width=80";
constexpr char kSignal[] = "RSSI=-50\nLINKSPEED=866\nNOISE=-95\nFREQUENCY=5180\n";

/** Each result as "CONNECTED 5180 -50", with when it came. Any thread. */
class Results {
  public:
    explicit Results(StaManager& manager) : manager_(manager) {
        connectedHandle_ = manager_.staConnectedCallbacks->registerCallback(connected_);
        disconnectedHandle_ = manager_.staDisconnectedCallbacks->registerCallback(disconnected_);
    }
    ~Results() {
        manager_.staConnectedCallbacks->unregisterCallback(connectedHandle_);
        manager_.staDisconnectedCallbacks->unregisterCallback(disconnectedHandle_);
    }
    Results(const Results&) = delete;
    Results& operator=(const Results&) = delete;

    std::vector<std::string> all() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return texts_;
    }
    std::vector<steady_clock::time_point> times() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return times_;
    }
    bool waitFor(size_t count) const {
        return test::waitUntil([&] { return all().size() >= count; });
    }

  private:
    void add_(const StaResult& result) {
        const std::lock_guard<std::mutex> lock(mutex_);
        texts_.push_back(result.event + " " + std::to_string(result.frequency) + " " +
                         std::to_string(result.rssi));
        times_.push_back(steady_clock::now());
    }

    StaManager& manager_;
    mutable std::mutex mutex_;
    std::vector<std::string> texts_;
    std::vector<steady_clock::time_point> times_;
    std::function<void(const StaResult&)> connected_ = [this](const StaResult& r) { add_(r); };
    std::function<void(const StaResult&)> disconnected_ = [this](const StaResult& r) { add_(r); };
    int connectedHandle_;
    int disconnectedHandle_;
};

/** A subscriber with a defect. */
class Throwing {
  public:
    explicit Throwing(CallbackMap<const StaResult&>& map)
        : map_(map), handle_(map.registerCallback(handler_)) {}
    ~Throwing() { map_.unregisterCallback(handle_); }
    Throwing(const Throwing&) = delete;
    Throwing& operator=(const Throwing&) = delete;

    int calls() const { return calls_; }

  private:
    CallbackMap<const StaResult&>& map_;
    std::atomic<int> calls_{0};
    std::function<void(const StaResult&)> handler_ = [this](const StaResult&) {
        ++calls_;
        throw std::runtime_error("no number");
    };
    const int handle_;
};

constexpr char kDown[] = "StaManager event(DISCONNECTED) -1 -1";
constexpr char kUp[] = "StaManager event(CONNECTED) 5180 -50";

constexpr char kStopLine[] = "StaManager: stop sending wpa_supplicant command. (timeout: 120 sec)";

class StaManagerTest : public ManagerTest {
  protected:
    StaManagerTest() { sta_.answer("SIGNAL_POLL", kSignal); }

    void deliverSta(const std::string& event) { deliver(NetInterfaceType::STA, event); }

    size_t polls() const { return sta_.commands("SIGNAL_POLL").size(); }

    static std::string failureLine(int count) {
        return "StaManager: failed " + std::to_string(count) +
               " times for sending wpa_supplicant command.";
    }
    /** How often a send was logged as the `count`th failure in a row. */
    size_t failures(int count) const { return log_.count(ANDROID_LOG_INFO, failureLine(count)); }

    /** Waits until the thread that last noted itself as the worker is gone. */
    bool waitForEndOfWorker() const {
        const int thread = composition_->tasks().at("StaManager.worker");
        const std::string entry = "/proc/self/task/" + std::to_string(thread);
        return test::waitUntil([&] { return !std::filesystem::exists(entry); });
    }

    std::string dump(StaManager& manager) {
        std::string text;
        EXPECT_TRUE(manager.dumpInfo(text));
        return text;
    }
};

// The length of the worker's "second".
constexpr milliseconds kMeasured(10);      ///< its multiples can be told apart
constexpr milliseconds kShort(1);          ///< over at once
constexpr std::chrono::hours kForEver(1);  ///< no worker comes to its first poll

// Samples

TEST_F(StaManagerTest, ConnectFirstTellsSubscribersThatTheEarlierLinkIsOver) {
    StaManager manager(client_, kForEver);
    Results results(manager);
    deliverSta(kConnected);
    EXPECT_THAT(results.all(), ElementsAre(kDown));
    EXPECT_EQ(infos().at(0), "StaManager: STA event(CONNECTED)");
}

TEST_F(StaManagerTest, ASampleComesFiveSecondsAfterTheConnectionAndEveryFiveFromThenOn) {
    StaManager manager(client_, kMeasured);
    Results results(manager);
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(4));

    const auto all = results.all();
    EXPECT_THAT(std::vector(all.begin(), all.begin() + 4), ElementsAre(kDown, kUp, kUp, kUp));
    const auto times = results.times();
    auto shortest = times[1] - times[0];
    for (size_t i = 1; i < 4; ++i) {
        EXPECT_GE(times[i] - times[i - 1], 5 * kMeasured);
        shortest = std::min(shortest, times[i] - times[i - 1]);
    }
    EXPECT_LT(shortest, 30 * kMeasured);  // of several: a loaded machine delays some
}

TEST_F(StaManagerTest, AReconnectionBeginsWithDisconnectedAgainAndPollsWithOneWorker) {
    StaManager manager(client_, kShort);
    Results results(manager);
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    deliverSta(kConnected);
    deliverSta(kDisconnected);

    const auto all = results.all();
    EXPECT_EQ(std::count(all.begin(), all.end(), kDown), 3);
    EXPECT_EQ(all.back(), kDown);
}

TEST_F(StaManagerTest, SamplesCarryTheChannelAfterASwitch) {
    StaManager manager(client_, kShort);
    Results results(manager);
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    sta_.answer("SIGNAL_POLL", "RSSI=-61\nFREQUENCY=5745\n");
    EXPECT_TRUE(test::waitUntil(
        [&] { return results.all().back() == "StaManager event(CONNECTED) 5745 -61"; }));
}

TEST_F(StaManagerTest, AChannelSwitchPublishesNothingByItself) {
    StaManager manager(client_, kForEver);
    Results results(manager);
    deliverSta(kChannelSwitch);
    EXPECT_THAT(results.all(), IsEmpty());
    EXPECT_THAT(infos(), Contains("StaManager: STA event(CHANNEL_SWITCH-freq=5745 ifname=wlan0 "
                                  "width=80)"));
    EXPECT_EQ(polls(), 1U);
}

// Failures

TEST_F(StaManagerTest, AFailedSendIsFollowedByAWaitOfThirtySeconds) {
    StaManager manager(client_, kMeasured);
    Results results(manager);
    sta_.answerInTurn("SIGNAL_POLL", {kSignal, std::nullopt});
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    EXPECT_THAT(results.all(), ElementsAre(kDown, kUp));
    EXPECT_GE(results.times()[1] - results.times()[0], (5 + 30) * kMeasured);
    EXPECT_EQ(failures(1), 1U);
}

TEST_F(StaManagerTest, FourFailedSendsInARowEndPollingAndLogTheTimeOut) {
    StaManager manager(client_, kMeasured);
    Results results(manager);
    sta_.answerInTurn("SIGNAL_POLL", {kSignal});
    sta_.fail("SIGNAL_POLL");
    deliverSta(kConnected);
    ASSERT_TRUE(log_.waitFor(kStopLine));
    EXPECT_GE(steady_clock::now() - results.times()[0], (5 + 30 + 30 + 30) * kMeasured);
    EXPECT_TRUE(waitForEndOfWorker());

    EXPECT_EQ(log_.count(ANDROID_LOG_INFO, kStopLine), 1U);
    for (int i = 1; i <= 4; ++i) {
        EXPECT_EQ(failures(i), 1U);
    }
    EXPECT_EQ(polls(), 5U);  // the connected handler's, which was answered, and the four
    EXPECT_THAT(results.all(), ElementsAre(kDown)) << "nobody is told of the end of polling";
}

TEST_F(StaManagerTest, ANewConnectionRestartsAWorkerThatHadGivenUp) {
    StaManager manager(client_, kShort);
    sta_.fail("SIGNAL_POLL");
    deliverSta(kConnected);
    ASSERT_TRUE(log_.waitFor(kStopLine));
    sta_.answer("SIGNAL_POLL", kSignal);
    Results results(manager);
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    EXPECT_EQ(results.all()[0], kDown);
    EXPECT_EQ(results.all()[1], kUp);
}

TEST_F(StaManagerTest, TheFailureOfTheConnectionsOwnPollIsNotCountedAgainstTheWorker) {
    StaManager manager(client_, kShort);
    sta_.fail("SIGNAL_POLL");
    deliverSta(kConnected);
    ASSERT_TRUE(log_.waitFor(kStopLine));
    EXPECT_EQ(polls(), 5U);  // the handler's, then four of the worker's
    EXPECT_EQ(failures(1), 2U);
}

TEST_F(StaManagerTest, ASuccessfulSendBetweenFailuresBeginsTheirCountAnew) {
    StaManager manager(client_, kShort);
    Results results(manager);
    sta_.answerInTurn("SIGNAL_POLL",
                      {kSignal, std::nullopt, std::nullopt, std::nullopt, kSignal, std::nullopt});
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(3));
    EXPECT_EQ(failures(1), 2U);
    EXPECT_EQ(failures(2), 1U);
    EXPECT_EQ(failures(3), 1U);
    EXPECT_EQ(failures(4), 0U);
}

TEST_F(StaManagerTest, AReplyWithoutFrequencyResetsTheCountPublishesNothingAndWaitsThirtySeconds) {
    StaManager manager(client_, kMeasured);
    Results results(manager);
    sta_.answerInTurn("SIGNAL_POLL",
                      {kSignal, std::nullopt, "RSSI=-50\nNOISE=-95\n", std::nullopt});
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    EXPECT_THAT(results.all(), ElementsAre(kDown, kUp));
    EXPECT_GE(results.times()[1] - results.times()[0], (5 + 30 + 30 + 30) * kMeasured);
    EXPECT_EQ(failures(1), 2U);
    EXPECT_EQ(failures(2), 0U);
}

TEST_F(StaManagerTest, AReplyWithoutNumbersCountsAsOneThatDoesNotParse) {
    StaManager manager(client_, kShort);
    Results results(manager);
    const std::string reply = "RSSI=strong\nFREQUENCY=5180\n";
    sta_.answerInTurn("SIGNAL_POLL", {reply, reply, reply});
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    EXPECT_EQ(results.all()[1], kUp);
    EXPECT_GE(polls(), 4U);
    EXPECT_EQ(failures(1), 0U);
}

// The end of a link

TEST_F(StaManagerTest, ADisconnectEndsASleepingWorkerAtOnce) {
    StaManager manager(client_, kForEver);
    Results results(manager);
    deliverSta(kConnected);
    const auto begin = steady_clock::now();
    deliverSta(kDisconnected);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(20));  // of a sleep of 5 hours
    EXPECT_THAT(results.all(), ElementsAre(kDown, kDown));
    EXPECT_THAT(infos(), Contains("StaManager: STA event(DISCONNECTED-bssid=02:00:00:00:01:00 "
                                  "reason=3)"));
}

TEST_F(StaManagerTest, NothingIsPolledAfterADisconnect) {
    StaManager manager(client_, kShort);
    deliverSta(kConnected);
    ASSERT_TRUE(sta_.waitForCommands("SIGNAL_POLL", 3));
    deliverSta(kDisconnected);
    EXPECT_TRUE(waitForEndOfWorker());
}

TEST_F(StaManagerTest, ADisconnectWithoutAConnectionIsToldToo) {
    StaManager manager(client_, kForEver);
    Results results(manager);
    deliverSta(kDisconnected);
    EXPECT_THAT(results.all(), ElementsAre(kDown));
    EXPECT_EQ(polls(), 0U);
}

TEST_F(StaManagerTest, IfNoThreadStartsTheLinkIsNotPolledAndSubscribersAreStillTold) {
    const auto stats = test::startRecordingStats();
    StaManager manager(client_, kShort);
    Results results(manager);
    std::atomic<int> told{0};
    const WifiClientCallback subscription(
        client_, {{WifiClientCallbackType::WPA_STA_CONNECTED, NetInterfaceType::STA, "Other.told",
                   [&](const std::string& /*event*/) { ++told; }}});
    {
        const test::NoNewThreads limit;
        deliverSta(kConnected);
    }
    EXPECT_THAT(results.all(), ElementsAre(kDown));
    EXPECT_EQ(told, 1);
    EXPECT_THAT(errors(), ElementsAre("StaManager: Failed to start the worker: " +
                                      test::NoNewThreads::refusal()));
    deliverSta(kConnected);
    EXPECT_TRUE(results.waitFor(3));
    EXPECT_THAT(results.all().back(), kUp);
}

// A subscriber that throws

TEST_F(StaManagerTest, ASubscriberThatThrowsOnASampleIsLoggedAndTheNextSampleComes) {
    StaManager manager(client_, kShort);
    const Throwing throwing(*manager.staConnectedCallbacks);
    deliverSta(kConnected);
    ASSERT_TRUE(test::waitUntil([&] { return throwing.calls() >= 2; }));
    deliverSta(kDisconnected);
    EXPECT_GE(
        log_.count(ANDROID_LOG_ERROR,
                   "StaManager: A subscriber of StaManager event(CONNECTED) failed: no number"),
        2U);
}

TEST_F(StaManagerTest, ASubscriberThatThrowsAtTheEndOfTheLinkDoesNotKeepTheNextFromItsSamples) {
    StaManager manager(client_, kShort);
    const Results results(manager);
    const Throwing throwing(*manager.staDisconnectedCallbacks);
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    EXPECT_EQ(results.all()[1], kUp);
    EXPECT_EQ(
        log_.count(ANDROID_LOG_ERROR,
                   "StaManager: A subscriber of StaManager event(DISCONNECTED) failed: no number"),
        1U);
}

TEST_F(StaManagerTest, ASubscriberThatThrowsDuringDestructionIsLogged) {
    auto manager = std::make_unique<StaManager>(client_, kForEver);
    const auto map = manager->staDisconnectedCallbacks;
    const Throwing throwing(*map);
    manager.reset();
    EXPECT_EQ(throwing.calls(), 1);
    EXPECT_THAT(errors(), ElementsAre("StaManager: A subscriber of StaManager event(DISCONNECTED) "
                                      "failed: no number"));
}

TEST_F(StaManagerTest, TheLossOfTheSupplicantsSocketEndsTheLink) {
    StaManager manager(client_, kForEver);
    Results results(manager);
    deliverSta(kConnected);
    deliverSta("CTRL-EVENT-TERMINATING ");
    EXPECT_THAT(results.all(), ElementsAre(kDown, kDown));
    EXPECT_THAT(infos(), Contains("StaManager: STA event(DISCONNECTED-sockettype=STA)"));
}

TEST_F(StaManagerTest, TheLinkIsFollowedAgainAfterTheSupplicantsRestart) {
    StaManager manager(client_, kShort);
    deliverSta(kConnected);
    restart(sta_);
    Results results(manager);
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    EXPECT_EQ(results.all()[1], kUp);
}

TEST_F(StaManagerTest, EventsOfTheP2pSocketAreIgnored) {
    startP2p();
    StaManager manager(client_, kForEver);
    Results results(manager);
    deliver(NetInterfaceType::P2P, "CTRL-EVENT-TERMINATING ");
    EXPECT_THAT(results.all(), IsEmpty());
}

TEST_F(StaManagerTest, DestructionTellsSubscribersOnceMoreThatTheLinkIsDown) {
    auto manager = std::make_unique<StaManager>(client_, kForEver);
    const auto map = manager->staDisconnectedCallbacks;
    std::vector<std::string> heard;
    std::function<void(const StaResult&)> handler = [&](const StaResult& result) {
        heard.push_back(result.event);
    };
    map->registerCallback(handler);
    deliverSta(kConnected);
    heard.clear();
    manager.reset();
    EXPECT_THAT(heard, ElementsAre("StaManager event(DISCONNECTED)"));
}

TEST_F(StaManagerTest, DestructionIsSafeAndPromptWithEventsInFlight) {
    for (int round = 0; round < 20; ++round) {
        auto manager = std::make_unique<StaManager>(client_, kShort);
        deliverSta(kConnected);
        std::thread events([this] {
            for (int i = 0; i < 10; ++i) {
                sta_.sendEvent(kConnected);
                sta_.sendEvent(kChannelSwitch);
                sta_.sendEvent(kDisconnected);
                sta_.sendEvent(kConnected);
            }
        });
        manager.reset();
        events.join();
        deliverSta("CTRL-EVENT-SCAN-RESULTS ");  // what is still under way is over with this
    }
    // The loop still lives.
    StaManager manager(client_, kShort);
    Results results(manager);
    deliverSta(kConnected);
    EXPECT_TRUE(test::waitUntil([&] { return !results.all().empty(); }));
}

// Telemetry

TEST_F(StaManagerTest, EachEventIsReportedWithTheSignalOfAFreshPoll) {
    const auto stats = test::startRecordingStats();
    StaManager manager(client_, kForEver);
    deliverSta(kConnected);
    sta_.answer("SIGNAL_POLL", "RSSI=-61\nFREQUENCY=5745\n");
    deliverSta(kChannelSwitch);
    deliverSta(kDisconnected);
    EXPECT_THAT(stats->reports(), ElementsAre("116183 \"WIFI_STA_CONNECTED\" 5180 -50",
                                              "116183 \"WIFI_STA_CHANNEL_SWITCH\" 5745 -61",
                                              "116183 \"WIFI_STA_DISCONNECTED\" -1 -1"));
    EXPECT_EQ(polls(), 2U) << "a disconnection is not polled";
}

TEST_F(StaManagerTest, AnEventIsReportedWithTheTimeBeforeItsPoll) {
    const auto stats = test::startRecordingStats();
    const auto nowMs = [] {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return static_cast<uint32_t>(std::chrono::duration_cast<milliseconds>(now).count());
    };
    std::atomic<uint32_t> polled{0};
    sta_.socket().answerCommands([&](const std::string&) {
        polled = nowMs();
        test::waitUntil([&] { return nowMs() != polled; });
        return kSignal;
    });
    StaManager manager(client_, kForEver);
    for (const char* const event : {kConnected, kChannelSwitch}) {
        const uint32_t before = nowMs();
        deliverSta(event);
        // As differences, which are right across the wrap of 32 bits too.
        const auto value = static_cast<uint32_t>(stats->atoms().back().values[0].intValue());
        EXPECT_LE(value - before, polled - before) << event;
    }
}

TEST_F(StaManagerTest, EventsAreReportedWithMinusOneWhenThePollFails) {
    const auto stats = test::startRecordingStats();
    StaManager manager(client_, kForEver);
    sta_.fail("SIGNAL_POLL");
    deliverSta(kConnected);
    deliverSta(kChannelSwitch);
    EXPECT_THAT(stats->reports(), ElementsAre("116183 \"WIFI_STA_CONNECTED\" -1 -1",
                                              "116183 \"WIFI_STA_CHANNEL_SWITCH\" -1 -1"));
}

TEST_F(StaManagerTest, TheLossOfASocketIsReportedAsADisconnection) {
    const auto stats = test::startRecordingStats();
    StaManager manager(client_, kForEver);
    deliverSta("CTRL-EVENT-TERMINATING ");
    EXPECT_THAT(stats->reports(), ElementsAre("116183 \"WIFI_STA_DISCONNECTED\" -1 -1"));
}

TEST_F(StaManagerTest, TheLinkIsFollowedWithoutAStatisticsService) {
    StaManager manager(client_, kShort);
    Results results(manager);
    deliverSta(kConnected);
    ASSERT_TRUE(results.waitFor(2));
    EXPECT_THAT(errors(), ElementsAre("TelemetryEventLogger: Stats HAL is unavailable!"));
}

// Tasks

TEST_F(StaManagerTest, NotesTheThreadsOfItsHandlersAndItsWorker) {
    StaManager manager(client_, kShort);
    Results results(manager);
    deliverSta(kConnected);
    deliverSta(kChannelSwitch);
    ASSERT_TRUE(results.waitFor(2));
    deliverSta(kDisconnected);
    const auto tasks = composition_->tasks();
    ASSERT_TRUE(composition_->ran("StaManager.worker"));
    ASSERT_TRUE(composition_->ran("StaManager.onStaConnected"));
    EXPECT_EQ(tasks.at("StaManager.onStaConnected"), tasks.at("StaManager.onStaDisconnected"));
    EXPECT_EQ(tasks.at("StaManager.onStaConnected"), tasks.at("StaManager.onStaChannelSwitch"));
    EXPECT_NE(tasks.at("StaManager.worker"), tasks.at("StaManager.onStaConnected"));
}

// Queries

TEST_F(StaManagerTest, AQueryGivesSignalAndBandwidth) {
    StaManager manager(client_, kForEver);
    nl80211_.setStationBandwidth(3);
    StaInfo info = {};
    manager.getStaInfo(info);
    EXPECT_EQ(info.frequency, 5180);
    EXPECT_EQ(info.rssi, -50);
    EXPECT_EQ(info.bandwidth, 3);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(StaManagerTest, AQueryThatCannotBeSentKnowsNothing) {
    StaManager manager(client_, kForEver);
    sta_.fail("SIGNAL_POLL");
    StaInfo info = {1, 1, 1};
    manager.getStaInfo(info);
    EXPECT_EQ(info.frequency, -1);
    EXPECT_EQ(info.rssi, -1);
    EXPECT_EQ(info.bandwidth, 0);
    EXPECT_THAT(errors(), ElementsAre("StaManager: Failed to send SIGNAL_POLL command"));
}

TEST_F(StaManagerTest, AQueryKeepsTheHalfOfAReplyThatIsThere) {
    StaManager manager(client_, kForEver);
    nl80211_.setStationBandwidth(3);
    StaInfo info = {};

    sta_.answer("SIGNAL_POLL", "RSSI=-50\n");
    manager.getStaInfo(info);
    EXPECT_EQ(info.frequency, -1);
    EXPECT_EQ(info.rssi, -50);
    EXPECT_EQ(info.bandwidth, 0);

    sta_.answer("SIGNAL_POLL", "FREQUENCY=5180\n");
    manager.getStaInfo(info);
    EXPECT_EQ(info.frequency, 5180);
    EXPECT_EQ(info.rssi, -1);
    EXPECT_EQ(info.bandwidth, 0);

    const std::string line =
        "StaManager: failed to parse frequency and RSSI from SIGNAL_POLL response";
    EXPECT_THAT(errors(), ElementsAre(line, line));
    EXPECT_THAT(nl80211_.kernel().requests(), IsEmpty());
}

TEST_F(StaManagerTest, AQueryDoesNotTouchTheFailureCount) {
    StaManager manager(client_, kShort);
    sta_.answerInTurn("SIGNAL_POLL", {kSignal});
    sta_.fail("SIGNAL_POLL");
    deliverSta(kConnected);
    StaInfo info = {};
    ASSERT_TRUE(log_.waitFor(failureLine(1)));
    manager.getStaInfo(info);
    manager.getStaInfo(info);
    ASSERT_TRUE(log_.waitFor(kStopLine));
    for (int i = 1; i <= 4; ++i) {
        EXPECT_EQ(failures(i), 1U);
    }
}

TEST_F(StaManagerTest, ADumpWithoutAConnectionShowsNothingKnown) {
    StaManager manager(client_, kForEver);
    sta_.answer("SIGNAL_POLL", "FAIL\n");
    EXPECT_EQ(dump(manager), "\tSTA frequency: -1\n\tSTA rssi: -1\n\tSTA bandwidth: unknown\n");
}

TEST_F(StaManagerTest, ADumpNamesTheBandwidthAndCalls80Plus80Unknown) {
    StaManager manager(client_, kForEver);
    const char* const texts[] = {"unknown", "20", "40", "80", "unknown", "160"};
    for (int code = 0; code <= 5; ++code) {
        nl80211_.setStationBandwidth(code);
        EXPECT_EQ(dump(manager), std::string("\tSTA frequency: 5180\n\tSTA rssi: -50\n") +
                                     "\tSTA bandwidth: " + texts[code] + "\n");
    }
}

}  // namespace

}  // namespace Ursa::OS::Wifi
