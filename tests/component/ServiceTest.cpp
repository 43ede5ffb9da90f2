// What callers of the service see, and what is in the log beside it.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "tests/component/Features.h"
#include "tests/component/Headset.h"

using namespace std::chrono_literals;
using component::Headset;
using component::LogLine;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr const char* kSuccess = "{\"code\":0,\"description\":\"\"}";
constexpr const char* kFailure = "{\"code\":1,\"description\":\"\"}";

std::string missing(const std::string& manager) {
    return "CorvidWifiManager: " + manager + " does not exist.";
}

/** The features that a dump calls enabled. */
std::set<std::string> enabledIn(const std::string& dump) {
    std::set<std::string> names;
    std::istringstream in(dump);
    for (std::string line; std::getline(in, line);) {
        if (const size_t end = line.find(": Enabled"); end != std::string::npos) {
            names.insert(line.substr(0, end));
        }
    }
    return names;
}

TEST(Service, BeginsWithALineThatItStarts) {
    Headset headset;
    headset.startDaemon();
    EXPECT_EQ(headset.log().at(0), (LogLine{"D", "service: Starting native wifi service."}));
}

TEST(Service, DumpWithEverythingUnsetEnablesTheFeaturesWithoutASwitch) {
    Headset headset;
    headset.startDaemon();
    EXPECT_THAT(enabledIn(headset.dump()),
                ElementsAre("AssocStartedManager", "P2pManager", "RegdomManager", "StaManager"));
    // Each one that is off says so.
    EXPECT_THAT(headset.log("does not exist.", "W"),
                SizeIs(Ursa::OS::Wifi::kFeatureTable.size() - 4));
    EXPECT_THAT(headset.log(missing("ElnaBypassManager"), "W"), SizeIs(1));
}

TEST(Service, DumpNamesTheTasksWithTheirThreadsInOrder) {
    Headset headset;
    headset.playAll({"stats start", "supplicant start"});
    headset.startDaemon();
    headset.expectConnection();
    headset.playAll({"connect freq=5180", "disconnect", "connect freq=5180 width=80 rssi=-48",
                     "regdom init=CORE type=WORLD"});
    headset.settle();
    const std::string dump = headset.dump();
    EXPECT_THAT(dump, HasSubstr("\tSTA frequency: 5180\n\tSTA rssi: -48\n\tSTA bandwidth: 80\n"));
    const std::string main = "\tCorvidWifiManager: " + std::to_string(headset.daemonPid()) + "\n";
    EXPECT_THAT(dump, HasSubstr("Process and Thread ID\n\tAssocStartedManager.onAssocStarted: "));
    EXPECT_THAT(dump, HasSubstr(main));
    std::istringstream in(dump.substr(dump.find("Process and Thread ID\n") + 22));
    std::vector<std::string> names;
    std::map<std::string, std::string> threads;
    for (std::string line; std::getline(in, line);) {
        const std::string name = line.substr(1, line.find(':') - 1);
        names.push_back(name);
        threads[name] = line.substr(line.find(": ") + 2);
    }
    EXPECT_THAT(names, ElementsAre("AssocStartedManager.onAssocStarted", "CorvidWifiManager",
                                   "RegdomManager.onRegdomUpdated", "StaManager.onStaConnected",
                                   "StaManager.onStaDisconnected", "StaManager.worker"));
    // Events run on the one listener thread.
    EXPECT_EQ(threads["StaManager.onStaConnected"], threads["RegdomManager.onRegdomUpdated"]);
    EXPECT_NE(threads["StaManager.onStaConnected"], threads["StaManager.worker"]);
}

TEST(Service, TheMipiClockAloneBringsTheDispatcherButNotTheBlocklist) {
    Headset headset;
    headset.play(component::switchOn("mipiclock.enable"));
    headset.startDaemon();
    EXPECT_THAT(enabledIn(headset.dump()),
                ElementsAre("AssocStartedManager", "CoexManager", "MipiClockManager", "P2pManager",
                            "RegdomManager", "StaManager"));
}

TEST(Service, EverySwitchBringsItsFeature) {
    using namespace Ursa::OS::Wifi;
    std::set<std::string> alwaysOn;
    std::map<std::string, std::set<std::string>> featuresOf;
    for (const FeatureInfo& feature : kFeatureTable) {
        const auto names = test::switchesOf(feature);
        if (names.empty()) {
            alwaysOn.emplace(feature.dumpLabel);
        }
        for (const std::string& name : names) {
            featuresOf[name].emplace(feature.dumpLabel);
        }
    }
    Headset headset;
    headset.expectDaemonToEnd();
    for (const auto& [name, features] : featuresOf) {
        headset.play("property " + name + " true");
        headset.startDaemon();
        std::set<std::string> expected = features;
        expected.insert(alwaysOn.begin(), alwaysOn.end());
        EXPECT_EQ(enabledIn(headset.dump()), expected) << name;
        headset.playAll({"daemon kill", "unset " + name});
    }
}

TEST(Service, SwitchesAreReadAtStartOnly) {
    Headset headset;
    headset.startDaemon();
    headset.play(component::switchOn("telemetry.enable"));
    EXPECT_THAT(headset.dump(), HasSubstr("TelemetryManager: Disabled\n"));
    headset.play("daemon kill");
    headset.expectDaemonToEnd();
    headset.startDaemon();
    EXPECT_THAT(headset.dump(), HasSubstr("TelemetryManager: Enabled\n"));
}

TEST(Service, WhatIsSwitchedOffAnswersFailure) {
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    const std::map<std::string, std::string> kCalls = {
        {"clearScs 1", "ScsManager"},
        {"setElnaBypass 1", "ElnaBypassManager"},
        {"setMccTimeAllocation 50", "MccTimeManager"},
        {"setP2pNoa 1 2 3", "NoaManager"},
        {"startCsa 36 80", "ChannelSwitchManager"},
        {"updateTxPowerConfig true", "TxPowerManager"},
    };
    for (const auto& [call, manager] : kCalls) {
        headset.forget();
        EXPECT_EQ(headset.call(call).output, kFailure) << call;
        headset.expectLog("W", missing(manager));
    }
    for (const char* call : {"setScsV4 10.0.0.1 1 10.0.0.2 2 3 4", "setScsV6 ::1 1 ::2 2 0 3 4"}) {
        const auto answer = headset.call(call);
        EXPECT_EQ(answer.output, "{\"id\":-1}");
        EXPECT_EQ(answer.status, 1);
    }
    EXPECT_EQ(headset.count("command", ""), 0u) << "nothing was sent";
}

TEST(Service, ThePairedDeviceIsHalberdUntilItIsToldOtherwise) {
    Headset headset;
    headset.startDaemon();
    EXPECT_EQ(headset.call("isP2pPairedDeviceType HALBERD").output, kSuccess);
    EXPECT_EQ(headset.call("isP2pPairedDeviceType NONE").output, kFailure);
    EXPECT_EQ(headset.call("setP2pPairedDeviceType MIRACAST").output, kSuccess);
    headset.expectLog("I", "P2pManager: set p2p paired device to MIRACAST");
    EXPECT_EQ(headset.call("isP2pPairedDeviceType MIRACAST").output, kSuccess);
    for (const char* refused : {"NONE", "UNKNOWN", "4", "0xffffffff"}) {
        EXPECT_EQ(headset.call(std::string("setP2pPairedDeviceType ") + refused).output, kFailure);
        EXPECT_EQ(headset.call("isP2pPairedDeviceType MIRACAST").output, kSuccess) << refused;
    }
    // Every type above the last means UNKNOWN.
    EXPECT_EQ(headset.call("isP2pPairedDeviceType 7").output,
              headset.call("isP2pPairedDeviceType UNKNOWN").output);
    EXPECT_EQ(headset.call("setP2pPairedDeviceType HALBERD").output, kSuccess);
    EXPECT_EQ(headset.call("isP2pPairedDeviceType HALBERD").output, kSuccess);
}

TEST(Service, ASignal12LeavesExactlyOneLine) {
    Headset headset;
    headset.playAll({"supplicant start", "property x.y z"});
    headset.startDaemon();
    headset.expectConnection();
    headset.settle();
    headset.forget();
    headset.play("daemon signal 12");
    headset.expectLog("W", "service: Received a signal: 12");
    headset.settle();
    EXPECT_THAT(headset.log(), ElementsAre(LogLine{"W", "service: Received a signal: 12"},
                                           LogLine{"D",
                                                   "AssocStartedManager: onAssocStarted("
                                                   "ifname=settle2)"},
                                           LogLine{"I",
                                                   "AssocStartedManager: 'settle2' is not a "
                                                   "p2p interface => ignore the event"}));
    EXPECT_EQ(headset.call("getP2pInfo").status, 0);
}

TEST(Service, ASignal12LeavesExactlyOneLineWhicheverThreadItHits) {
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    headset.settle();
    const std::string dump = headset.dump();
    const std::string task = "\tAssocStartedManager.onAssocStarted: ";
    const pid_t listener = std::stoi("0" + dump.substr(dump.find(task) + task.size()));
    ASSERT_NE(listener, headset.daemonPid());
    for (const pid_t thread : {listener, headset.daemonPid()}) {
        headset.forget();
        ASSERT_EQ(syscall(SYS_tgkill, headset.daemonPid(), thread, 12), 0);
        headset.expectLog("W", "service: Received a signal: 12");
        headset.settle();
        EXPECT_THAT(headset.log(), SizeIs(3)) << "the signal, and two lines of the event since";
    }
    EXPECT_EQ(headset.call("getP2pInfo").status, 0);
}

TEST(Service, TellsTheSensorLibraryHowToTreatABrokenTransport) {
    Headset headset;
    headset.startDaemon();
    headset.expectRecord("sensors", "transport_error_action: 3");
}

TEST(Service, AtRestTheTwoThreadsSleepWithoutAWakeUp) {
    Headset headset;
    headset.playAll(component::everythingOn());
    headset.playAll({"unset persist.vendor.wifi.frequency.block.enable",
                     "unset persist.vendor.wifi.mipiclock.enable", "stats start",
                     "supplicant start p2p=p2p0"});
    headset.startDaemon();
    headset.expectConnection("wlan0");
    headset.expectConnection("p2p0");
    headset.settle();
    headset.forget();
    const auto before = headset.daemonFigures();
    EXPECT_EQ(before.threads(), 2u);
    // Time itself is what is tested: nothing happens in it.
    EXPECT_FALSE(headset.sim().waitFor(
        [](const simtest::SimRecord& record) { return record.kind() == "log"; }, 3s));
    const auto after = headset.daemonFigures();
    if (!CORVID_SANITIZED) {  // the sanitizers' own threads wake up
        EXPECT_EQ(after.wakeUps(), before.wakeUps());
    }
}

TEST(Service, AtRestTheDispatcherIsTheThirdThread) {
    Headset headset;
    headset.play(component::switchOn("mipiclock.enable"));
    headset.startDaemon();
    EXPECT_EQ(headset.daemonFigures().threads(), 3u);
}

}  // namespace
