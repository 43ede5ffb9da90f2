// The station's link as the daemon reports it: atoms, records and the log.

#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/component/Features.h"
#include "tests/component/Headset.h"

using namespace std::chrono_literals;
using component::Headset;
using component::LogLine;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/** An atom's line without its time, which is checked to be `now` in 32 bits of milliseconds. */
std::string withoutTime(const std::string& atom, std::chrono::system_clock::time_point now) {
    const std::string before = "\"values\":[{\"int\":";
    const size_t begin = atom.find(before) + before.size();
    const size_t end = atom.find('}', begin);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    const auto expected = static_cast<int32_t>(static_cast<uint32_t>(milliseconds));
    const int32_t age = expected - std::stoi(atom.substr(begin, end - begin));
    EXPECT_GE(age, -1000) << atom;
    EXPECT_LT(age, 120'000) << atom;
    return atom.substr(0, begin) + "TIME" + atom.substr(end);
}

std::string staAtom(const std::string& name, int frequency, int rssi) {
    return "{\"reverseDomainName\":\"com.corvid.os\",\"atomId\":116183,\"values\":[{\"int\":TIME},"
           "{\"string\":\"" +
           name + "\"},{\"int\":" + std::to_string(frequency) +
           "},{\"int\":" + std::to_string(rssi) + "}]}";
}

class Station : public testing::Test {
  protected:
    void SetUp() override {
        headset_.playAll({"stats start", "supplicant start"});
        headset_.startDaemon();
        headset_.expectConnection();
        headset_.settle();
        headset_.forget();
    }

    std::vector<std::string> atoms() {
        headset_.settle();
        // The daemon's report has been answered, so the line is in the file.
        headset_.play("state");
        std::vector<std::string> lines;
        for (const auto& record : headset_.sim().records("atom")) {
            lines.push_back(withoutTime(record.text(), std::chrono::system_clock::now()));
        }
        return lines;
    }

    Headset headset_;
};

TEST_F(Station, ConnectionSwitchAndDisconnectionAreReportedAsAtoms) {
    headset_.play("connect freq=5180 width=80 rssi=-48");
    headset_.expectRecord("atom", "WIFI_STA_CONNECTED");
    headset_.playAll({"rssi -61", "channel switch freq=5745 width=80"});
    headset_.expectRecord("atom", "WIFI_STA_CHANNEL_SWITCH");
    headset_.play("disconnect");
    headset_.expectRecord("atom", "WIFI_STA_DISCONNECTED");
    EXPECT_THAT(atoms(), ElementsAre(staAtom("WIFI_STA_CONNECTED", 5180, -48),
                                     staAtom("WIFI_STA_CHANNEL_SWITCH", 5745, -61),
                                     staAtom("WIFI_STA_DISCONNECTED", -1, -1)));
    headset_.expectLog("I", "TelemetryEventLogger: Report STA Manager event: freq:5180 rssi:-48");
    headset_.expectLog("I",
                       "TelemetryEventLogger: Reporting vendor atom 116183 to telemetry service");
    EXPECT_THAT(headset_.log("StaManager: STA event"),
                ElementsAre(LogLine{"I", "StaManager: STA event(CONNECTED)"},
                            LogLine{"I",
                                    "StaManager: STA event(CHANNEL_SWITCH-freq=5745 "
                                    "ifname=wlan0 width=80)"},
                            LogLine{"I",
                                    "StaManager: STA event(DISCONNECTED-bssid="
                                    "02:00:00:00:01:00 reason=3 locally_generated=1)"}));
}

TEST_F(Station, AnAtomOfAPollThatFailedHasNoValues) {
    headset_.playAll({"reply SIGNAL_POLL fail times=1", "connect freq=5180"});
    headset_.expectRecord("atom", "WIFI_STA_CONNECTED");
    EXPECT_THAT(atoms(), ElementsAre(staAtom("WIFI_STA_CONNECTED", -1, -1)));
}

TEST_F(Station, WithoutAStatisticsServiceTheLinkIsFollowedAllTheSame) {
    headset_.playAll({"stats stop", "connect freq=5180 rssi=-48"});
    headset_.expectLog("E", "TelemetryEventLogger: Stats HAL is unavailable!");
    EXPECT_THAT(headset_.call("getStaInfo").output, HasSubstr("\"frequency\":5180"));
    // It is looked for anew each time.
    headset_.playAll({"stats start", "disconnect"});
    headset_.expectRecord("atom", "WIFI_STA_DISCONNECTED");
}

TEST_F(Station, AStatisticsServiceThatCrashedIsFoundAgain) {
    headset_.playAll({"stats crash", "connect freq=5180", "stats start", "disconnect"});
    headset_.expectRecord("atom", "WIFI_STA_DISCONNECTED");
}

TEST_F(Station, ConnectedItIsSampledEveryFiveSeconds) {
    headset_.play("connect freq=5180 rssi=-48");
    // One poll by the handler, the worker's after 5 s and 10 s.
    headset_.expectRecords(3, "command", "wlan0 SIGNAL_POLL");
    std::vector<double> times;
    for (const auto& record : headset_.sim().records("command")) {
        times.push_back(record.t());
    }
    ASSERT_THAT(times, SizeIs(3));
    EXPECT_GE(times[1] - times[0], 4.9);
    EXPECT_GE(times[2] - times[1], 4.9);
    EXPECT_EQ(headset_.daemonFigures().threads(), 3u);
    const auto begin = std::chrono::steady_clock::now();
    headset_.play("disconnect");
    headset_.settle();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s) << "the worker ends within a second";
    EXPECT_EQ(headset_.daemonFigures().threads(), 2u);
}

TEST_F(Station, HalfAReplyGivesTheHalfThatIsThere) {
    headset_.playAll({"connect freq=5180", "reply SIGNAL_POLL \"RSSI=-55\\nNOISE=-90\\n\""});
    EXPECT_EQ(headset_.call("getStaInfo").output,
              "{\"frequency\":-1,\"rssi\":-55,\"bandwidth\":0}");
    headset_.expectLog("E",
                       "StaManager: failed to parse frequency and RSSI from SIGNAL_POLL response");
    headset_.play("reply SIGNAL_POLL \"RSSI_EXTRA=3\\nFREQUENCY=5200\\n\"");
    EXPECT_EQ(headset_.call("getStaInfo").output,
              "{\"frequency\":5200,\"rssi\":-1,\"bandwidth\":0}");
}

TEST(Telemetry, ListenerLogsWhatItIsToldAndReportsNothing) {
    Headset headset;
    headset.playAll({component::switchOn("telemetry.enable"), "stats start", "supplicant start"});
    headset.startDaemon();
    headset.expectConnection();
    headset.settle();
    headset.forget();
    headset.playAll({"connect freq=5180", "channel switch freq=5745 width=20"});
    headset.settle();
    headset.play("state");
    EXPECT_THAT(headset.log("TelemetryManager: "),
                ElementsAre(LogLine{"I",
                                    "TelemetryManager: STA event(CONNECTED)/(CHANNEL_SWITCH) "
                                    "- Connection to 02:00:00:00:01:00 completed [id=0 "
                                    "id_str=]"},
                            LogLine{"I",
                                    "TelemetryManager: STA event(CONNECTED)/(CHANNEL_SWITCH) "
                                    "freq=5745 ifname=wlan0 width=20"}));
    // Those of the station manager.
    EXPECT_EQ(headset.count("atom", "116183"), 2u);
}

}  // namespace
