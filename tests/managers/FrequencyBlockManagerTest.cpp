#include <array>
#include <iterator>
#include <map>
#include <thread>

#include <nlohmann/json.hpp>

#include "managers/FrequencyBlockManager.h"
#include "tests/managers/CoexScene.h"
#include "tests/support/Descriptors.h"
#include "tests/support/NoNewThreads.h"

namespace Ursa::OS::Wifi {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/** "2420 2454\n" per channel's centre, as the sensor library's file has it. */
const std::map<int, std::string> kRanges = {
    {2412, "2402 2430\n"}, {2417, "2402 2434\n"}, {2422, "2406 2440\n"}, {2427, "2410 2444\n"},
    {2432, "2414 2450\n"}, {2437, "2420 2454\n"}, {2442, "2424 2458\n"}, {2447, "2428 2462\n"},
    {2452, "2434 2466\n"}, {2457, "2438 2470\n"}, {2462, "2444 2476\n"}, {2467, "2448 2478\n"},
    {2472, "2448 2478\n"},
};
const std::map<int, std::string> kIm3Ranges = {
    {2412, "2451 2453\n"}, {2432, "2475 2477\n"}, {2462, "2425 2427\n"}};

/** Every Wi-Fi channel's centre in the three bands, and -1 for none. */
std::vector<int> allFrequencies() {
    std::vector<int> all = {-1};
    for (int freq = 2412; freq <= 2472; freq += 5) {
        all.push_back(freq);
    }
    all.push_back(2484);
    for (int freq = 5180; freq <= 5320; freq += 20) {
        all.push_back(freq);
    }
    for (int freq = 5500; freq <= 5720; freq += 20) {
        all.push_back(freq);
    }
    for (int freq = 5745; freq <= 5885; freq += 20) {
        all.push_back(freq);
    }
    all.push_back(5935);
    for (int freq = 5955; freq <= 7115; freq += 20) {
        all.push_back(freq);
    }
    return all;
}

/** Long enough to reach the point at which the library hangs. */
constexpr milliseconds kHangs{300};

class FrequencyBlockManagerTest : public CoexScene {
  protected:
    void start(milliseconds limit = seconds(20)) {
        manager_ = std::make_unique<FrequencyBlockManager>(client_, limit);
    }
    /** For many in a row: an old manager's handles are free again after the next event only. */
    void restart() {
        manager_.reset();
        for (int type = 0; type <= 5; ++type) {
            coex().signalEvent(static_cast<CoexEventType>(type), "");
        }
        settle();
        log_.clear();
        start();
    }
    void startWithIm3() {
        root_.setProperty("persist.vendor.wifi.im3.mitigation.band2g", "true");
        start();
    }

    void p2pConnected(int freq) {
        dispatch(CoexEventType::WIFI_P2P_CONNECTED,
                 "p2p-wlan0-0 GO ssid=\"x\" freq=" + std::to_string(freq) + " go_dev_addr=02:00");
    }
    void p2pDisconnected() {
        dispatch(CoexEventType::WIFI_P2P_DISCONNECTED, "p2p-wlan0-0 GO reason=REQUESTED");
    }
    void stationDisconnected() {
        dispatch(CoexEventType::WIFI_STA_DISCONNECTED, "bssid=02:00 reason=3");
    }

    std::string blocklist() const { return sensorFile("controller_blocklist"); }
    void setBlocklist(const std::string& content) const {
        setSensorFile("controller_blocklist", content);
    }
    std::vector<std::string> lines() const { return linesOf("FrequencyBlockManager"); }
    std::string dump() {
        std::string text;
        EXPECT_TRUE(manager_->dumpInfo(text));
        return text;
    }

    std::unique_ptr<FrequencyBlockManager> manager_;
};

// The choice.

TEST(FrequencyBlockChoice, TheStationWinsOn2GhzForEveryPairOfFrequencies) {
    for (const int sta : allFrequencies()) {
        for (const int p2p : allFrequencies()) {
            const bool stationCounts = sta >= 2412 && sta <= 2484;
            EXPECT_EQ(chooseBlockedFrequency(sta, p2p), stationCounts ? sta : p2p)
                << sta << " " << p2p;
        }
    }
}

TEST(FrequencyBlockChoice, TheLimitOf2GhzIs3000AndComparedWithSign) {
    EXPECT_EQ(chooseBlockedFrequency(2999, 5180), 2999);
    EXPECT_EQ(chooseBlockedFrequency(3000, 5180), 5180);
    EXPECT_EQ(chooseBlockedFrequency(-2, 5180), -2);
    EXPECT_EQ(chooseBlockedFrequency(0, 5180), 0);
}

TEST(FrequencyBlockChoice, OnlyTheThirteenCentresHaveARow) {
    EXPECT_EQ(channelIndex(-1), -1);
    EXPECT_EQ(channelIndex(-2), -1);
    EXPECT_EQ(channelIndex(INT32_MIN), -1);
    EXPECT_EQ(channelIndex(INT32_MAX), -2);
    for (int freq = 0; freq <= 7200; ++freq) {
        const auto row = kRanges.find(freq);
        EXPECT_EQ(channelIndex(freq),
                  row == kRanges.end() ? -2 : std::distance(kRanges.begin(), row))
            << freq;
    }
}

TEST_F(FrequencyBlockManagerTest, EveryChannelBlocksItsRangeAndIm3ItsOwn) {
    for (const bool im3 : {false, true}) {
        root_.setProperty("persist.vendor.wifi.im3.mitigation.band2g", im3 ? "true" : "false");
        for (const auto& [freq, range] : kRanges) {
            setBlocklist("");
            restart();
            stationConnected(freq);
            const auto extra = kIm3Ranges.find(freq);
            EXPECT_EQ(blocklist(), range + (im3 && extra != kIm3Ranges.end() ? extra->second : ""))
                << freq;
        }
    }
}

/** A connection on a frequency, or for -1 the end of it. */
struct Step {
    enum Who { Station, Group } who;
    int freq;
};

Step station(int freq) { return {Step::Station, freq}; }
Step group(int freq) { return {Step::Group, freq}; }

/** What is blocked at the end of some steps. */
struct BlocklistRow {
    bool im3;
    const char* before;  ///< what others have blocked
    std::vector<Step> steps;
    const char* after;
};

const BlocklistRow kBlocklistRows[] = {
    // Nothing on 2.4 GHz blocks nothing.
    {false, "", {group(-1), station(-1)}, ""},
    {false, "", {group(5180), station(6135)}, ""},
    {false, "", {group(6135), station(2484)}, ""},
    {false, "", {station(5180), group(2484)}, ""},
    // The station on 2.4 GHz wins, whatever the group's band.
    {false, "", {station(2412)}, "2402 2430\n"},
    {false, "", {group(5180), station(2412)}, "2402 2430\n"},
    {false, "", {group(6135), station(2422)}, "2406 2440\n"},
    {false, "", {group(2484), station(2462)}, "2444 2476\n"},
    {false, "", {station(2412), group(2462)}, "2402 2430\n"},
    // Otherwise the group counts.
    {false, "", {group(2462), station(-1)}, "2444 2476\n"},
    {false, "", {group(2462), station(5180)}, "2444 2476\n"},
    {false, "", {station(6135), group(2422)}, "2406 2440\n"},
    // The same frequency again changes nothing, another one is added.
    {false, "", {group(2412), station(2412)}, "2402 2430\n"},
    {false, "", {group(2412), station(2422)}, "2402 2430\n2406 2440\n"},
    {false, "", {group(2437), group(2412), station(2437)}, "2420 2454\n2402 2430\n2420 2454\n"},
    {false, "", {station(2412), station(-1), station(2412)}, "2402 2430\n"},
    // A chosen frequency without a row clears what we blocked.
    {false, "", {group(2437), group(-1)}, ""},
    {false, "", {group(2437), station(2484)}, ""},
    {false, "", {group(2437), group(5180)}, ""},
    {false, "", {group(2437), group(6135), station(2412)}, "2402 2430\n"},
    {false, "", {station(2412), group(5180), station(-1)}, ""},
    // What others blocked stays until a clear of ours, which removes everything.
    {false, "2480 2482\n", {group(-1), station(-1)}, "2480 2482\n"},
    {false, "2480 2482\n", {group(5180), station(2484)}, "2480 2482\n"},
    {false, "2480 2482\n", {group(2412)}, "2480 2482\n2402 2430\n"},
    {false, "2480 2482\n", {group(2412), group(-1)}, ""},
    {false, "2480 2482\n", {group(2437), group(5180), station(2412)}, "2402 2430\n"},
    // With the mitigation, a channel that has an intermodulation range blocks that too.
    {true, "", {station(2412)}, "2402 2430\n2451 2453\n"},
    {true, "", {station(2422)}, "2406 2440\n"},
    {true, "", {group(2462), station(5180)}, "2444 2476\n2425 2427\n"},
    {true, "", {group(2412), station(2462)}, "2402 2430\n2451 2453\n2444 2476\n2425 2427\n"},
    {true, "", {group(2437), group(2412), station(2484)}, ""},
    {true, "2480 2482\n", {group(2412)}, "2480 2482\n2402 2430\n2451 2453\n"},
    {true, "2480 2482\n", {group(2412), group(5180)}, ""},
};

TEST_F(FrequencyBlockManagerTest, EveryRowOfConnectionsLeavesItsBlocklist) {
    for (size_t row = 0; row < std::size(kBlocklistRows); ++row) {
        const auto& [im3, before, steps, after] = kBlocklistRows[row];
        root_.setProperty("persist.vendor.wifi.im3.mitigation.band2g", im3 ? "true" : "false");
        setBlocklist(before);
        restart();
        for (const Step& step : steps) {
            if (step.who == Step::Station) {
                step.freq == -1 ? stationDisconnected() : stationConnected(step.freq);
            } else {
                step.freq == -1 ? p2pDisconnected() : p2pConnected(step.freq);
            }
        }
        EXPECT_EQ(blocklist(), after) << "row " << row;
        EXPECT_THAT(errors(), IsEmpty()) << "row " << row;
    }
}

// Events.

TEST_F(FrequencyBlockManagerTest, AConnectedStationIsAskedForItsFrequency) {
    start();
    stationConnected(2437);
    EXPECT_EQ(blocklist(), "2420 2454\n");
    EXPECT_THAT(sta_.commands("SIGNAL_POLL"), ElementsAre("SIGNAL_POLL"));
    EXPECT_THAT(
        lines(),
        ElementsAre("I Wi-Fi STA event(CONNECTED)", "D poll signals rssi:-50 freq:2437 (success)",
                    "D STA Freq:-1 newFreq:2437",
                    "I current blocked freq:-1 STA freq:2437 P2P freq:-1", "D chosen new freq:2437",
                    "D ControllerProvider: getting a controller provider",
                    "D ControllerProvider: calling APIs", "D Frequency is blocked by us:0",
                    "I ControllerProvider: channel 6(freq:2420-2454) is blocked"));
    const auto tasks = composition_->tasks();
    const int dispatcher = tasks.at("CoexManager.dispatcher");
    EXPECT_EQ(tasks.at("FrequencyBlockManager.onWifiStaConnected"), dispatcher);
    EXPECT_NE(tasks.at("FrequencyBlockManager.worker"), dispatcher);
}

TEST_F(FrequencyBlockManagerTest, ASignalPollThatFailsChangesNothing) {
    start();
    sta_.fail("SIGNAL_POLL");
    dispatch(CoexEventType::WIFI_STA_CONNECTED, "- ");
    EXPECT_THAT(lines(), ElementsAre("I Wi-Fi STA event(CONNECTED)",
                                     "I failed to send wpa_supplicant command."));
}

TEST_F(FrequencyBlockManagerTest, ASignalPollWithoutAFrequencyChangesNothing) {
    start();
    for (const char* reply : {"RSSI=-50\n", "FREQUENCY=2437\n", "FAIL\n", "RSSI=x\nFREQUENCY=y\n",
                              "RSSI=-50\nFREQUENCY=99999999999\n"}) {
        log_.clear();
        stationConnected(reply);
        const auto all = lines();
        ASSERT_EQ(all.size(), 2U) << reply;
        EXPECT_THAT(all[1], testing::StartsWith("D poll signals rssi:")) << reply;
        EXPECT_THAT(all[1], testing::EndsWith(" (fail)")) << reply;
    }
    EXPECT_EQ(blocklist(), "");
}

TEST_F(FrequencyBlockManagerTest, ADisconnectedStationLeavesTheChoiceToTheGroup) {
    start();
    p2pConnected(5180);
    stationConnected(2462);
    ASSERT_EQ(blocklist(), "2444 2476\n");
    log_.clear();
    stationDisconnected();
    EXPECT_EQ(blocklist(), "");
    EXPECT_THAT(
        lines(),
        ElementsAre("I Wi-Fi STA event(DISCONNECTED bssid=02:00 reason=3)",
                    "I current blocked freq:2462 STA freq:-1 P2P freq:5180",
                    "D chosen new freq:5180", "D ControllerProvider: getting a controller provider",
                    "D ControllerProvider: calling APIs", "D Frequency is blocked by us:1",
                    "I ControllerProvider: 1 ranges are previously blocked",
                    "D ControllerProvider: previously blocked (freq:2444-2476)",
                    "I ControllerProvider: clear all blocked frequencies"));
    EXPECT_TRUE(composition_->ran("FrequencyBlockManager.onWifiStaDisconnected"));
}

TEST_F(FrequencyBlockManagerTest, AGroupTellsItsFrequencyItself) {
    start();
    p2pConnected(2412);
    EXPECT_EQ(blocklist(), "2402 2430\n");
    EXPECT_THAT(sta_.commands("SIGNAL_POLL"), IsEmpty());
    EXPECT_EQ(lines()[0], "I Wi-Fi P2P event(CONNECTED)");
    EXPECT_EQ(lines()[1], "D P2P Freq:-1 newFreq:2412");
    EXPECT_EQ(lines()[2], "I current blocked freq:-1 STA freq:-1 P2P freq:2412");
    log_.clear();
    p2pDisconnected();
    EXPECT_EQ(blocklist(), "");
    EXPECT_EQ(lines()[0], "I Wi-Fi P2P event(DISCONNECTED-p2p-wlan0-0 GO reason=REQUESTED)");
    EXPECT_TRUE(composition_->ran("FrequencyBlockManager.onWifiP2pConnected"));
    EXPECT_TRUE(composition_->ran("FrequencyBlockManager.onWifiP2pDisconnected"));
}

TEST_F(FrequencyBlockManagerTest, AGroupWithoutAFrequencyIsIgnored) {
    start();
    for (const char* event :
         {"p2p-wlan0-0 GO ssid=\"x\"", "p2p-wlan0-0 GO freq=2437", "p2p-wlan0-0 GO freq=x "}) {
        log_.clear();
        dispatch(CoexEventType::WIFI_P2P_CONNECTED, event);
        EXPECT_THAT(lines(), ElementsAre("I Wi-Fi P2P event(CONNECTED)")) << event;
    }
}

TEST_F(FrequencyBlockManagerTest, AGroupsChannelSwitchCountsAndAStationsIsIgnored) {
    start();
    dispatch(CoexEventType::WIFI_P2P_CHANNEL_SWITCH, "freq=2437 ifname=wlan0 width=20");
    EXPECT_THAT(lines(),
                ElementsAre("I Wi-Fi P2P event(CHANNEL-SWITCH freq=2437 ifname=wlan0 width=20)"));
    log_.clear();
    dispatch(CoexEventType::WIFI_P2P_CHANNEL_SWITCH, "freq=2437 ifname=p2p-wlan0-0 width=20");
    EXPECT_EQ(lines()[0],
              "I Wi-Fi P2P event(CHANNEL-SWITCH freq=2437 ifname=p2p-wlan0-0 width=20)");
    EXPECT_EQ(lines()[1], "D P2P Freq:-1 newFreq:2437");
    EXPECT_EQ(blocklist(), "2420 2454\n");
    log_.clear();
    dispatch(CoexEventType::WIFI_P2P_CHANNEL_SWITCH, "freq=2412");
    EXPECT_THAT(lines(), ElementsAre("I Wi-Fi P2P event(CHANNEL-SWITCH freq=2412)",
                                     "W failed to parse freq and ifname."));
    EXPECT_TRUE(composition_->ran("FrequencyBlockManager.onWifiP2pChannelSwitch"));
}

TEST_F(FrequencyBlockManagerTest, AStationsChannelSwitchIsNotSubscribedTo) {
    start();
    dispatch(CoexEventType::WIFI_STA_CHANNEL_SWITCH, "freq=2437 ifname=wlan0 width=20");
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(FrequencyBlockManagerTest, SupplicantEventsReachItThroughTheDispatcher) {
    startP2p();
    start();
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=2472\n");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-CONNECTED - Connection to 02:00 completed");
    settle();
    EXPECT_EQ(blocklist(), "2448 2478\n");
    deliver(NetInterfaceType::STA, "CTRL-EVENT-DISCONNECTED bssid=02:00 reason=3");
    deliver(NetInterfaceType::P2P, "P2P-GROUP-STARTED p2p-wlan0-0 GO ssid=\"x\" freq=2417 x");
    settle();
    EXPECT_EQ(blocklist(), "2402 2434\n");
    deliver(NetInterfaceType::STA,
            "CTRL-EVENT-CHANNEL-SWITCH freq=2422 ifname=p2p-wlan0-0 width=20");
    settle();
    EXPECT_EQ(blocklist(), "2402 2434\n2406 2440\n");
    deliver(NetInterfaceType::P2P, "P2P-GROUP-REMOVED p2p-wlan0-0 GO reason=REQUESTED");
    settle();
    EXPECT_EQ(blocklist(), "");
}

// The blocklist.

TEST_F(FrequencyBlockManagerTest, WithTheStationOn5GhzTheGroupCountsWithItsIm3Range) {
    startWithIm3();
    stationConnected(5180);
    log_.clear();
    p2pConnected(2462);
    EXPECT_EQ(blocklist(), "2444 2476\n2425 2427\n");
    const auto all = lines();
    ASSERT_GE(all.size(), 2U);
    EXPECT_EQ(all[all.size() - 2], "I ControllerProvider: channel 11(freq:2444-2476) is blocked");
    EXPECT_EQ(all.back(),
              "I ControllerProvider: extra IM3 mitigation frequency block range (freq:2425-2427)");
}

TEST_F(FrequencyBlockManagerTest, TheListIsAppendedToAndOnlyAClearRemoves) {
    setBlocklist("2470 2474\n");
    start();
    stationConnected(2412);
    stationConnected(2437);
    log_.clear();
    stationConnected(2412);
    EXPECT_EQ(blocklist(), "2470 2474\n2402 2430\n2420 2454\n2402 2430\n");
    EXPECT_THAT(lines(), testing::IsSupersetOf(
                             {"I ControllerProvider: 3 ranges are previously blocked",
                              "D ControllerProvider: previously blocked (freq:2470-2474)",
                              "D ControllerProvider: previously blocked (freq:2402-2430)",
                              "D ControllerProvider: previously blocked (freq:2420-2454)"}));
    stationDisconnected();
    EXPECT_EQ(blocklist(), "");
}

TEST_F(FrequencyBlockManagerTest, AListThatBeginsWith0IsNotReported) {
    setBlocklist("0 0\n2470 2474\n");
    start();
    stationConnected(2412);
    for (const std::string& line : lines()) {
        EXPECT_THAT(line, testing::Not(testing::HasSubstr("previously blocked")));
    }
    EXPECT_EQ(blocklist(), "0 0\n2470 2474\n2402 2430\n");
}

TEST_F(FrequencyBlockManagerTest, WhatOthersBlockedIsNeverCleared) {
    setBlocklist("2402 2430\n");
    start();
    stationConnected(2484);
    stationDisconnected();
    EXPECT_EQ(blocklist(), "2402 2430\n");
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(FrequencyBlockManagerTest, WhatOthersBlockedAfterOurClearIsNotCleared) {
    start();
    stationConnected(2437);
    stationDisconnected();
    ASSERT_EQ(blocklist(), "");
    setBlocklist("2402 2430\n");
    stationConnected(2484);
    stationDisconnected();
    EXPECT_EQ(blocklist(), "2402 2430\n");
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(FrequencyBlockManagerTest, TheSameFrequencyAgainDoesNothing) {
    start();
    stationConnected(2437);
    log_.clear();
    stationConnected(2437);
    EXPECT_THAT(lines(), ElementsAre("I Wi-Fi STA event(CONNECTED)",
                                     "D poll signals rssi:-50 freq:2437 (success)",
                                     "D STA Freq:2437 newFreq:2437",
                                     "I current blocked freq:2437 STA freq:2437 P2P freq:-1",
                                     "D chosen new freq:2437"));
    EXPECT_EQ(blocklist(), "2420 2454\n");
}

// A provider that is missing, fails or hangs.

struct Failure {
    const char* operation;
    const char* behaviour;
    const char* error;
};

TEST_F(FrequencyBlockManagerTest, TheFrequencyCountsAsBlockedWhateverTheResult) {
    start();
    for (const Failure& failure :
         {Failure{"controller.create", "null", "cannot get controller provider"},
          Failure{"controller.get", "fail",
                  "ControllerProvider: getWirelessFreqBlocklists() failed"},
          Failure{"controller.set", "fail",
                  "ControllerProvider: setWirelessFreqBlocklists() failed"}}) {
        steer(failure.operation, failure.behaviour);
        log_.clear();
        stationConnected(2437);
        EXPECT_THAT(errors(), ElementsAre(std::string("FrequencyBlockManager: ") + failure.error));
        steer(failure.operation, "ok");

        log_.clear();
        stationConnected(2437);  // is not tried again
        EXPECT_EQ(lines().back(), "D chosen new freq:2437");
        EXPECT_EQ(blocklist(), "") << failure.operation;
        stationConnected(2412);  // well again
        EXPECT_EQ(blocklist(), "2402 2430\n") << failure.operation;
        stationDisconnected();
        ASSERT_EQ(blocklist(), "") << failure.operation;
    }
}

TEST_F(FrequencyBlockManagerTest, LastAttemptIsReportedWithWhatWasSentAndHowItEnded) {
    start();
    const auto lastAttempt = [this] {
        return nlohmann::json::parse(manager_->describe().json()).at("lastAttempt");
    };
    EXPECT_EQ(lastAttempt(), nullptr);
    stationConnected(2412);
    EXPECT_EQ(lastAttempt().at("text"), "block 2402 - 2430");
    EXPECT_EQ(lastAttempt().at("outcome"), "ok");
    EXPECT_EQ(lastAttempt().at("reply"), "");
    EXPECT_GE(lastAttempt().at("at").at("agoMs"), 0);

    int channel = 2412;
    for (const auto& [operation, behaviour, reason] : std::vector<std::array<const char*, 3>>{
             {"controller.create", "null", "no controller provider"},
             {"controller.get", "fail", "getWirelessFreqBlocklists() failed"},
             {"controller.set", "fail", "setWirelessFreqBlocklists() failed"}}) {
        steer(operation, behaviour);
        stationConnected(channel += 5);
        EXPECT_EQ(lastAttempt().at("outcome"), "failed");
        EXPECT_EQ(lastAttempt().at("reply"), reason);
        steer(operation, "ok");
    }
    steer("controller.clear", "fail");
    stationDisconnected();
    EXPECT_EQ(lastAttempt().at("text"), "clear");
    EXPECT_EQ(lastAttempt().at("reply"), "clearWirelessFreqBlocklists() failed");

    start(kHangs);
    steer("controller.get", "hang");
    stationConnected(2412);
    EXPECT_EQ(lastAttempt().at("outcome"), "timeout");
    EXPECT_EQ(lastAttempt().at("reply"), "no response");
    EXPECT_GE(lastAttempt().at("durationUs"), 300'000);
}

TEST_F(FrequencyBlockManagerTest, AClearThatFailsLeavesTheBlockOursForTheNextOne) {
    start();
    stationConnected(2437);
    steer("controller.clear", "fail");
    log_.clear();
    stationDisconnected();
    EXPECT_THAT(errors(), ElementsAre("FrequencyBlockManager: "
                                      "ControllerProvider: clearWirelessFreqBlocklists() failed"));
    EXPECT_EQ(blocklist(), "2420 2454\n");
    steer("controller.clear", "ok");
    stationDisconnected();  // chosen is what it was: nothing happens
    EXPECT_EQ(blocklist(), "2420 2454\n");
    stationConnected(5180);  // chosen is the group's, so the same again
    EXPECT_EQ(blocklist(), "2420 2454\n");
    p2pConnected(5180);
    EXPECT_EQ(blocklist(), "");
}

class HangingControllers : public FrequencyBlockManagerTest,
                           public testing::WithParamInterface<const char*> {};

TEST_P(HangingControllers, AreGivenUpAndTheNextEventTriesAgain) {
    const std::string operation = std::string("controller.") + GetParam();
    const bool isClear = operation == "controller.clear";
    start(seconds(2));
    stationConnected(2437);
    ASSERT_EQ(blocklist(), "2420 2454\n");
    const int threads = test::runningThreads();

    steer(operation, "hang");
    log_.clear();
    isClear ? stationDisconnected() : stationConnected(2412);
    EXPECT_THAT(errors(), ElementsAre("FrequencyBlockManager: ControllerProvider: no response"));
    EXPECT_EQ(blocklist(), "2420 2454\n");
    EXPECT_TRUE(test::waitUntil([&] { return test::runningThreads() <= threads; }));

    steer(operation, "ok");
    log_.clear();
    isClear ? stationDisconnected() : stationConnected(2412);
    EXPECT_THAT(lines(), testing::Contains(
                             isClear ? "I current blocked freq:2437 STA freq:-1 P2P freq:-1"
                                     : "I current blocked freq:2437 STA freq:2412 P2P freq:-1"));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(blocklist(), isClear ? "" : "2420 2454\n2402 2430\n");
}

INSTANTIATE_TEST_SUITE_P(FrequencyBlock, HangingControllers,
                         testing::Values("create", "get", "set", "clear"),
                         [](const auto& one) { return std::string(one.param); });

TEST_F(FrequencyBlockManagerTest, AServiceThatHangsIsWaitedForOneSecond) {
    manager_ = std::make_unique<FrequencyBlockManager>(client_);
    steer("controller.create", "hang");
    const auto start = std::chrono::steady_clock::now();
    stationConnected(2437);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, seconds(1));
    EXPECT_LT(took, seconds(10));
    EXPECT_THAT(errors(), ElementsAre("FrequencyBlockManager: ControllerProvider: no response"));
}

TEST_F(FrequencyBlockManagerTest, IfNoThreadStartsTheNextEventTriesAgain) {
    start();
    {
        const test::NoNewThreads limit;
        stationConnected(2437);
    }
    EXPECT_THAT(errors(), ElementsAre("BoundedWorker: Failed to start a thread: " +
                                      test::NoNewThreads::refusal()));
    EXPECT_EQ(blocklist(), "");
    stationConnected(2437);
    EXPECT_EQ(blocklist(), "2420 2454\n");
}

TEST_F(FrequencyBlockManagerTest, TimeOutsInARowLeaveNothingBehind) {
    start(kHangs);
    steer("controller.get", "hang");
    const auto timeOuts = [&] {
        return log_.count(ANDROID_LOG_ERROR,
                          "FrequencyBlockManager: ControllerProvider: no response");
    };
    const auto signal = [&](int count) {
        for (int i = 0; i < count; ++i) {
            coex().signalEvent(CoexEventType::WIFI_P2P_CONNECTED, "freq=2437 ");
        }
        settle();
    };
    const int before = test::runningThreads();
    signal(2);
    EXPECT_TRUE(test::waitUntil([&] { return test::runningThreads() <= before; }));
    const int descriptors = test::openDescriptors();
    signal(20);
    EXPECT_EQ(timeOuts(), 22U);
    EXPECT_TRUE(test::waitUntil([&] { return test::runningThreads() <= before; }))
        << test::runningThreads() - before << " threads are left";
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(FrequencyBlockManagerTest, AWorkerThatWasGivenUpMayOutliveTheManagerAndTheClient) {
    start(kHangs);
    steer("controller.get", "hang");
    p2pConnected(2437);
    manager_.reset();
    const std::weak_ptr<CorvidWifiClient> client = client_;
    composition_->coex.reset();
    client_->setCompositionRoot(nullptr);
    client_.reset();
    EXPECT_TRUE(client.expired()) << "a hung call keeps the client";
    client_ = std::make_shared<CorvidWifiClient>(root_.socketDirectory());
}

TEST_F(FrequencyBlockManagerTest, DestructionWaitsForTheEventThatItHandles) {
    for (int i = 0; i < 20; ++i) {
        start();
        std::atomic<bool> asked{false};
        sta_.socket().answerCommands([&](const std::string&) {
            asked = true;
            std::this_thread::sleep_for(milliseconds(20));
            return "RSSI=-50\nFREQUENCY=2437\n";
        });
        log_.clear();
        coex().signalEvent(CoexEventType::WIFI_STA_CONNECTED, "- ");
        ASSERT_TRUE(test::waitUntil([&] { return asked.load(); }));
        manager_.reset();
        EXPECT_EQ(log_.count(ANDROID_LOG_DEBUG, "FrequencyBlockManager: chosen new freq:2437"), 1U);
    }
}

// The rest.

TEST_F(FrequencyBlockManagerTest, TheDumpShowsTheSwitchAndWhatTheServiceHas) {
    start();
    EXPECT_EQ(dump(), "\tIM3 Mitigation (Band 2G): 0\n");
    setBlocklist("2444 2476\n2425 2427\n");
    log_.clear();
    EXPECT_EQ(dump(),
              "\tIM3 Mitigation (Band 2G): 0\n"
              "\tFrequency blocklist 0 (mhz): [2444 - 2476]\n"
              "\tFrequency blocklist 1 (mhz): [2425 - 2427]\n");
    EXPECT_THAT(lines(),
                ElementsAre("D ControllerProvider: getting a controller provider",
                            "D ControllerProvider: calling APIs", "D Frequency is blocked by us:0",
                            "I ControllerProvider: 2 ranges are blocked",
                            "D ControllerProvider: blocked (freq:2444-2476)",
                            "D ControllerProvider: blocked (freq:2425-2427)"));
    startWithIm3();
    steer("controller.get", "fail");
    EXPECT_EQ(dump(), "\tIM3 Mitigation (Band 2G): 1\n");
    steer("controller.create", "null");
    EXPECT_EQ(dump(), "\tIM3 Mitigation (Band 2G): 1\n");
    EXPECT_THAT(errors(), ElementsAre("FrequencyBlockManager: "
                                      "ControllerProvider: getWirelessFreqBlocklists() failed",
                                      "FrequencyBlockManager: cannot get controller provider"));
}

TEST_F(FrequencyBlockManagerTest, Im3IsReadOnce) {
    start();
    root_.setProperty("persist.vendor.wifi.im3.mitigation.band2g", "true");
    stationConnected(2412);
    EXPECT_EQ(blocklist(), "2402 2430\n");
}

TEST_F(FrequencyBlockManagerTest, OneManagersEndLeavesAnothersSubscriptionsAlone) {
    FrequencyBlockManager other(client_);
    start();
    manager_.reset();
    p2pConnected(2437);
    EXPECT_EQ(blocklist(), "2420 2454\n");
}

TEST_F(FrequencyBlockManagerTest, WithoutADispatcherItIsIdle) {
    composition_->coex.reset();
    start();
    EXPECT_EQ(dump(), "\tIM3 Mitigation (Band 2G): 0\n");
}

TEST_F(FrequencyBlockManagerTest, WithoutAClientItSubscribesToNothing) {
    FrequencyBlockManager manager(nullptr);
    p2pConnected(2437);
    EXPECT_EQ(blocklist(), "");
}

}  // namespace

}  // namespace Ursa::OS::Wifi
