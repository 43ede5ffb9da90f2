#include <nlohmann/json.hpp>

#include "managers/MipiClockManager.h"
#include "tests/managers/CoexScene.h"
#include "tests/support/Descriptors.h"
#include "tests/support/NoNewThreads.h"

namespace Ursa::OS::Wifi {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/** Long enough to reach the point at which the library hangs. */
constexpr milliseconds kHangs{300};

class MipiClockManagerTest : public CoexScene {
  protected:
    void start(milliseconds limit = seconds(20)) {
        manager_ = std::make_unique<MipiClockManager>(client_, limit);
    }
    void channelSwitch(const std::string& ifname, int freq) {
        dispatch(CoexEventType::WIFI_STA_CHANNEL_SWITCH,
                 "freq=" + std::to_string(freq) + " ifname=" + ifname + " width=80");
    }

    std::string clocks() const { return sensorFile("camera_clock"); }
    std::vector<std::string> lines() const { return linesOf("MipiClockManager"); }
    std::string dump() {
        std::string text;
        EXPECT_TRUE(manager_->dumpInfo(text));
        return text;
    }

    std::unique_ptr<MipiClockManager> manager_;
};

TEST(MipiClock, EveryFrequencyHasItsClock) {
    EXPECT_EQ(mipiClockOf(-1), -1);
    EXPECT_EQ(mipiClockOf(0), 0);
    EXPECT_EQ(mipiClockOf(-2), 0);
    for (int freq = 2400; freq <= 7200; ++freq) {
        bool disturbed = false;
        for (const int centre : {5815, 6185, 6665, 6985}) {  // each 70 MHz to either side
            disturbed = disturbed || (freq - centre <= 70 && centre - freq <= 70);
        }
        EXPECT_EQ(mipiClockOf(freq), disturbed ? 1 : 0) << freq;
    }
}

TEST_F(MipiClockManagerTest, AConnectedStationsChannelSetsTheClock) {
    start();
    stationConnected(5180);
    EXPECT_EQ(clocks(), "worldTracking 0\n");
    EXPECT_EQ(dump(), "\tMIPI Clock is set to 384 mhz\n");
    EXPECT_THAT(
        lines(),
        ElementsAre("I Wi-Fi STA event(CONNECTED)", "D poll signals rssi:-50 freq:5180 (success)",
                    "D last clock:-1 new clock:0", "D (1/5) notify new clock:0",
                    "D CameraProvider: getting a camera provider", "D CameraProvider: calling API",
                    "D CameraProvider: API has successfully returned"));
    EXPECT_THAT(sta_.commands("SIGNAL_POLL"), ElementsAre("SIGNAL_POLL"));
    const auto tasks = composition_->tasks();
    const int dispatcher = tasks.at("CoexManager.dispatcher");
    EXPECT_EQ(tasks.at("MipiClockManager.onWifiStaConnected"), dispatcher);
    EXPECT_NE(tasks.at("MipiClockManager.worker"), dispatcher);
}

TEST_F(MipiClockManagerTest, ChannelsThatTheUsualClockDisturbsGetTheOther) {
    for (const int freq : {5745, 5885, 6135, 6925}) {
        setSensorFile("camera_clock", "");
        start();
        stationConnected(freq);
        EXPECT_EQ(clocks(), "worldTracking 1\n") << freq;
        EXPECT_EQ(dump(), "\tMIPI Clock is set to 398 mhz\n");
    }
    for (const int freq : {5890, 6300, 2437}) {
        setSensorFile("camera_clock", "");
        start();
        stationConnected(freq);
        EXPECT_EQ(clocks(), "worldTracking 0\n") << freq;
    }
}

TEST_F(MipiClockManagerTest, TheSameClockAgainIsNotSent) {
    start();
    stationConnected(5180);
    log_.clear();
    stationConnected(5500);
    EXPECT_EQ(clocks(), "worldTracking 0\n");
    EXPECT_THAT(lines(), ElementsAre("I Wi-Fi STA event(CONNECTED)",
                                     "D poll signals rssi:-50 freq:5500 (success)",
                                     "D last clock:0 new clock:0"));
}

TEST_F(MipiClockManagerTest, ASignalPollThatFailsChangesNothing) {
    start();
    sta_.fail("SIGNAL_POLL");
    dispatch(CoexEventType::WIFI_STA_CONNECTED, "- ");
    EXPECT_THAT(lines(), ElementsAre("I Wi-Fi STA event(CONNECTED)",
                                     "E failed to send wpa_supplicant command."));
    for (const char* reply : {"FAIL\n", "RSSI=-50\n", "RSSI=x\nFREQUENCY=5180\n"}) {
        log_.clear();
        stationConnected(reply);
        ASSERT_EQ(lines().size(), 2U);
        EXPECT_THAT(lines()[1], testing::EndsWith(" (fail)"));
    }
    EXPECT_EQ(clocks(), "");
}

TEST_F(MipiClockManagerTest, ADisconnectedStationLeavesTheClockWhereItIs) {
    start();
    stationConnected(5745);
    log_.clear();
    dispatch(CoexEventType::WIFI_STA_DISCONNECTED, "bssid=02:00 reason=3");
    EXPECT_THAT(lines(), ElementsAre("I Wi-Fi STA event(DISCONNECTED bssid=02:00 reason=3)"));
    EXPECT_EQ(clocks(), "worldTracking 1\n");
    EXPECT_EQ(dump(), "\tMIPI Clock is set to 398 mhz\n");
    EXPECT_TRUE(composition_->ran("MipiClockManager.onWifiStaDisconnected"));
}

TEST_F(MipiClockManagerTest, AStationsChannelSwitchSetsTheClock) {
    start();
    channelSwitch("wlan0", 5745);
    EXPECT_EQ(clocks(), "worldTracking 1\n");
    EXPECT_EQ(lines()[0], "I Wi-Fi STA event(CHANNEL-SWITCH freq=5745 ifname=wlan0 width=80)");
    EXPECT_EQ(lines()[1], "D last clock:-1 new clock:1");
    channelSwitch("wlan0", 5180);
    EXPECT_EQ(clocks(), "worldTracking 1\nworldTracking 0\n");
    EXPECT_TRUE(composition_->ran("MipiClockManager.onWifiStaChannelSwitch"));
}

TEST_F(MipiClockManagerTest, AChannelSwitchThatDoesNotParseIsAnError) {
    start();
    dispatch(CoexEventType::WIFI_STA_CHANNEL_SWITCH, "freq=5745");
    EXPECT_THAT(lines(), ElementsAre("I Wi-Fi STA event(CHANNEL-SWITCH freq=5745)",
                                     "E failed to parse freq and ifname."));
}

TEST_F(MipiClockManagerTest, AGroupsChannelSwitchSendsTheLastClockAgain) {
    start();
    stationConnected(5745);
    log_.clear();
    channelSwitch("p2p-wlan0-0", 5180);
    EXPECT_EQ(clocks(), "worldTracking 1\nworldTracking 1\n");
    EXPECT_EQ(dump(), "\tMIPI Clock is set to 398 mhz\n");
    EXPECT_THAT(
        lines(),
        ElementsAre("I Wi-Fi STA event(CHANNEL-SWITCH freq=5180 ifname=p2p-wlan0-0 width=80)",
                    "D last clock:1 new clock:-1", "D (1/5) notify new clock:1",
                    "D CameraProvider: getting a camera provider", "D CameraProvider: calling API",
                    "D CameraProvider: API has successfully returned"));
}

TEST_F(MipiClockManagerTest, AGroupsChannelSwitchBeforeTheFirstClockSendsNothing) {
    start();
    channelSwitch("p2p-wlan0-0", 5745);
    EXPECT_EQ(lines().back(), "D last clock:-1 new clock:-1");
    EXPECT_EQ(clocks(), "");
    EXPECT_EQ(dump(), "\tMIPI Clock is set to same frequency as last time\n");
}

TEST_F(MipiClockManagerTest, OtherEventsAreNotSubscribedTo) {
    start();
    for (const auto type : {CoexEventType::WIFI_P2P_CONNECTED, CoexEventType::WIFI_P2P_DISCONNECTED,
                            CoexEventType::WIFI_P2P_CHANNEL_SWITCH}) {
        dispatch(type, "freq=5745 ifname=wlan0 width=80");
    }
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(MipiClockManagerTest, SupplicantEventsReachItThroughTheDispatcher) {
    start();
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5180\n");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-CONNECTED - Connection to 02:00 completed");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-CHANNEL-SWITCH freq=5765 ifname=wlan0 width=80");
    settle();
    EXPECT_EQ(clocks(), "worldTracking 0\nworldTracking 1\n");
}

TEST_F(MipiClockManagerTest, ReportsEachClockThatTheCamerasTook) {
    const auto stats = test::startRecordingStats();
    start();
    stationConnected(5180);
    channelSwitch("wlan0", 5745);
    channelSwitch("p2p0", 5180);
    EXPECT_THAT(stats->reports(),
                ElementsAre("119925 \"MIPI_CLOCK_EVENT\" 1 0", "119925 \"MIPI_CLOCK_EVENT\" 1 1",
                            "119925 \"MIPI_CLOCK_EVENT\" 1 1"));
}

TEST_F(MipiClockManagerTest, WithoutACameraProviderItTriesFiveTimesAndReportsIt) {
    const auto stats = test::startRecordingStats();
    start();
    steer("camera.create", "null");
    stationConnected(5180);
    std::vector<std::string> expected = {"I Wi-Fi STA event(CONNECTED)",
                                         "D poll signals rssi:-50 freq:5180 (success)",
                                         "D last clock:-1 new clock:0"};
    for (int attempt = 1; attempt <= 5; ++attempt) {
        expected.push_back("D (" + std::to_string(attempt) + "/5) notify new clock:0");
        expected.push_back("D CameraProvider: getting a camera provider");
        expected.push_back("E cannot get camera provider");
    }
    expected.push_back("E notification failed 5 times");
    EXPECT_EQ(lines(), expected);
    EXPECT_EQ(dump(), "\tMIPI Clock is set to same frequency as last time\n");
    EXPECT_THAT(stats->reports(), ElementsAre("119925 \"MIPI_CLOCK_EVENT\" 0 0"));

    steer("camera.create", "ok");
    stationConnected(5180);
    EXPECT_EQ(clocks(), "worldTracking 0\n");
    EXPECT_THAT(stats->reports(),
                ElementsAre("119925 \"MIPI_CLOCK_EVENT\" 0 0", "119925 \"MIPI_CLOCK_EVENT\" 1 0"));
}

TEST_F(MipiClockManagerTest, LastAttemptIsReportedWithWhatWasSentAndHowItEnded) {
    start();
    const auto lastAttempt = [this] {
        return nlohmann::json::parse(manager_->describe().json()).at("lastAttempt");
    };
    EXPECT_EQ(lastAttempt(), nullptr);
    stationConnected(5180);
    EXPECT_EQ(lastAttempt().at("text"), "notifyMipiClock worldTracking 384 mhz");
    EXPECT_EQ(lastAttempt().at("outcome"), "ok");
    EXPECT_EQ(lastAttempt().at("reply"), "");
    EXPECT_GE(lastAttempt().at("at").at("agoMs"), 0);

    steer("camera.create", "null");
    stationConnected(5745);
    EXPECT_EQ(lastAttempt().at("text"), "notifyMipiClock worldTracking 398 mhz");
    EXPECT_EQ(lastAttempt().at("outcome"), "failed");
    EXPECT_EQ(lastAttempt().at("reply"), "no camera provider");

    start(kHangs);
    steer("camera.create", "hang");
    stationConnected(5745);
    EXPECT_EQ(lastAttempt().at("outcome"), "timeout");
    EXPECT_GE(lastAttempt().at("durationUs"), 300'000);
    EXPECT_THAT(manager_->describe().text(),
                testing::HasSubstr("lastAttempt: notifyMipiClock worldTracking 398 mhz  -> timeout "
                                   "(no response), "));
}

TEST_F(MipiClockManagerTest, AttemptUnderWayIsReportedAsPending) {
    start(seconds(2));
    steer("camera.notify", "hang");
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5745\n");
    coex().signalEvent(CoexEventType::WIFI_STA_CONNECTED, "- ");
    ASSERT_TRUE(log_.waitFor("MipiClockManager: CameraProvider: calling API"));
    const auto state = nlohmann::json::parse(manager_->describe().json());
    EXPECT_EQ(state.at("lastAttempt").at("outcome"), "pending");
}

TEST_F(MipiClockManagerTest, WithoutAStatisticsServiceTheClockIsSetAllTheSame) {
    start();
    stationConnected(5180);
    EXPECT_EQ(dump(), "\tMIPI Clock is set to 384 mhz\n");
    EXPECT_THAT(errors(), ElementsAre("TelemetryEventLogger: Stats HAL is unavailable!"));
}

class HangingCameras : public MipiClockManagerTest,
                       public testing::WithParamInterface<const char*> {};

TEST_P(HangingCameras, AreGivenUpFiveTimesAndTheNextEventTriesAgain) {
    const auto stats = test::startRecordingStats();
    start(seconds(1));
    const int threads = test::runningThreads();
    steer(GetParam(), "hang");
    stationConnected(5745);
    std::vector<std::string> told;
    for (const std::string& line : lines()) {
        if (line != "D CameraProvider: getting a camera provider" &&
            line != "D CameraProvider: calling API") {  // how far it got is the worker's
            told.push_back(line);
        }
    }
    std::vector<std::string> expected = {"I Wi-Fi STA event(CONNECTED)",
                                         "D poll signals rssi:-50 freq:5745 (success)",
                                         "D last clock:-1 new clock:1"};
    for (int attempt = 1; attempt <= 5; ++attempt) {
        expected.push_back("D (" + std::to_string(attempt) + "/5) notify new clock:1");
        expected.push_back("E CameraProvider: no response");
        expected.push_back("D CameraProvider: killing woker");
    }
    expected.push_back("E notification failed 5 times");
    EXPECT_EQ(told, expected);
    EXPECT_EQ(clocks(), "");
    EXPECT_THAT(stats->reports(), ElementsAre("119925 \"MIPI_CLOCK_EVENT\" 0 1"));
    EXPECT_TRUE(test::waitUntil([&] { return test::runningThreads() <= threads; }));

    steer(GetParam(), "ok");
    stationConnected(5745);
    EXPECT_EQ(clocks(), "worldTracking 1\n");
    EXPECT_EQ(dump(), "\tMIPI Clock is set to 398 mhz\n");
}

INSTANTIATE_TEST_SUITE_P(MipiClock, HangingCameras,
                         testing::Values("camera.create", "camera.notify"), [](const auto& one) {
                             return std::string(one.param).substr(sizeof "camera." - 1);
                         });

TEST_F(MipiClockManagerTest, TheLineOfATimeOutKeepsItsSpelling) {
    start(kHangs);
    steer("camera.notify", "hang");
    stationConnected(5745);
    EXPECT_EQ(log_.count(ANDROID_LOG_DEBUG, "MipiClockManager: CameraProvider: killing woker"), 5U);
}

TEST_F(MipiClockManagerTest, ACameraServiceThatHangsIsWaitedForTwoSeconds) {
    manager_ = std::make_unique<MipiClockManager>(client_);
    steer("camera.create", "hang");
    const auto start = std::chrono::steady_clock::now();
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5745\n");
    coex().signalEvent(CoexEventType::WIFI_STA_CONNECTED, "- ");
    ASSERT_TRUE(log_.waitFor("MipiClockManager: CameraProvider: no response"));
    const auto took = std::chrono::steady_clock::now() - start;
    steer("camera.create", "ok");
    EXPECT_GE(took, seconds(2));
    EXPECT_LT(took, seconds(10));
    settle();
    EXPECT_EQ(clocks(), "worldTracking 1\n");
}

TEST_F(MipiClockManagerTest, CamerasThatHangHoldUpNoSupplicantEvent) {
    start(kHangs);
    steer("camera.notify", "hang");
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5745\n");
    coex().signalEvent(CoexEventType::WIFI_STA_CONNECTED, "- ");
    ASSERT_TRUE(log_.waitFor("MipiClockManager: (1/5) notify new clock:1"));
    deliver(NetInterfaceType::STA, "CTRL-EVENT-SCAN-RESULTS ");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-DISCONNECTED bssid=02:00 reason=3");
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR, "MipiClockManager: notification failed 5 times"), 0U);
    settle();
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR, "MipiClockManager: notification failed 5 times"), 1U);
}

TEST_F(MipiClockManagerTest, IfNoThreadStartsItTriesFiveTimesAndTheNextEventTriesAgain) {
    start();
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5745\n");
    {
        const test::NoNewThreads limit;
        coex().signalEvent(CoexEventType::WIFI_STA_CONNECTED, "- ");
        ASSERT_TRUE(log_.waitFor("MipiClockManager: notification failed 5 times"));
        settle();
    }
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR, "BoundedWorker: Failed to start a thread: " +
                                                test::NoNewThreads::refusal()),
              5U);
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR, "MipiClockManager: CameraProvider: no response"), 0U);
    stationConnected(5745);
    EXPECT_EQ(clocks(), "worldTracking 1\n");
}

TEST_F(MipiClockManagerTest, DestructionWaitsForTheAttemptUnderWayAndNoOther) {
    const auto stats = test::startRecordingStats();
    start(seconds(2));
    steer("camera.notify", "hang");
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5745\n");
    coex().signalEvent(CoexEventType::WIFI_STA_CONNECTED, "- ");
    coex().signalEvent(CoexEventType::WIFI_STA_CHANNEL_SWITCH, "freq=5180 ifname=wlan0 width=80");
    ASSERT_TRUE(log_.waitFor("MipiClockManager: (1/5) notify new clock:1"));
    manager_.reset();
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR, "MipiClockManager: CameraProvider: no response"), 1U);
    EXPECT_EQ(log_.count(ANDROID_LOG_DEBUG, "MipiClockManager: (2/5) notify new clock:1"), 0U);
    // Neither taken nor refused five times.
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR, "MipiClockManager: notification failed 5 times"), 0U);
    settle();
    EXPECT_THAT(stats->reports(), IsEmpty());
    EXPECT_EQ(log_.count(ANDROID_LOG_DEBUG, "MipiClockManager: (1/5) notify new clock:0"), 0U);
}

TEST_F(MipiClockManagerTest, WithoutADispatcherItIsIdle) {
    composition_->coex.reset();
    start();
    EXPECT_EQ(dump(), "\tMIPI Clock is set to same frequency as last time\n");
}

}  // namespace

}  // namespace Ursa::OS::Wifi
