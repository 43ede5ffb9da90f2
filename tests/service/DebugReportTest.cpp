#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <cutils/native_handle.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "client/CorvidWifiClient.h"
#include "config/FeatureList.h"
#include "service/CorvidWifiService.h"
#include "tests/service/FakeClient.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/FeatureSwitches.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedNl80211.h"
#include "tests/support/ScriptedSupplicant.h"
#include "tests/support/WaitUntil.h"

namespace Ursa::OS::Wifi {
namespace {

using ::android::sp;
using ::android::base::unique_fd;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using ::vendor::corvid::hardware::wifi::V1_0::Status;
using ::vendor::corvid::hardware::wifi::V1_0::implementation::CorvidWifiService;
using Json = nlohmann::json;

const std::vector<std::string> kSections = {"sta",     "p2p",     "power",   "coex",
                                            "sockets", "netlink", "clients", "properties",
                                            "history", "threads"};

class DebugReportTest : public testing::Test {
  protected:
    void start() {
        service_ =
            new CorvidWifiService(std::make_shared<CorvidWifiClient>(root_.socketDirectory()));
        ASSERT_TRUE(log_.waitFor(
            "[WPA-STA] Connected to supplicant socket: " + root_.socketDirectory() + "wlan0"));
    }

    std::string report(const std::vector<std::string>& options) {
        unique_fd input;
        unique_fd output;
        EXPECT_TRUE(::android::base::Pipe(&input, &output));
        const std::unique_ptr<native_handle_t, decltype(&native_handle_delete)> handle(
            native_handle_create(1, 0), &native_handle_delete);
        handle->data[0] = output.get();
        auto text = std::async(std::launch::async, [&input] {
            std::string all;
            char part[4096];
            for (ssize_t size = 0; (size = read(input.get(), part, sizeof(part))) > 0;) {
                all.append(part, static_cast<size_t>(size));
            }
            return all;
        });
        const std::vector<hidl_string> words(options.begin(), options.end());
        EXPECT_TRUE(service_->debug(handle.get(), hidl_vec<hidl_string>(words)).isOk());
        output.reset();
        return text.get();
    }

    Json json(std::vector<std::string> options = {}) {
        options.emplace_back("--json");
        const std::string text = report(options);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
        return Json::parse(text);  // throws for anything but one object
    }

    void switchOn(const std::string& property) const {
        root_.setProperty("persist.vendor.wifi." + property, "true");
    }

    void registerClient(const sp<FakeClient>& client) {
        EXPECT_TRUE(service_
                        ->registerCorvidWifiManagerCallback(
                            client, [](const Status& status) { EXPECT_EQ(status.code, 0U); })
                        .isOk());
    }

    test::DeviceRoot root_;
    test::LogCapture log_;
    test::ScriptedNl80211 nl80211_{root_.path()};
    test::ScriptedSupplicant sta_{root_.socketDirectory() + "wlan0"};
    sp<CorvidWifiService> service_;
};

TEST_F(DebugReportTest, WithoutANameAllSectionsAreThereAsTextAndAsJson) {
    start();
    const Json all = json();
    EXPECT_EQ(all.at("schema"), 1);
    EXPECT_EQ(all.at("process").at("pid"), getpid());
    EXPECT_EQ(all.at("build").at("platform"), "host");
    const std::string text = report({});
    for (const std::string& section : kSections) {
        EXPECT_TRUE(all.contains(section)) << section;
        EXPECT_THAT(text, HasSubstr("\n" + section + ":")) << section;
    }
    EXPECT_EQ(all.size(), kSections.size() + 3);
}

TEST_F(DebugReportTest, NameSelectsItsSection) {
    start();
    for (const std::string& section : kSections) {
        const Json part = json({section});
        EXPECT_EQ(part.size(), 4U) << section;
        EXPECT_TRUE(part.contains(section));
        EXPECT_THAT(report({"--help"}), HasSubstr("\n  " + section + " ")) << section;
    }
    EXPECT_EQ(json({"power", "sockets"}).size(), 5U);
}

TEST_F(DebugReportTest, UnknownOptionIsNamedAndTheOptionsAreShown) {
    start();
    EXPECT_THAT(report({"--jsno"}), StartsWith("unknown option \"--jsno\"\noptions: "));
    EXPECT_THAT(report({"sta", std::string(5000, '\n')}), StartsWith("unknown option \""));
    EXPECT_LT(report({std::string(5000, 'x')}).size(), 2000U);
}

TEST_F(DebugReportTest, CallWithoutADescriptorIsAnswered) {
    start();
    EXPECT_TRUE(service_->debug(nullptr, {}).isOk());
    const std::unique_ptr<native_handle_t, decltype(&native_handle_delete)> empty(
        native_handle_create(0, 0), &native_handle_delete);
    EXPECT_TRUE(service_->debug(empty.get(), {}).isOk());
}

TEST_F(DebugReportTest, EveryFeatureIsInOneSectionWithItsSwitches) {
    switchOn("txpower.enable.sta");
    start();
    const Json all = json();
    for (const FeatureInfo& feature : kFeatureTable) {
        int found = 0;
        for (const char* section : {"sta", "p2p", "power", "coex"}) {
            found += all.at(section).contains(feature.managerName) ? 1 : 0;
        }
        EXPECT_EQ(found, 1) << feature.managerName;
    }
    const Json& power = all.at("power").at("TxPowerManager");
    EXPECT_EQ(power.at("enabled"), true);
    EXPECT_EQ(power.at("switches").at(0), "persist.vendor.wifi.txpower.enable.sta");
    EXPECT_EQ(power.at("state").at("staStep"), nullptr) << "never set";
    const Json& scs = all.at("sta").at("ScsManager");
    EXPECT_EQ(scs.at("enabled"), false);
    EXPECT_EQ(scs.at("state"), nullptr);
    EXPECT_EQ(scs.at("switches").at(0), "persist.vendor.wifi.scs.enable");
}

TEST_F(DebugReportTest, SwitchThatDecidedAFeatureIsToldWithItsSource) {
    switchOn("txpower.enable.p2p");
    root_.setProperty("persist.vendor.wifi.devparams.enable", "yes");
    root_.setProperty("persist.vendor.wifi.telemetry.enable", "false");
    start();
    const Json all = json();
    const auto decidedBy = [&](const char* section, const char* feature) {
        std::vector<std::string> lines;
        for (const Json& entry : all.at(section).at(feature).at("decidedBy")) {
            lines.push_back(entry.at("name").get<std::string>().substr(20) + " " +
                            entry.at("value").dump() + " " + entry.at("origin").dump());
            EXPECT_EQ(entry.at("changedTo"), nullptr);
        }
        return lines;
    };
    EXPECT_THAT(decidedBy("power", "TxPowerManager"),
                testing::ElementsAre("txpower.enable.p2p true \"set\""));
    EXPECT_THAT(decidedBy("p2p", "ChannelSwitchManager"),
                testing::ElementsAre("cmd.cs.p2p.corvid false \"default\"",
                                     "cmd.cs.p2p.ecsa false \"default\""));
    EXPECT_THAT(decidedBy("sta", "DevParamsManager"),
                testing::ElementsAre("devparams.enable false \"malformed: default used\""));
    EXPECT_THAT(decidedBy("sta", "TelemetryManager"),
                testing::ElementsAre("telemetry.enable false \"set\""));
    EXPECT_THAT(decidedBy("sta", "StaManager"), testing::IsEmpty()) << "always on";
}

TEST_F(DebugReportTest, SwitchThatWasChangedSinceTheStartIsTold) {
    switchOn("telemetry.enable");
    start();
    switchOn("scs.enable");
    switchOn("cmd.noa.p2p");
    root_.setProperty("persist.vendor.wifi.telemetry.enable", "false");
    const Json all = json();
    const auto decided = [&](const char* section, const char* feature) {
        return all.at(section).at(feature).at("decidedBy").at(0);
    };
    for (const Json& off : {decided("sta", "ScsManager"), decided("p2p", "NoaManager")}) {
        EXPECT_EQ(off.at("value"), false);
        EXPECT_EQ(off.at("origin"), nullptr);
        EXPECT_EQ(off.at("changedTo"), true);
    }
    const Json on = decided("sta", "TelemetryManager");
    EXPECT_EQ(on.at("value"), true);
    EXPECT_EQ(on.at("origin"), "set");
    EXPECT_EQ(on.at("changedTo"), false);
    EXPECT_THAT(report({"sta"}),
                testing::HasSubstr("persist.vendor.wifi.scs.enable = false at the "
                                   "start, since changed: it counts at a restart"));
}

TEST_F(DebugReportTest, StateOfEveryFeatureIsTold) {
    for (const std::string& property : test::switchesOfEveryFeature()) {
        root_.setProperty(property, "true");
    }
    start();
    const Json all = json();
    for (const FeatureInfo& feature : kFeatureTable) {
        const Json& entry = all.at(std::string(feature.section)).at(feature.managerName);
        EXPECT_EQ(entry.at("enabled"), true) << feature.managerName;
        EXPECT_TRUE(entry.at("state").is_object()) << feature.managerName;
    }
}

TEST_F(DebugReportTest, ConnectionIsToldByStateSocketAndHistory) {
    switchOn("txpower.enable.sta");
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5180\n");
    start();
    sta_.sendEvent("CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed");
    ASSERT_TRUE(sta_.waitForCommands("DRIVER SET_TXPOWER 20", 1));
    ASSERT_TRUE(test::waitUntil(
        [&] { return !json({"power"})["power"]["TxPowerManager"]["lastCommand"].is_null(); }));
    const Json all = json();
    const Json& state = all.at("sta").at("StaManager").at("state");
    EXPECT_EQ(state.at("link"), "up");
    EXPECT_EQ(state.at("rssi"), -50);
    EXPECT_EQ(state.at("signal"), Json({-50}));
    const Json& command = all.at("power").at("TxPowerManager").at("lastCommand");
    EXPECT_EQ(command.at("text"), "DRIVER SET_TXPOWER 20");
    EXPECT_EQ(command.at("reply"), "OK");
    EXPECT_EQ(command.at("by"), "TxPowerManager.onStaDisconnected");
    const Json& socket = all.at("sockets").at("sockets").at(0);
    EXPECT_EQ(socket.at("state"), "Connected");
    EXPECT_EQ(socket.at("path"), root_.socketDirectory() + "wlan0");
    EXPECT_EQ(socket.at("connects"), 1);
    EXPECT_EQ(socket.at("reconnects"), 0);
    EXPECT_GE(socket.at("attempts"), 1);
    EXPECT_EQ(socket.at("events").at("CONNECTED"), 1);
    EXPECT_EQ(socket.at("timeouts"), 0);
    EXPECT_GE(socket.at("commands"), 2);
    std::vector<std::string> texts;
    for (const Json& entry : all.at("history").at("entries")) {
        texts.push_back(entry.at("text"));
    }
    EXPECT_THAT(texts,
                testing::IsSupersetOf({"socket Connected",
                                       "CONNECTED - Connection to 02:00:00:00:01:00 completed",
                                       "SIGNAL_POLL", "DRIVER SET_TXPOWER 20"}));
}

TEST_F(DebugReportTest, RefusedCommandsAreCounted) {
    switchOn("cmd.elna.bypass.mode");
    nl80211_.setInterfaces({"wlan0"});
    sta_.answer("DRIVER SET_ELNABYPASS_MODE wlan0 1", "FAIL\n");
    start();
    EXPECT_TRUE(service_->setElnaBypass(1, [](const Status&) {}).isOk());
    const Json all = json();
    EXPECT_EQ(all.at("sockets").at("sockets").at(0).at("refused"), 1);
    EXPECT_EQ(all.at("sta").at("ElnaBypassManager").at("lastCommand").at("reply"), "FAIL");
    EXPECT_EQ(all.at("netlink").at("interfaces").at("sta"), "wlan0");
    EXPECT_EQ(all.at("netlink").at("failures"), Json::array());
}

TEST_F(DebugReportTest, PropertyThatIsMalformedOrChangedSinceTheStartIsTold) {
    switchOn("txpower.enable.sta");
    root_.setProperty("persist.vendor.wifi.devparams.enable", "yes");
    start();
    switchOn("scs.enable");
    const auto property = [all = json({"properties"}).at("properties")](const std::string& name) {
        return *std::find_if(all.begin(), all.end(), [&](const Json& entry) {
            return entry.at("name") == "persist.vendor.wifi." + name;
        });
    };
    const Json malformed = property("devparams.enable");
    EXPECT_EQ(malformed.at("origin"), "malformed: default used");
    EXPECT_EQ(malformed.at("set"), "yes");
    EXPECT_EQ(malformed.at("value"), false);
    const Json changed = property("scs.enable");
    EXPECT_EQ(changed.at("value"), true);
    EXPECT_EQ(changed.at("inForce"), false);
    EXPECT_EQ(changed.at("takesEffect"), "at restart");
    EXPECT_EQ(property("txpower.dbm.p2p").at("inForce"), nullptr) << "not read yet";
    EXPECT_EQ(property("txpower.dbm.p2p").at("lowest"), 0);
    EXPECT_EQ(property("txpower.dbm.p2p").at("highest"), 60);
    EXPECT_EQ(property("txpower.dbm.p2p").at("otherwise"), "it sends it to the driver");
    EXPECT_EQ(changed.count("lowest"), 0U) << "of a switch";
    const std::string text = report({"properties"});
    EXPECT_THAT(text, HasSubstr("persist.vendor.wifi.devparams.enable = false (\"yes\" is "
                                "malformed: default used)"));
    EXPECT_THAT(text, HasSubstr("persist.vendor.wifi.scs.enable = true (set), in force is false "
                                "until a restart"));
}

TEST_F(DebugReportTest, TextFromOutsideDoesNotBreakTheReport) {
    start();
    sta_.sendEvent(
        "CTRL-EVENT-REGDOM-CHANGE init=US\x01\x1B[2J\"\\\xFF\xC0 type=COUNTRY alpha2=\xE2\x82");
    ASSERT_TRUE(test::waitUntil(
        [&] { return report({"history"}).find("REGDOM-CHANGE") != std::string::npos; }));
    EXPECT_THAT(report({"history"}), testing::Not(HasSubstr("\x1B")));
    EXPECT_NO_THROW(json({"history"}));
    EXPECT_NO_THROW(json());
}

TEST_F(DebugReportTest, ReportComesWhileTheSupplicantDoesNotAnswer) {
    switchOn("txpower.enable.sta");
    switchOn("powerjump.detect.enable");
    start();
    sta_.socket().answerCommands([](const std::string&) { return std::nullopt; });
    sta_.sendEvent("CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed");
    ASSERT_TRUE(test::waitUntil(
        [&] { return json({"sockets"})["sockets"]["sockets"][0]["pending"].is_object(); }));
    const auto start = std::chrono::steady_clock::now();
    const Json all = json();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took.count(), 8.0) << "a command is waited for, for 10 s";
    const Json& pending = all.at("sockets").at("sockets").at(0).at("pending");
    EXPECT_EQ(pending.at("text"), "SIGNAL_POLL");
    EXPECT_EQ(pending.at("outcome"), "pending");
    EXPECT_EQ(all.at("sta").at("StaManager").at("running").at("task"), "StaManager.onStaConnected");
    EXPECT_EQ(all.at("threads").at("pending").at(0).at("text"), "SIGNAL_POLL");
    sta_.crash();  // the command fails, so that the test ends
}

TEST_F(DebugReportTest, ClientsCallThatAnExceptionEndsHasFailedAndIsOver) {
    start();
    const sp<FakeClient> client = new FakeClient;
    client->onCall = [] { throw std::bad_alloc(); };
    registerClient(client);
    sta_.sendEvent("CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=DE");
    ASSERT_TRUE(test::waitUntil([&] { return json({"clients"})["clients"][0]["calls"] == 1; }));
    const Json failed = json({"clients"}).at("clients").at(0);
    EXPECT_EQ(failed.at("current"), nullptr);
    EXPECT_EQ(failed.at("failures"), 1);
}

TEST_F(DebugReportTest, ClientThatHangsIsTold) {
    start();
    std::promise<void> entered;
    std::promise<void> leave;
    const sp<FakeClient> client = new FakeClient;
    client->onCall = [&] {
        entered.set_value();
        leave.get_future().wait();
    };
    registerClient(client);
    sta_.sendEvent("CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=DE");
    entered.get_future().wait();
    const Json hanging = json({"clients"}).at("clients").at(0);
    EXPECT_EQ(hanging.at("current").at("method"), "onRegdomUpdated");
    EXPECT_EQ(hanging.at("calls"), 0);
    leave.set_value();
    ASSERT_TRUE(test::waitUntil([&] { return json({"clients"})["clients"][0]["calls"] == 1; }));
    const Json done = json({"clients"}).at("clients").at(0);
    EXPECT_EQ(done.at("current"), nullptr);
    EXPECT_EQ(done.at("slowestMethod"), "onRegdomUpdated");
    EXPECT_TRUE(service_->unregisterCorvidWifiManagerCallback(client, [](const Status&) {}).isOk());
    EXPECT_EQ(json({"clients"}).at("clients"), Json::array());
}

}  // namespace
}  // namespace Ursa::OS::Wifi
