// Controllers and cameras that keep clear of the Wi-Fi channel, and a sensor service that hangs.

#include <chrono>
#include <iostream>
#include <string>

#include <android-base/file.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/component/Headset.h"

using namespace std::chrono_literals;
using component::Headset;
using component::LogLine;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Coexistence : public testing::Test {
  protected:
    Coexistence() {
        headset_.playAll({"stats start", "property persist.vendor.wifi.frequency.block.enable true",
                          "property persist.vendor.wifi.mipiclock.enable true"});
    }

    void start() {
        headset_.play("supplicant start");
        headset_.startDaemon();
        headset_.expectConnection();
        headset_.forget();
    }

    /** Plays a line, and waits until the sensor library's file has become this. */
    void playUntil(const std::string& line, const std::string& sensors) {
        headset_.forget();
        headset_.play(line);
        headset_.expectRecord("sensors", sensors);
    }
    void playUntilLogged(const std::string& line, const std::string& level,
                         const std::string& text) {
        headset_.forget();
        headset_.play(line);
        headset_.expectLog(level, text);
    }

    std::string sensorFile(const std::string& name) {
        std::string content;
        android::base::ReadFileToString(headset_.root() + "/data/vendor/sensors/" + name, &content);
        return content;
    }
    std::string blocklist() { return sensorFile("controller_blocklist"); }
    std::string clocks() { return sensorFile("camera_clock"); }

    Headset headset_;
};

TEST_F(Coexistence, FollowsTheStation) {
    headset_.play("property persist.vendor.wifi.im3.mitigation.band2g true");
    start();
    playUntil("connect freq=2462 rssi=-50", "camera_clock: worldTracking 0");
    headset_.expectRecord("sensors", "controller_blocklist: 2444 2476, 2425 2427");
    EXPECT_THAT(headset_.dump(), HasSubstr("FrequencyBlockManager: Enabled\n"
                                           "\tIM3 Mitigation (Band 2G): 1\n"
                                           "\tFrequency blocklist 0 (mhz): [2444 - 2476]\n"
                                           "\tFrequency blocklist 1 (mhz): [2425 - 2427]\n"));
    EXPECT_THAT(headset_.dump(),
                HasSubstr("MipiClockManager: Enabled\n\tMIPI Clock is set to 384 mhz\n"));

    playUntil("channel switch freq=5745 width=80", "camera_clock: worldTracking 1");
    headset_.expectLog("D", "Process event WIFI_P2P_CHANNEL_SWITCH (5)");
    EXPECT_THAT(
        headset_.log("Process event"),
        ElementsAre(LogLine{"D", "CoexManager: Process event WIFI_STA_CHANNEL_SWITCH (2)"},
                    LogLine{"D", "CoexManager: Process event WIFI_P2P_CHANNEL_SWITCH (5)"}));
    EXPECT_EQ(blocklist(), "2444 2476\n2425 2427\n") << "a station's switch does not move it";

    playUntil("disconnect", "controller_blocklist: empty");
    EXPECT_EQ(clocks(), "worldTracking 0\nworldTracking 1\n");
    headset_.expectLog("I", "MipiClockManager: Wi-Fi STA event(DISCONNECTED");
    EXPECT_THAT(headset_.dump(), HasSubstr("\tMIPI Clock is set to 398 mhz\n"));
}

TEST_F(Coexistence, FollowsTheGroup) {
    start();
    playUntil("p2p start freq=2412", "controller_blocklist: 2402 2430");
    EXPECT_EQ(clocks(), "") << "no station has set a clock yet";
    playUntil("connect freq=5745 width=80 rssi=-50", "camera_clock: worldTracking 1");
    EXPECT_EQ(blocklist(), "2402 2430\n") << "the station is on 5 GHz";
    playUntil("p2p switch freq=2437", "controller_blocklist: 2402 2430, 2420 2454");
    headset_.expectRecord("sensors", "camera_clock: worldTracking 1");
    EXPECT_EQ(clocks(), "worldTracking 1\nworldTracking 1\n") << "the last one is sent again";
    playUntil("p2p switch freq=5180 width=80", "controller_blocklist: empty");
    playUntil("p2p switch freq=2462", "controller_blocklist: 2444 2476");
    playUntil("p2p stop", "controller_blocklist: empty");
}

TEST_F(Coexistence, ALostSocketIsADisconnection) {
    start();
    playUntil("connect freq=2437 rssi=-50", "controller_blocklist: 2420 2454");
    playUntil("event wlan0 \"CTRL-EVENT-TERMINATING \"", "controller_blocklist: empty");
    EXPECT_THAT(headset_.log("Process event"),
                ElementsAre(LogLine{"D", "CoexManager: Process event WIFI_STA_DISCONNECTED (1)"}));
}

TEST_F(Coexistence, ReportsTheClocksThatTheCamerasTookAndThoseThatTheyDidNot) {
    start();
    headset_.play("connect freq=5180 width=80 rssi=-50");
    headset_.expectRecord("atom", R"("atomId":119925)");
    headset_.expectRecord("atom", R"({"string":"MIPI_CLOCK_EVENT"},{"int":1},{"int":0}])");
    headset_.play("sensors camera.create null");
    headset_.play("channel switch freq=5745 width=80");
    headset_.expectRecord("atom", R"({"string":"MIPI_CLOCK_EVENT"},{"int":0},{"int":1}])");
}

TEST_F(Coexistence, ControllersThatAreMissingFailOrHangAreWellAgainAtTheNextEvent) {
    start();
    playUntil("connect freq=5180 width=80 rssi=-50", "camera_clock: worldTracking 0");
    const size_t threads = headset_.daemonFigures().threads();
    const struct {
        const char* operation;
        const char* behaviour;
        const char* error;
    } troubles[] = {
        {"controller.create", "null", "cannot get controller provider"},
        {"controller.get", "fail", "getWirelessFreqBlocklists() failed"},
        {"controller.set", "fail", "setWirelessFreqBlocklists() failed"},
        {"controller.create", "hang", "ControllerProvider: no response"},
        {"controller.get", "hang", "ControllerProvider: no response"},
        {"controller.set", "hang", "ControllerProvider: no response"},
    };
    for (const auto& trouble : troubles) {
        SCOPED_TRACE(std::string(trouble.operation) + " " + trouble.behaviour);
        headset_.play(std::string("sensors ") + trouble.operation + " " + trouble.behaviour);
        playUntilLogged("p2p start freq=2412", "E", trouble.error);
        EXPECT_EQ(blocklist(), "");
        headset_.play(std::string("sensors ") + trouble.operation + " ok");
        playUntil("p2p switch freq=2437", "controller_blocklist: 2420 2454");
        playUntil("p2p stop", "controller_blocklist: empty");
        headset_.expectLog("I", "Wpa socket for P2P (p2p-wlan0-0) is deleted");
    }
    const struct {
        const char* behaviour;
        const char* error;
        const char* nextEvent;
    } clears[] = {
        {"fail", "clearWirelessFreqBlocklists() failed", "p2p switch freq=5745 width=80"},
        {"hang", "ControllerProvider: no response", "p2p switch freq=5180 width=80"},
    };
    playUntilLogged("disconnect", "I", "FrequencyBlockManager: Wi-Fi STA event(DISCONNECTED");
    playUntilLogged("p2p start freq=5180 width=80", "D", "chosen new freq:5180");
    for (const auto& clear : clears) {
        SCOPED_TRACE(std::string("clear ") + clear.behaviour);
        playUntil("connect freq=2412 rssi=-50", "controller_blocklist: 2402 2430");
        headset_.play(std::string("sensors controller.clear ") + clear.behaviour);
        playUntilLogged("disconnect", "E", clear.error);
        EXPECT_EQ(blocklist(), "2402 2430\n");
        headset_.play("sensors controller.clear ok");
        playUntil(clear.nextEvent, "controller_blocklist: empty");
    }
    EXPECT_LE(headset_.daemonFigures().threads(), threads);
}

TEST_F(Coexistence, CamerasThatAreMissingAreWellAgainAtTheNextEvent) {
    start();
    headset_.play("sensors camera.create null");
    playUntilLogged("connect freq=5745 width=80 rssi=-50", "E", "notification failed 5 times");
    EXPECT_EQ(headset_.log("cannot get camera provider", "E").size(), 5U);
    EXPECT_EQ(clocks(), "");
    headset_.play("sensors camera.create ok");
    headset_.play("disconnect");
    playUntil("connect freq=5745 width=80 rssi=-50", "camera_clock: worldTracking 1");
}

/** Both points of hanging, each five times 2 s. */
TEST_F(Coexistence, CamerasThatHangAreGivenUpFiveTimesAndWellAgainAtTheNextEvent) {
    start();
    headset_.settle();
    const size_t threads = headset_.daemonFigures().threads();
    std::string expected;
    for (const char* operation : {"camera.create", "camera.notify"}) {
        SCOPED_TRACE(operation);
        headset_.play(std::string("sensors ") + operation + " hang");
        playUntilLogged("connect freq=5745 width=80 rssi=-50", "E", "notification failed 5 times");
        EXPECT_EQ(headset_.log("CameraProvider: no response", "E").size(), 5U);
        EXPECT_EQ(headset_.log("CameraProvider: killing woker", "D").size(), 5U);
        EXPECT_EQ(clocks(), expected);
        headset_.play(std::string("sensors ") + operation + " ok");
        headset_.play("disconnect");
        playUntil("connect freq=5745 width=80 rssi=-50", "camera_clock: worldTracking 1");
        playUntil("channel switch freq=5180 width=80", "camera_clock: worldTracking 0");
        expected = "worldTracking 1\nworldTracking 0\n";
        playUntilLogged("disconnect", "I", "MipiClockManager: Wi-Fi STA event(DISCONNECTED");
    }
    headset_.settle();
    EXPECT_LE(headset_.daemonFigures().threads(), threads + 1) << "the station's worker, at most";
}

TEST_F(Coexistence, ACameraThatHangsDoesNotDelayAStationsPowerCommand) {
    headset_.play("property persist.vendor.wifi.txpower.enable.sta true");
    start();
    headset_.play("connect freq=5180 width=80 rssi=-45");
    headset_.expectRecord("command", "wlan0 DRIVER SET_TXPOWER 5");  // at the second sample
    ASSERT_EQ(clocks(), "worldTracking 0\n");

    headset_.play("sensors camera.notify hang");
    playUntilLogged("event wlan0 CTRL-EVENT-CHANNEL-SWITCH freq=5180 ifname=p2p-wlan0-0 width=80",
                    "D", "(1/5) notify new clock:0");
    headset_.play("disconnect");
    const auto disconnected = headset_.expectRecord("event", "CTRL-EVENT-DISCONNECTED");
    const auto command = headset_.expectRecord("command", "wlan0 DRIVER SET_TXPOWER 20");
    std::cout << "the power command came " << (command.t() - disconnected.t()) * 1000
              << " ms after the disconnection, while the camera hung\n";
    EXPECT_GE(command.t(), disconnected.t());
    EXPECT_THAT(headset_.log("notification failed"), IsEmpty());
    headset_.expectLog("E", "notification failed 5 times");
    const auto records = headset_.sim().records("log");
    double failed = 0;
    for (const auto& record : records) {
        failed =
            record.text().find("notification failed") != std::string::npos ? record.t() : failed;
    }
    EXPECT_LT(command.t() + 2, failed) << "the cameras were waited for about 10 s";
}

TEST_F(Coexistence, OnlyTheSubscribersThatAreSwitchedOnExist) {
    headset_.play("property persist.vendor.wifi.mipiclock.enable false");
    start();
    playUntil("connect freq=2437 rssi=-50", "controller_blocklist: 2420 2454");
    EXPECT_THAT(headset_.dump(), HasSubstr("MipiClockManager: Disabled\n"));
    EXPECT_THAT(headset_.log("MipiClockManager: Wi-Fi"), IsEmpty());
    EXPECT_EQ(clocks(), "");
}

TEST_F(Coexistence, AFailedRegistrationEndsTheDispatcherAndTheProcessWithStatus1) {
    headset_.playAll({"supplicant start", "folder hwbinder remove"});
    EXPECT_EQ(headset_.runDaemonToItsEnd(), 1);
}

}  // namespace
