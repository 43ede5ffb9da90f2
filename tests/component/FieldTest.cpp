// What a field engineer asks a running headset by corvid-wifi.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/component/Headset.h"

using component::Headset;
using nlohmann::json;
using testing::HasSubstr;

namespace {

/** What the simulated supplicant calls its groups. */
constexpr const char* kGroupName = "DIRECT-BI";

class Field : public testing::Test {
  protected:
    /** Runs the client beside the daemon: what it prints on both outputs. Its status comes too. */
    std::string ask(const std::string& words) {
        headset_.sim().play("client " + words);  // an error for words that the client refuses
        const auto calls = headset_.sim().records("call");
        status_ = calls.empty() ? "none" : calls.back()["status"];
        if (calls.empty()) {
            return "";
        }
        const std::string output = calls.back()["output"];
        const std::string errors = calls.back()["errors"];
        return output + (output.empty() || errors.empty() ? "" : "\n") + errors;
    }

    std::string propertyFile(const std::string& name) {
        std::ifstream in(headset_.sim().root() + "/dev/__properties__/" + name);
        std::string value;
        std::getline(in, value);
        return value;
    }

    Headset headset_;
    std::string status_;
};

TEST_F(Field, RefusalIsExplained) {
    headset_.startDaemon();
    EXPECT_EQ(ask("call startCsa 149 80"),
              "{\"code\":1,\"description\":\"\"}\n"
              "corvid-wifi: ChannelSwitchManager is off: set "
              "persist.vendor.wifi.cmd.cs.p2p.corvid or persist.vendor.wifi.cmd.cs.p2p.ecsa and "
              "restart");
    EXPECT_EQ(status_, "1");
}

TEST_F(Field, PropertyIsSetWithTheTimeAtWhichItTakesEffect) {
    headset_.startDaemon();
    EXPECT_THAT(ask("props set txpower.dbm.upper 18"),
                HasSubstr("persist.vendor.wifi.txpower.dbm.upper is 18 now; it takes effect "));
    EXPECT_EQ(status_, "0");
    EXPECT_EQ(propertyFile("persist.vendor.wifi.txpower.dbm.upper"), "18");
    EXPECT_THAT(ask("props dbm.upper"), HasSubstr("persist.vendor.wifi.txpower.dbm.upper  18"));
}

TEST_F(Field, MistypedPropertyIsRefusedWithWhatWasMeant) {
    headset_.startDaemon();
    EXPECT_THAT(ask("props set persist.vendor.wifi.txpower.enabel.sta true"),
                HasSubstr("did you mean \"persist.vendor.wifi.txpower.enable.sta\"?"));
    EXPECT_EQ(status_, "2");
    EXPECT_THAT(ask("props set txpower.enable.sta yes"), HasSubstr("allowed is true or false"));
    EXPECT_EQ(propertyFile("persist.vendor.wifi.txpower.enable.sta"), "");
}

TEST_F(Field, StatusAndHistoryAreJsonToo) {
    headset_.startDaemon();
    const json status = json::parse(ask("status --json"));
    EXPECT_TRUE(status["trouble"].is_array());
    EXPECT_THAT(status["trouble"].dump(), HasSubstr("no supplicant"));
    const json history = json::parse(ask("history --json"));
    EXPECT_EQ(history["capacity"], 128);
    EXPECT_TRUE(json::parse(ask("props --json")).is_array());
    EXPECT_THAT(ask("props gravity"), HasSubstr("no property has \"gravity\" in its name"));
    EXPECT_EQ(status_, "1");
}

TEST_F(Field, HistoryShowsTheCommandWithItsAnswer) {
    headset_.play("property persist.vendor.wifi.txpower.enable.sta true");
    headset_.play("supplicant start");
    headset_.startDaemon();
    headset_.expectConnection();
    headset_.play("connect freq=5180 rssi=-48");
    headset_.play("expect command \"DRIVER SET_TXPOWER 20\" within 20s");
    headset_.play("expect log \"DRIVER SET_TXPOWER 20 reply\" within 20s");
    EXPECT_THAT(ask("history"), HasSubstr("STA command  DRIVER SET_TXPOWER 20 -> OK"));
}

TEST_F(Field, BugReportHoldsEveryItemAndSaysWhatIsMissing) {
    headset_.play("supplicant start");
    headset_.startDaemon();
    headset_.expectConnection();
    headset_.play("connect freq=5180 rssi=-48 ssid=HomeNet");
    headset_.play("expect command SIGNAL_POLL within 20s");
    const std::string file = headset_.sim().root() + "/report.tar.gz";
    const json made = json::parse(ask("bugreport --json --anonymize -o " + file));
    EXPECT_EQ(status_, "0");
    EXPECT_LT(std::filesystem::file_size(file), 5'000'000U);
    const std::string folder = headset_.sim().root() + "/unpacked";
    std::filesystem::create_directory(folder);
    ASSERT_EQ(std::system(("tar -xzf " + file + " -C " + folder).c_str()), 0);
    const std::string inside = folder + "/corvid-wifi-bugreport/";
    EXPECT_GE(made["items"].size(), 10U);
    for (const json& item : made["items"]) {
        EXPECT_TRUE(std::filesystem::exists(inside + item["name"].get<std::string>()));
        if (item["name"] == "debug.json" || item["name"] == "dump.txt" ||
            item["name"] == "status.txt") {
            EXPECT_EQ(item["state"], "complete") << item;
        }
        if (item["name"] == "daemon.log") {
            // A host has no logcat; its journal, if it has one, knows nothing of this daemon.
            EXPECT_THAT(
                item["state"].get<std::string>(),
                testing::AnyOf(HasSubstr("there is no logcat here; journalctl: "),
                               testing::Eq("there is nothing in it"), testing::Eq("complete")));
        }
    }
    std::ifstream status(inside + "status.txt");
    const std::string text{std::istreambuf_iterator<char>(status), {}};
    EXPECT_THAT(text, HasSubstr("5180 MHz"));
    EXPECT_EQ(std::system(("grep -rq HomeNet " + folder).c_str()) != 0, true) << "a name is left";
}

TEST_F(Field, AnonymousBugReportHasNoNameOfAGroupAndItsReportIsJson) {
    headset_.play("supplicant start p2p=p2p0");
    headset_.startDaemon();
    headset_.expectConnection("p2p0");
    headset_.play("p2p start freq=2437");
    headset_.expectRecord("event", "P2P-GROUP-STARTED");
    headset_.settle();
    ASSERT_THAT(ask("debug --json history"), HasSubstr(kGroupName));
    const std::string file = headset_.sim().root() + "/report.tar.gz";
    ask("bugreport --anonymize -o " + file);
    EXPECT_EQ(status_, "0");
    const std::string folder = headset_.sim().root() + "/unpacked";
    std::filesystem::create_directory(folder);
    ASSERT_EQ(std::system(("tar -xzf " + file + " -C " + folder).c_str()), 0);
    EXPECT_NE(std::system((std::string("grep -rq ") + kGroupName + " " + folder).c_str()), 0)
        << "the group's name is left";
    std::ifstream in(folder + "/corvid-wifi-bugreport/debug.json");
    const json report = json::parse(in, nullptr, false);
    ASSERT_TRUE(report.is_object());
    EXPECT_THAT(report["history"].dump(), HasSubstr("ssid-"));
}

TEST_F(Field, BugReportOfADaemonThatIsStoppedEndsAndSaysSo) {
    headset_.startDaemon();
    headset_.play("daemon signal 19");
    const std::string file = headset_.sim().root() + "/report.tar.gz";
    const json made = json::parse(ask("bugreport --json -o " + file));
    for (const json& item : made["items"]) {
        if (item["name"] == "debug.json") {
            // The client's own limit, or that of the report on a machine that starts it late.
            EXPECT_THAT(item["state"], testing::AnyOf("status 5", "not ended within 4 s"));
        }
    }
    headset_.play("daemon signal 18");
}

}  // namespace
