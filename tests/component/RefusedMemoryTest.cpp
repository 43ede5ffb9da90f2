// A daemon that is refused memory or a thread at one place of its way, at each in turn: it goes on,
// or its process ends with an error. It never stands still, and never answers wrongly afterwards.

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "tests/component/FailCalls.h"
#include "tests/component/Features.h"
#include "tests/component/Headset.h"
#include "tests/support/IdleCallback.h"
#include "tests/support/TempFolder.h"
#include "tests/support/WaitUntil.h"
#include "tools/Methods.h"

using namespace std::chrono_literals;
using android::sp;
using component::Headset;
using Ursa::OS::Wifi::Tools::bindCall;
using Ursa::OS::Wifi::Tools::IWifi;
using Ursa::OS::Wifi::Tools::requireAnswer;
using Ursa::OS::Wifi::Tools::ServiceError;
using vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback;
using vendor::corvid::hardware::wifi::V1_0::Status;

namespace {

/** The sanitizers' allocators stand before ours. */
constexpr bool kSanitized = CORVID_SANITIZED;

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

    /**
     * The call with the number `first` from now on fails, and those up to `last`; 0: none. Returns
     * how many calls were counted since the last time.
     */
    static long refuse(FailedCall& call, long first, long last) {
        __atomic_store_n(&call.firstFail, 0, __ATOMIC_SEQ_CST);
        const long count = __atomic_exchange_n(&call.count, 0, __ATOMIC_SEQ_CST);
        __atomic_store_n(&call.lastFail, last, __ATOMIC_SEQ_CST);
        __atomic_store_n(&call.firstFail, first, __ATOMIC_SEQ_CST);
        return count;
    }
    static long refuse(FailedCall& call, long number) { return refuse(call, number, number); }

    FailCalls* calls = nullptr;

  private:
    test::TempFolder folder_;
};

/** What became of a daemon that was refused something once. */
enum class Outcome {
    GoesOn,  ///< it handles events
    Ended,   ///< its process has ended, with an error
    Stuck,
};

/**
 * An event that meets the refusal may be lost. One of these is not, if the daemon goes on. Records
 * of its beginning must be forgotten.
 */
Outcome outcome(Headset& headset) {
    for (int i = 0; i < 100; ++i) {
        headset.play("assoc started ifname=mark");
        const auto seen = headset.sim().waitFor(
            [](const simtest::SimRecord& record) {
                return record.kind() == "program" ||
                       record.text().find("'mark' is not a p2p") != std::string::npos;
            },
            100ms);
        if (seen) {
            return seen->kind() == "program" ? Outcome::Ended : Outcome::GoesOn;
        }
    }
    return Outcome::Stuck;
}

/** How a process ends that has no memory: std::terminate, or an exit status. */
bool isOrderlyEnd(Headset& headset) {
    const auto end = headset.daemonEnd();
    return end && (end->text() == "the daemon was killed by signal 6" ||
                   end->text() == "the daemon ended with status 1");
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

TEST(Refused, MemoryAnywhereOnTheRoadOfAnEventNeverLeavesADaemonThatIsStuck) {
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
    EXPECT_LE(ended, 8);
}

TEST(Refused, ThreadAnywhereOnTheRoadOfAnEventIsLoggedAndTheDaemonGoesOn) {
    RefusingDaemon daemon;
    Headset headset(daemon.script());
    headset.startWithEveryFeature();
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

/** Every fourth place, so that four cases share the work. */
class RefusedAtTheStart : public testing::TestWithParam<int> {};

/**
 * Starts the daemon, and waits until it serves calls and handles events, or has ended. One that
 * goes on is killed.
 */
Outcome playStart(Headset& headset) {
    headset.launchDaemon();
    const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
    while (IWifi::tryGetService() == nullptr) {
        if (headset.daemonEnd()) {
            return Outcome::Ended;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return Outcome::Stuck;
        }
        std::this_thread::sleep_for(2ms);
    }
    // Earlier events would be lost. Without memory for this line, half a second is.
    headset.sim().waitFor(
        [&](const simtest::SimRecord& record) {
            return record.text() ==
                   "[WPA-STA] Connected to supplicant socket: " + headset.socketFolder() + "/wlan0";
        },
        500ms);
    if (headset.daemonEnd()) {
        return Outcome::Ended;
    }
    headset.forget();
    return outcome(headset);
}

TEST_P(RefusedAtTheStart, MemoryAnywhereLetsTheDaemonGoOnOrEndsItsProcess) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer's allocator stands before ours";
    }
    RefusingDaemon daemon;
    Headset headset(daemon.script());
    headset.expectDaemonToEnd();
    setenv("CORVID_WIFI_ROOT", headset.root().c_str(), 1);
    headset.playAll(component::everythingOn());
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    ASSERT_EQ(playStart(headset), Outcome::GoesOn);
    const long calls = RefusingDaemon::refuse(daemon.calls->memory, 0);
    ASSERT_GT(calls, 700);
    int ended = 0;
    for (long number = GetParam(); number <= calls; number += 4) {
        headset.killDaemon();
        RefusingDaemon::refuse(daemon.calls->memory, number);
        const Outcome result = playStart(headset);
        RefusingDaemon::refuse(daemon.calls->memory, 0);
        ASSERT_NE(result, Outcome::Stuck) << "refused call " << number << " of " << calls;
        if (result == Outcome::Ended) {
            ++ended;
            ASSERT_TRUE(isOrderlyEnd(headset)) << "refused call " << number << " of " << calls;
        }
    }
    RecordProperty("calls", std::to_string(calls));
    RecordProperty("ended", std::to_string(ended));
}

INSTANTIATE_TEST_SUITE_P(Quarter, RefusedAtTheStart, testing::Values(1, 2, 3, 4));

/** A client's call, made from here; the answer as a text. */
struct ClientCall {
    const char* name;
    std::function<std::string(IWifi&)> call;
};

void PrintTo(const ClientCall& call, std::ostream* out) { *out << call.name; }

ClientCall plainCall(const char* name, const std::vector<std::string>& words) {
    return {name, [words](IWifi& service) { return bindCall(words)(service).json; }};
}

/** Threads and the camera's clock come and go, so only that the dump is whole. */
std::string dumpIsWhole(IWifi& service) {
    const std::string text = bindCall({"dumpInfo"})(service).json;
    const bool whole = text.find("AssocStartedManager: Enabled") != std::string::npos &&
                       text.find("Process and Thread ID") != std::string::npos;
    return whole ? "whole" : "cut short";
}

/** A profile and its end. One whose answer was lost before is ended first. */
std::string setAndClearScs(IWifi& service) {
    const auto clear = bindCall({"clearScs", "0"});
    clear(service);
    const std::string set = bindCall({"setScsV4", "192.168.49.23", "4660", "192.168.49.1", "50000",
                                      "46", "17"})(service)
                                .json;
    return set + clear(service).json;
}

/** The codes of a registration and its end. */
std::string registerAndUnregister(IWifi& service) {
    const sp<ICorvidWifiManagerCallback> listener = new test::IdleCallback;
    std::string codes;
    for (auto method :
         {&IWifi::registerCorvidWifiManagerCallback, &IWifi::unregisterCorvidWifiManagerCallback}) {
        requireAnswer((service.*method)(
            listener, [&](const Status& status) { codes += std::to_string(status.code) + " "; }));
    }
    return codes;
}

class RefusedInACall : public testing::TestWithParam<ClientCall> {};

TEST_P(RefusedInACall, MemoryAnywhereFailsTheCallAtMost) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer's allocator stands before ours";
    }
    RefusingDaemon daemon;
    Headset headset(daemon.script());
    setenv("CORVID_WIFI_ROOT", headset.root().c_str(), 1);
    headset.playAll(component::everythingOn());
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    const auto call = [&]() -> std::string {
        const sp<IWifi> service = IWifi::tryGetService();
        try {
            return service == nullptr ? "no service" : GetParam().call(*service);
        } catch (const ServiceError&) {
            return "no answer";
        }
    };
    headset.expectDaemonToEnd();
    std::string usual;
    const auto start = [&] {
        headset.startDaemon();
        headset.expectConnection("wlan0");
        headset.expectConnection("p2p0");
        headset.playAll({"connect freq=5180 width=80 rssi=-48", "p2p start freq=5180 width=80"});
        headset.forget();
        ASSERT_EQ(outcome(headset), Outcome::GoesOn);
        ASSERT_TRUE(test::waitUntil(
            [&] { return headset.call("getP2pInfo").output.find("5180") != std::string::npos; }));
        // The first call makes what is made once.
        usual = call();
        RefusingDaemon::refuse(daemon.calls->memory, 0);
        ASSERT_EQ(call(), usual);
    };
    start();
    const long calls = RefusingDaemon::refuse(daemon.calls->memory, 0);
    ASSERT_GT(calls, 5);
    int failed = 0;
    int ended = 0;
    for (long number = 1; number <= calls; ++number) {
        headset.forget();
        RefusingDaemon::refuse(daemon.calls->memory, number);
        failed += call() == usual ? 0 : 1;
        RefusingDaemon::refuse(daemon.calls->memory, 0);
        // The connection of a call that failed may have gone: the first one may not get through.
        ASSERT_TRUE(test::waitUntil([&] { return headset.daemonEnd() || call() == usual; }))
            << "refused call " << number << " of " << calls;
        const Outcome result = headset.daemonEnd() ? Outcome::Ended : outcome(headset);
        ASSERT_NE(result, Outcome::Stuck) << "refused call " << number << " of " << calls;
        if (result == Outcome::Ended) {
            ++ended;
            ASSERT_TRUE(isOrderlyEnd(headset)) << "refused call " << number << " of " << calls;
            headset.playAll({"p2p stop", "disconnect"});
            start();
            ASSERT_FALSE(HasFatalFailure());
        }
    }
    RecordProperty("calls", std::to_string(calls));
    RecordProperty("failed", std::to_string(failed));
    RecordProperty("ended", std::to_string(ended));
    // Only a platform library does that: libutils, when there is no memory for a reference count.
    EXPECT_LE(ended, 6);
}

INSTANTIATE_TEST_SUITE_P(
    Refused, RefusedInACall,
    testing::Values(ClientCall{"dumpInfo", dumpIsWhole}, plainCall("getP2pInfo", {"getP2pInfo"}),
                    plainCall("getStaInfo", {"getStaInfo"}),
                    plainCall("isP2pPairedDeviceType", {"isP2pPairedDeviceType", "MIRACAST"}),
                    plainCall("setElnaBypass", {"setElnaBypass", "1"}),
                    plainCall("setMccTimeAllocation", {"setMccTimeAllocation", "30"}),
                    ClientCall{"registerAndUnregister", registerAndUnregister},
                    ClientCall{"setAndClearScs", setAndClearScs},
                    plainCall("setP2pNoa", {"setP2pNoa", "255", "0", "50"}),
                    plainCall("setP2pPairedDeviceType", {"setP2pPairedDeviceType", "MIRACAST"}),
                    plainCall("startCsa", {"startCsa", "149", "80"}),
                    plainCall("updateTxPowerConfig", {"updateTxPowerConfig", "true"})),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Refused, LineOfASignalHandlerNeedsNoMemoryAlsoWhenItsLevelIsLookedUp) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer's allocator stands before ours";
    }
    RefusingDaemon daemon;
    Headset headset(daemon.script());
    headset.startDaemon();
    const auto signalUntil = [&](bool shown) {
        return test::waitUntil([&] {
            headset.forget();
            headset.play("daemon signal 12");
            const auto seen = headset.sim().waitFor(
                [](const simtest::SimRecord& record) {
                    return record.text().find("Received a signal: 12") != std::string::npos;
                },
                100ms);
            return seen.has_value() == shown;
        });
    };
    ASSERT_TRUE(signalUntil(true));
    RefusingDaemon::refuse(daemon.calls->memory, 0);
    // Nothing else is logged: the level is looked up inside the handler.
    headset.play("property log.tag.CorvidWifi E");
    EXPECT_TRUE(signalUntil(false));
    headset.play("property log.tag.CorvidWifi V");
    EXPECT_TRUE(signalUntil(true));
    EXPECT_EQ(RefusingDaemon::refuse(daemon.calls->memory, 0), 0);
}

TEST(Refused, AllMemoryForASecondLeavesAFewLinesAndNoDaemonThatIsStuck) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer's allocator stands before ours";
    }
    RefusingDaemon daemon;
    Headset headset(daemon.script());
    headset.expectDaemonToEnd();
    headset.startWithEveryFeature();
    ASSERT_EQ(playEvents(headset), Outcome::GoesOn);
    headset.forget();
    RefusingDaemon::refuse(daemon.calls->memory, 1, LONG_MAX);
    // Without a socket of its own the daemon has to look at the folder again and again.
    headset.playAll(
        {"connect freq=5180 width=80 rssi=-48", "socket delete wlan0", "socket delete p2p0"});
    std::this_thread::sleep_for(1s);
    RefusingDaemon::refuse(daemon.calls->memory, 0);
    const size_t lines = headset.log("Listener failed and goes on").size();
    EXPECT_LE(lines, 40U);
    headset.play("supplicant restart");
    if (headset.daemonEnd()) {
        EXPECT_TRUE(isOrderlyEnd(headset));  // by a platform library
        return;
    }
    EXPECT_GE(lines, 1U);
    headset.expectConnection("wlan0");
    headset.forget();
    EXPECT_EQ(outcome(headset), Outcome::GoesOn);
}

}  // namespace
