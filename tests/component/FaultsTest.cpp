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
#include "tests/support/Program.h"
#include "tests/support/TempFolder.h"

using namespace std::chrono_literals;
using component::Headset;
using component::ProcessFigures;
using test::Program;

namespace {

/** Sanitizers keep what was freed for a while, so memory says nothing there, and they are slow. */
constexpr bool kSanitized = CORVID_SANITIZED;
constexpr int kTimes = kSanitized ? 50 : 1000;
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

/** A daemon that is refused memory or a thread at the call that the test chooses (FailCalls.c). */
class RefusingDaemon {
  public:
    RefusingDaemon() {
        const std::string page = folder_.file("calls");
        const int fd = open(page.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(ftruncate(fd, sizeof(FailCalls)), 0);
        calls = static_cast<FailCalls*>(
            mmap(nullptr, sizeof(FailCalls), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        close(fd);
        std::ofstream(script()) << "#!/bin/sh\nFAIL_CALLS=" << page
                                << " LD_PRELOAD=\"" FAIL_CALLS_LIBRARY ":$LD_PRELOAD\" exec "
                                << component::daemonPath() << "\n";
        chmod(script().c_str(), 0700);
    }
    ~RefusingDaemon() { munmap(calls, sizeof(FailCalls)); }
    RefusingDaemon(const RefusingDaemon&) = delete;
    RefusingDaemon& operator=(const RefusingDaemon&) = delete;

    std::string script() const { return folder_.file("daemon"); }

    /** The call with this number from now on fails; 0: none. Returns how many were counted. */
    static long refuse(FailedCall& call, long number) {
        __atomic_store_n(&call.failAt, 0, __ATOMIC_SEQ_CST);
        const long count = __atomic_exchange_n(&call.count, 0, __ATOMIC_SEQ_CST);
        __atomic_store_n(&call.failAt, number, __ATOMIC_SEQ_CST);
        return count;
    }

    FailCalls* calls = nullptr;

  private:
    test::TempFolder folder_;
};

/** What became of a daemon that was refused memory once. */
enum class Outcome {
    GoesOn,  ///< it handles events
    Ended,   ///< its process has ended, as a platform library does that is refused memory
    Stuck,
};

/** An event that meets the refusal may be lost. One of these is not, if the daemon goes on. */
Outcome outcome(Headset& headset) {
    for (int i = 0; i < 20; ++i) {
        headset.play("assoc started ifname=mark");
        const auto seen = headset.sim().waitFor(
            [](const simtest::SimRecord& record) {
                return record.kind() == "program" ||
                       record.text().find("'mark' is not a p2p") != std::string::npos;
            },
            500ms);
        if (seen) {
            return seen->kind() == "program" ? Outcome::Ended : Outcome::GoesOn;
        }
    }
    return Outcome::Stuck;
}

/** A link and a group come and go. */
Outcome playEvents(Headset& headset) {
    headset.forget();
    headset.playAll({"connect freq=5180 width=80 rssi=-48", "p2p start freq=5180 width=80"});
    const Outcome first = outcome(headset);
    if (first != Outcome::GoesOn) {
        headset.playAll({"p2p stop", "disconnect"});
        return first;
    }
    headset.forget();
    headset.playAll({"p2p stop", "disconnect"});
    return outcome(headset);
}

TEST(Faults, MemoryRefusedAnywhereOnTheRoadOfAnEventNeverLeavesADaemonThatIsStuck) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer's allocator stands before ours";
    }
    RefusingDaemon daemon;
    Headset headset(daemon.script());
    headset.expectDaemonToEnd();
    headset.playAll(component::everythingOn());
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    const auto start = [&] {
        headset.startDaemon();
        headset.expectConnection("wlan0");
        headset.expectConnection("p2p0");
        // The first events make what is made once.
        ASSERT_EQ(playEvents(headset), Outcome::GoesOn);
        RefusingDaemon::refuse(daemon.calls->memory, 0);
    };
    start();
    ASSERT_EQ(playEvents(headset), Outcome::GoesOn);
    const long calls = RefusingDaemon::refuse(daemon.calls->memory, 0);
    ASSERT_GT(calls, 100);
    long ended = 0;
    for (long number = 1; number <= calls; ++number) {
        RefusingDaemon::refuse(daemon.calls->memory, number);
        const Outcome result = playEvents(headset);
        RefusingDaemon::refuse(daemon.calls->memory, 0);
        ASSERT_NE(result, Outcome::Stuck) << "refused call " << number << " of " << calls;
        if (result == Outcome::Ended) {
            ++ended;
            start();
            ASSERT_FALSE(HasFailure());
        }
    }
    RecordProperty("calls", std::to_string(calls));
    RecordProperty("ended", std::to_string(ended));
    // Nothing of ours ends the process, only libraries do: seldom.
    EXPECT_LT(ended, calls / 4);
}

TEST(Faults, ThreadRefusedAnywhereOnTheRoadOfAnEventIsLoggedAndTheDaemonGoesOn) {
    RefusingDaemon daemon;
    Headset headset(daemon.script());
    headset.playAll(component::everythingOn());
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    headset.startDaemon();
    headset.expectConnection("wlan0");
    headset.expectConnection("p2p0");
    ASSERT_EQ(playEvents(headset), Outcome::GoesOn);
    // At least these: the station's worker, and one for the sensor service.
    constexpr long kCalls = 2;
    for (long number = 1; number <= kCalls; ++number) {
        headset.forget();  // first: a thread of the events before may be the one that is refused
        RefusingDaemon::refuse(daemon.calls->thread, number);
        headset.playAll({"connect freq=5180 width=80 rssi=-48", "p2p start freq=5180 width=80"});
        ASSERT_EQ(outcome(headset), Outcome::GoesOn);
        headset.playAll({"p2p stop", "disconnect"});
        headset.expectLog("E", "Failed to start ");
        RefusingDaemon::refuse(daemon.calls->thread, 0);
        ASSERT_EQ(outcome(headset), Outcome::GoesOn) << "refused thread " << number;
        ASSERT_FALSE(HasFailure()) << "refused thread " << number;
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
