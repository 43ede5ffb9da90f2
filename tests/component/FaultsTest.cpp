// The faults of a long day, many times over: what the daemon holds afterwards is what it held
// before. Storms of events are in StormTest.cpp, calls of a hanging sensor service in
// tests/managers/.

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "tests/component/FailCalls.h"
#include "tests/component/Features.h"
#include "tests/component/Headset.h"
#include "tests/support/Emulated.h"
#include "tests/support/Program.h"
#include "tests/support/TempFolder.h"

using namespace std::chrono_literals;
using component::Headset;
using component::ProcessFigures;
using test::Program;

namespace {

/** Sanitizers keep what was freed for a while, so memory says nothing there, and they are slow. */
constexpr bool kSanitized = CORVID_SANITIZED;
constexpr int kTimes = kSanitized || test::kEmulated ? 50 : 1000;
constexpr int kWarmUp = kTimes / 5;
/** Allocators keep a little of what they were given back. */
constexpr long kMemorySlackKiB = 64;

void expectSameFigures(const ProcessFigures& before, const ProcessFigures& after) {
    EXPECT_EQ(after.descriptors(), before.descriptors());
    EXPECT_EQ(after.threads(), before.threads());
    if (!kSanitized) {
        EXPECT_LE(after.anonymousKiB(), before.anonymousKiB() + kMemorySlackKiB);
    }
    testing::Test::RecordProperty("anonymousKiB", std::to_string(before.anonymousKiB()) + " then " +
                                                      std::to_string(after.anonymousKiB()));
}

/** A supplicant's end, and how the next one comes. */
struct Death {
    const char* name;
    std::vector<std::string> lines;
};

class SupplicantDeaths : public testing::TestWithParam<Death> {};

TEST_P(SupplicantDeaths, ManyTimesOverLeaveNothingBehindAndEachNextSupplicantIsFound) {
    Headset headset;
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    headset.startDaemon();
    headset.expectConnection("wlan0");
    headset.expectConnection("p2p0");
    ProcessFigures before(headset.daemonPid());
    // The library's, and those that a killed process of the same number has left.
    const size_t files = component::controlClientFiles(headset.daemonPid()).size();
    for (int i = 0; i < kTimes; ++i) {
        if (i == kWarmUp) {
            headset.settle();
            before = headset.daemonFigures();
        }
        headset.forget();
        headset.playAll(GetParam().lines);
        headset.expectConnection("wlan0");
        headset.expectConnection("p2p0");
        ASSERT_FALSE(HasFatalFailure()) << "after " << i << " deaths";
    }
    headset.settle();
    expectSameFigures(before, headset.daemonFigures());
    EXPECT_LE(component::controlClientFiles(headset.daemonPid()).size(), files);
    headset.play("connect freq=5745 rssi=-60");
    headset.expectLog("I", "StaManager: STA event(CONNECTED)");
}

INSTANTIATE_TEST_SUITE_P(
    Faults, SupplicantDeaths,
    testing::Values(Death{"Crashed", {"supplicant crash", "supplicant start p2p=p2p0"}},
                    Death{"Terminated", {"supplicant terminate", "supplicant start p2p=p2p0"}},
                    Death{"TerminatedWithItsFolder",
                          {"supplicant terminate remove-folder", "supplicant start p2p=p2p0"}},
                    Death{"LostItsSockets",
                          {"socket delete wlan0", "socket delete p2p0", "supplicant restart"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Faults, ClientsThatDieInsideACallAreForgottenEachTime) {
    constexpr const char* kRemoving = "CorvidWifiManagerCallback: removing dead callback";
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    ProcessFigures before(headset.daemonPid());
    size_t insideACall = 0;
    for (int i = 0; i < kTimes; ++i) {
        if (i == kWarmUp) {
            headset.settle();
            before = headset.daemonFigures();
        }
        headset.forget();
        Program client({component::clientPath(), "monitor"},
                       {{"CORVID_WIFI_ROOT=" + headset.root()}, {}, {}});
        ASSERT_EQ(client.readLine(), "{\"event\":\"registered\"}");
        client.signal(SIGSTOP);
        siginfo_t info{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(client.pid()), &info, WSTOPPED), 0);
        headset.play("regdom init=USER type=COUNTRY alpha2=AA");
        headset.expectLog("D", "RegdomManager: Notify regdom updated event");
        client.signal(SIGKILL);
        headset.expectLog("D", kRemoving);
        headset.settle();
        insideACall += headset.log("Failed to call IWifi onRegdomUpdated: ", "E").size();
        ASSERT_FALSE(HasFatalFailure()) << "after " << i << " deaths";
    }
    // A death that is noticed before the call has begun leaves no call to fail.
    EXPECT_GT(insideACall, static_cast<size_t>(kTimes) / 2);
    headset.settle();
    const ProcessFigures after = headset.daemonFigures();
    EXPECT_LE(after.descriptors(), before.descriptors());
    EXPECT_LE(after.threads(), before.threads());
    if (!kSanitized) {
        EXPECT_LE(after.anonymousKiB(), before.anonymousKiB() + kMemorySlackKiB);
    }
}

TEST(Faults, AFullDiskUnderTheSensorFilesFailsTheCallWithALineAndTheDaemonGoesOn) {
    // From some moment on any file is too large for this daemon: its writes end as on a full disk.
    const test::TempFolder folder;
    const std::string script = folder.file("daemon");
    std::ofstream(script) << "#!/bin/sh\ntrap '' XFSZ\nexec " << component::daemonPath() << "\n";
    ASSERT_EQ(chmod(script.c_str(), 0700), 0);
    Headset headset(script);
    headset.playAll({component::switchOn("frequency.block.enable"),
                     component::switchOn("mipiclock.enable"), "stats start", "supplicant start"});
    headset.startDaemon();
    headset.expectConnection();
    const rlimit nothing{0, 0};
    ASSERT_EQ(prlimit(headset.daemonPid(), RLIMIT_FSIZE, &nothing, nullptr), 0);
    headset.play("connect freq=2437");
    headset.expectLog("E", "ControllerProvider: setWirelessFreqBlocklists() failed");
    headset.expectLog("E", "cannot write " + headset.root() +
                               "/data/vendor/sensors/controller_blocklist: File too large");
    headset.expectLog("E", "cannot write " + headset.root() +
                               "/data/vendor/sensors/camera_clock: File too large");
    headset.settle();
    EXPECT_THAT(headset.call("getStaInfo").output, testing::HasSubstr("\"frequency\":2437"));
}

}  // namespace
