// What status, props and history make of the service's report, and how the causes of trouble are
// told.

#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/Print.h"
#include "tools/Report.h"
#include "tools/ReportWords.h"
#include "tools/Troubles.h"

using namespace ::Ursa::OS::Wifi::Tools;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

const std::map<std::string, std::string> kNoProperties;

Json momentOf(int64_t agoMs) {
    return {{"agoMs", agoMs}, {"monotonicMs", 1000}, {"wallMs", 1763794378042}};
}

/** The report of a headset that is well: connected, its power set. */
Json wellReport() {
    const Json feature = {{"enabled", true},
                          {"switches", Json::array()},
                          {"state", Json::object()},
                          {"running", nullptr},
                          {"lastCommand", nullptr}};
    Json sta = feature;
    sta["state"] = {
        {"link", "up"}, {"frequency", 5180}, {"rssi", -45}, {"sampledAt", momentOf(1200)}};
    sta["running"] = {{"task", "StaManager.worker"}, {"since", momentOf(600'000)}};
    Json power = feature;
    power["switches"] = {"persist.vendor.wifi.txpower.enable.sta"};
    power["state"] = {{"mode", "steps"}, {"staPower", 9}, {"p2pPower", nullptr}};
    power["lastCommand"] = {{"at", momentOf(700)},
                            {"text", "DRIVER SET_TXPOWER 9"},
                            {"outcome", "ok"},
                            {"reply", "OK"}};
    Json off = feature;
    off["enabled"] = false;
    off["switches"] = {"persist.vendor.wifi.cmd.cs.p2p.corvid",
                       "persist.vendor.wifi.cmd.cs.p2p.ecsa"};
    off["state"] = nullptr;
    return {{"schema", 1},
            {"build", {{"version", "1.0.0"}, {"commit", "abc"}, {"platform", "host"}}},
            {"process", {{"pid", 131}, {"uptimeMs", 53'211}}},
            {"sta", {{"StaManager", sta}}},
            {"p2p", {{"ChannelSwitchManager", off}}},
            {"power", {{"TxPowerManager", power}}},
            {"coex", Json::object()},
            {"sockets",
             {{"directory", "/data/vendor/wifi/wpa/sockets/"},
              {"sockets",
               {{{"interface", "STA"},
                 {"path", "/data/vendor/wifi/wpa/sockets/wlan0"},
                 {"state", "Connected"},
                 {"since", momentOf(50'000)},
                 {"attempts", 1},
                 {"lastError", nullptr},
                 {"commands", 20},
                 {"timeouts", 0},
                 {"pending", nullptr}}}}}},
            {"netlink", {{"failures", Json::array()}, {"pending", nullptr}}},
            {"clients", Json::array()},
            {"properties",
             {{{"name", "persist.vendor.wifi.txpower.dbm.upper"},
               {"type", "unsigned"},
               {"default", 20},
               {"set", nullptr},
               {"value", 20},
               {"origin", "default"},
               {"takesEffect", "at restart"},
               {"inForce", 20}},
              {{"name", "persist.vendor.wifi.txpower.enable.sta"},
               {"type", "bool"},
               {"default", false},
               {"set", "true"},
               {"value", true},
               {"origin", "set"},
               {"takesEffect", "at restart"},
               {"inForce", true}}}}};
}

TEST(Troubles, HeadsetThatIsWellHasNone) {
    EXPECT_THAT(troublesOf(wellReport(), kNoProperties), IsEmpty());
}

TEST(Troubles, CommandThatWaitsTooLongMeansASupplicantThatDoesNotAnswer) {
    Json report = wellReport();
    Json& socket = report["sockets"]["sockets"][0];
    socket["pending"] = {{"text", "SIGNAL_POLL"}, {"durationUs", 3'200'000}};
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("the supplicant does not answer on wlan0: SIGNAL_POLL waits for 3.2 s "
                            "(stopped, or busy)"));
    socket["pending"]["durationUs"] = 900'000;
    EXPECT_THAT(troublesOf(report, kNoProperties), IsEmpty()) << "it may still come";
    socket["pending"] = nullptr;
    socket["timeouts"] = 2;
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("the supplicant did not answer 2 of 20 commands on wlan0 (stopped, or "
                            "busy)"));
}

TEST(Troubles, SocketThatNobodyListensOnIsNamedWithItsAttempts) {
    Json report = wellReport();
    Json& socket = report["sockets"]["sockets"][0];
    socket["state"] = "Connecting";
    socket["attempts"] = 58;
    socket["since"] = momentOf(3000);
    socket["lastError"] = {{"text", "Failed to open."}, {"at", momentOf(20)}};
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("no supplicant behind /data/vendor/wifi/wpa/sockets/wlan0: 58 attempts "
                            "in 3.0 s, Failed to open. (a socket file left by a crash?)"));
}

TEST(Troubles, SupplicantThatNoLongerTakesCommandsIsNamedWithTheLastOne) {
    Json report = wellReport();
    report["sockets"]["sockets"][0]["failures"] = 2;
    EXPECT_THAT(troublesOf(report, kNoProperties), IsEmpty()) << "it may be well again";
    Json& command = report["sta"]["StaManager"]["lastCommand"];
    command = {{"at", momentOf(3500)},  {"interface", "STA"},    {"channel", "supplicant"},
               {"text", "SIGNAL_POLL"}, {"outcome", "not-sent"}, {"reply", "ERROR: SEND-RECV"}};
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("the supplicant on wlan0 is gone: SIGNAL_POLL was not sent 3.5 s ago, "
                            "2 of 20 commands failed (a crash?)"));
    for (const char* outcome : {"failed", "not-connected"}) {
        command["outcome"] = outcome;
        EXPECT_THAT(troublesOf(report, kNoProperties),
                    ElementsAre(HasSubstr("the supplicant on wlan0 is gone: SIGNAL_POLL ")));
    }
    Json answered = command;
    answered["outcome"] = "ok";
    answered["at"]["monotonicMs"] = 1001;
    report["power"]["TxPowerManager"]["lastCommand"] = answered;
    EXPECT_THAT(troublesOf(report, kNoProperties), IsEmpty()) << "a later one was answered";
}

TEST(Troubles, CommandThatFailedBeforeTheSocketWasConnectedIsNoTrouble) {
    Json report = wellReport();
    report["sockets"]["sockets"][0]["failures"] = 1;
    report["sockets"]["sockets"][0]["since"]["monotonicMs"] = 1001;
    report["sta"]["StaManager"]["lastCommand"] = {
        {"at", momentOf(3500)},  {"interface", "STA"},         {"channel", "supplicant"},
        {"text", "SIGNAL_POLL"}, {"outcome", "not-connected"}, {"reply", ""}};
    EXPECT_THAT(troublesOf(report, kNoProperties), IsEmpty());
}

TEST(Troubles, SocketThatWasGivenUpIsNamedWithItsLastError) {
    Json report = wellReport();
    Json& socket = report["sockets"]["sockets"][0];
    socket["state"] = "Stopped";
    socket["since"] = momentOf(12'000);
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("nobody answers behind /data/vendor/wifi/wpa/sockets/wlan0: given up "
                            "12 s ago"));
    socket["lastError"] = {{"text", "Failed to open."}, {"at", momentOf(12'020)}};
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("nobody answers behind /data/vendor/wifi/wpa/sockets/wlan0: given up "
                            "12 s ago, last error: Failed to open."));
}

TEST(Troubles, NoSocketAtAllMeansNoSupplicant) {
    Json report = wellReport();
    report["sockets"]["sockets"][0]["state"] = "Stopped";
    report["sockets"]["sockets"][0]["path"] = nullptr;
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("no supplicant: there is no socket of a station interface in "
                            "/data/vendor/wifi/wpa/sockets/"));
}

TEST(Troubles, SocketIsNamedByItsFileOrElseByItsInterface) {
    EXPECT_EQ(nameOf({{"path", "/data/vendor/wifi/wpa/sockets/wlan0"}}), "wlan0");
    EXPECT_EQ(nameOf({{"path", "wlan1"}}), "wlan1");
    EXPECT_EQ(nameOf({{"path", ""}, {"interface", "STA"}}), "STA");
}

TEST(Troubles, ClientThatHangsIsNamedByItsProcess) {
    Json report = wellReport();
    report["clients"] = {{{"pid", 412},
                          {"slowestUs", 900},
                          {"slowestMethod", "onAssocStarted"},
                          {"current", {{"method", "onChannelSwitch"}, {"since", momentOf(5000)}}}}};
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("the client with process id 412 hangs: it has been in onChannelSwitch "
                            "for 5.0 s, and events wait behind it"));
    report["clients"][0]["current"] = nullptr;
    EXPECT_THAT(troublesOf(report, kNoProperties), IsEmpty());
    report["clients"][0]["slowestUs"] = 2'500'000;
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("the client with process id 412 is slow: it took 2.5 s in "
                            "onAssocStarted"));
}

TEST(Troubles, RefusedCommandIsNamedWithItsAnswer) {
    Json report = wellReport();
    report["power"]["TxPowerManager"]["lastCommand"]["reply"] = "FAIL";
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("the driver refused what TxPowerManager sent 0.7 s ago: DRIVER "
                            "SET_TXPOWER 9 -> FAIL"));
}

TEST(Troubles, SensorServicesThatDoNotAnswerAreNamed) {
    Json report = wellReport();
    Json block = report["power"]["TxPowerManager"];
    block["lastCommand"] = nullptr;
    block["state"] = {{"lastResult", "no response"}, {"at", momentOf(4500)}};
    Json clock = block;
    clock["state"] = {{"clock", nullptr}, {"attemptsFailed", 1}};
    clock["running"] = {{"task", "MipiClockManager.worker"}, {"since", momentOf(1900)}};
    report["coex"] = {{"FrequencyBlockManager", block}, {"MipiClockManager", clock}};
    EXPECT_THAT(
        troublesOf(report, kNoProperties),
        ElementsAre("the controllers' sensor service does not respond (FrequencyBlockManager, "
                    "4.5 s ago)",
                    "the cameras' sensor service does not take the clock (MipiClockManager, 1 "
                    "attempt)",
                    "MipiClockManager.worker has been running for 1.9 s"));
}

TEST(Troubles, KernelsRefusalsAndSilenceAreNamed) {
    Json report = wellReport();
    report["netlink"]["failures"] = {{{"code", -95},
                                      {"text", "Operation not supported"},
                                      {"count", 2},
                                      {"last", momentOf(12'000)}}};
    report["netlink"]["pending"] = {{"text", "vendor 0x001018/2"}, {"since", momentOf(2000)}};
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("the kernel does not answer: vendor 0x001018/2 waits for 2.0 s",
                            "the kernel refused 2 nl80211 requests: Operation not supported, last "
                            "12 s ago"));
}

TEST(Troubles, MistypedPropertiesAreNamedWithWhatWasMeant) {
    Json report = wellReport();
    report["properties"][0]["set"] = "20dBm";
    report["properties"][0]["origin"] = "malformed: default used";
    report["properties"][1]["inForce"] = false;
    EXPECT_THAT(
        troublesOf(report, {{"persist.vendor.wifi.txpower.enabel.sta", "true"},
                            {"persist.vendor.wifi.txpower.enable.sta", "true"},
                            {"log.tag.CorvidWifi", "V"}}),
        ElementsAre("persist.vendor.wifi.txpower.dbm.upper is set to \"20dBm\", which is no "
                    "unsigned: the daemon takes its default 20",
                    "persist.vendor.wifi.txpower.enable.sta is set to true, but false is in force "
                    "until the daemon restarts",
                    "the daemon has no property persist.vendor.wifi.txpower.enabel.sta, which is "
                    "set to \"true\" (did you mean \"persist.vendor.wifi.txpower.enable.sta\"?)"));
}

TEST(Troubles, ValueOutOfRangeIsNamedWithWhatTheDaemonDoesWithIt) {
    Json report = wellReport();
    report["properties"][0].update({{"set", "200"},
                                    {"value", 200},
                                    {"inForce", 200},
                                    {"origin", "set"},
                                    {"lowest", 0},
                                    {"highest", 60},
                                    {"otherwise", "it sends it to the driver"}});
    EXPECT_THAT(troublesOf(report, kNoProperties),
                ElementsAre("persist.vendor.wifi.txpower.dbm.upper is 200, not a whole number from "
                            "0 to 60; the daemon checks only the type: it sends it to the driver"));
}

TEST(Refusal, FeatureThatIsOffIsNamedWithItsSwitches) {
    EXPECT_EQ(whyRefused(wellReport(), "startCsa", 1000),
              "ChannelSwitchManager is off: set persist.vendor.wifi.cmd.cs.p2p.corvid or "
              "persist.vendor.wifi.cmd.cs.p2p.ecsa and restart");
}

TEST(Refusal, AnswerOfTheDriverIsTold) {
    Json report = wellReport();
    report["power"]["TxPowerManager"]["lastCommand"]["reply"] = "FAIL";
    EXPECT_EQ(whyRefused(report, "updateTxPowerConfig", 1000),
              "TxPowerManager sent \"DRIVER SET_TXPOWER 9\": the answer was \"FAIL\"");
}

TEST(Refusal, CommandFromBeforeTheCallIsNoReason) {
    EXPECT_EQ(whyRefused(wellReport(), "updateTxPowerConfig", 1001),
              "TxPowerManager sent nothing to the driver; connected supplicant sockets: wlan0");
}

TEST(Refusal, TypesOfPairedDevicesThatAreTakenAreNamed) {
    EXPECT_EQ(whyRefused(wellReport(), "setP2pPairedDeviceType", 1000),
              "nothing is tuned for this type: only HALBERD and MIRACAST are taken");
}

TEST(Refusal, CommandThatWasNotSentIsToldWithTheSockets) {
    Json report = wellReport();
    report["power"]["TxPowerManager"]["lastCommand"] = nullptr;
    EXPECT_EQ(whyRefused(report, "updateTxPowerConfig", 1000),
              "TxPowerManager sent nothing to the driver; connected supplicant sockets: wlan0");
    EXPECT_EQ(whyRefused(report, "getStaInfo", 1000), "");
}

TEST(Status, ScreenHasARowForEachPart) {
    EXPECT_EQ(statusText(wellReport(), {}, true),
              "daemon    1.0.0 (abc, host), process 131, up 53 s\n"
              "link      5180 MHz, -45 dBm, sampled 1.2 s ago\n"
              "power     station 9, P2P never set\n"
              "group     none\n"
              "on        TxPowerManager\n"
              "off       ChannelSwitchManager\n"
              "sockets   wlan0 Connected for 50 s\n"
              "clients   none\n"
              "trouble   none\n");
}

TEST(Status, TroublesAreRedOnATerminal) {
    EXPECT_THAT(statusText(wellReport(), {"one", "two"}, true),
                HasSubstr("\ntrouble   \033[1;31mone\033[0m\n          \033[1;31mtwo\033[0m\n"));
    EXPECT_THAT(statusText(wellReport(), {"one", "two"}, false),
                HasSubstr("\ntrouble   one\n          two\n"));
}

TEST(Props, PatternIsPartOfTheNameOrFitsIt) {
    EXPECT_EQ(propertiesLike(wellReport(), "").size(), 2U);
    EXPECT_EQ(propertiesLike(wellReport(), "upper").size(), 1U);
    EXPECT_EQ(propertiesLike(wellReport(), "enable*sta").size(), 1U);
    EXPECT_THAT(propertiesLike(wellReport(), "gravity"), IsEmpty());
}

TEST(Props, TableShowsWhatIsInForceWhereItDiffers) {
    Json report = wellReport();
    report["properties"][1]["inForce"] = false;
    EXPECT_EQ(propertyTable(propertiesLike(report, "")),
              "NAME                                    VALUE                   DEFAULT  FROM     "
              "TAKES EFFECT\n"
              "persist.vendor.wifi.txpower.dbm.upper   20                      20       default  "
              "at restart\n"
              "persist.vendor.wifi.txpower.enable.sta  true (in force: false)  false    set      "
              "at restart\n");
}

TEST(Props, ValueMustFitTheType) {
    const Json report = wellReport();
    const Json& number = report["properties"][0];
    const Json& flag = report["properties"][1];
    EXPECT_EQ(wrongWithValue(number, "20"), "");
    EXPECT_EQ(wrongWithValue(number, "0x14"), "");
    for (const char* value : {"20dBm", "-1", ""}) {
        EXPECT_THAT(wrongWithValue(number, value), HasSubstr("takes its default 20")) << value;
    }
    for (const char* value : {"true", "false", "1", "0", "TRUE"}) {
        EXPECT_EQ(wrongWithValue(flag, value), "") << value;
    }
    EXPECT_EQ(wrongWithValue(flag, "yes"),
              "true or false (the daemon takes its default false for anything else)");
}

TEST(Props, ValueMustBeInThePropertysRange) {
    Json report = wellReport();
    Json& number = report["properties"][0];
    EXPECT_EQ(wrongWithValue(number, "4294967295"), "") << "from a daemon that names no range";
    number.update({{"lowest", 0}, {"highest", 60}, {"otherwise", "it sends it to the driver"}});
    EXPECT_EQ(wrongWithValue(number, "0"), "");
    EXPECT_EQ(wrongWithValue(number, "60"), "");
    EXPECT_EQ(wrongWithValue(number, "61"),
              "a whole number from 0 to 60 (the daemon checks only the type: it sends it to the "
              "driver)");
    number.update({{"type", "int"}, {"lowest", 0}, {"highest", 0}});
    EXPECT_THAT(wrongWithValue(number, "-1"), HasSubstr("0 alone"));
}

TEST(History, LineHasTimeWhatAndAnswer) {
    const Json entry = {{"sequence", 5},
                        {"kind", "command"},
                        {"at", momentOf(100)},
                        {"interface", "STA"},
                        {"by", "TxPowerManager.onStaConnected"},
                        {"text", "DRIVER SET_TXPOWER 9"},
                        {"outcome", "ok"},
                        {"reply", "OK"},
                        {"durationUs", 350},
                        {"repeats", 3}};
    EXPECT_THAT(historyLine(entry),
                ::testing::MatchesRegex("..:..:..\\.042  STA command  DRIVER SET_TXPOWER 9 -> OK  "
                                        "350 us  \\[TxPowerManager.onStaConnected\\]  \\(3 "
                                        "times\\)"));
    Json pending = entry;
    pending["outcome"] = "timeout";
    pending["repeats"] = 1;
    EXPECT_THAT(historyLine(pending), HasSubstr("-> (timeout)  350 us"));
}

TEST(Printable, ControlCharactersAndWhatIsNoUtf8AreShownAsText) {
    EXPECT_EQ(printable("Caf\xC3\xA9 \xE2\x86\x92 \\"), "Caf\xC3\xA9 \xE2\x86\x92 \\");
    EXPECT_EQ(printable("\033[2J\r\x7F\t"), "\\x1b[2J\\x0d\\x7f\\x09");
    EXPECT_EQ(printable("a\nb"), "a b");
    EXPECT_EQ(printable("\xC2\x9B"
                        "2J\xC2\xA0"),
              "\\x9b2J\xC2\xA0")
        << "a CSI of one character";
    EXPECT_EQ(printable("\xFF\xC2"), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Printable, HostileTextOfAReportDoesNotReachTheTerminal) {
    const std::string hostile =
        "wlan0\033]0;title\a\r\xC2\x9B"
        "2J";
    const std::string shown = "wlan0\\x1b]0;title\\x07\\x0d\\x9b2J";
    Json report = wellReport();
    report["sockets"]["sockets"][0]["path"] = "/" + hostile;
    EXPECT_THAT(statusText(report, {}, false), HasSubstr("sockets   " + shown + " Connected"));
    EXPECT_THAT(statusText(report, {hostile}, true),
                HasSubstr("trouble   \033[1;31m" + shown + "\033[0m\n"));
    const Json entry = {{"kind", "event"}, {"at", momentOf(100)}, {"interface", "STA"},
                        {"text", hostile}, {"outcome", "ok"},     {"reply", hostile}};
    EXPECT_THAT(historyLine(entry), HasSubstr("  " + shown + " -> " + shown));
}

TEST(Duration, UnitFitsTheLength) {
    EXPECT_EQ(durationText(0), "0.0 s");
    EXPECT_EQ(durationText(9'900), "9.9 s");
    EXPECT_EQ(durationText(119'000), "119 s");
    EXPECT_EQ(durationText(600'000), "10 min");
    EXPECT_EQ(durationText(7'200'000), "2 h");
    EXPECT_EQ(durationText(259'200'000), "3 days");
    EXPECT_EQ(agoText(nullptr), "never");
}

}  // namespace
