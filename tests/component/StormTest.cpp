// Much of everything: bursts of events, and a supplicant that crashes again and again.

#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/component/Headset.h"
#include "tests/support/Emulated.h"

using namespace std::chrono_literals;
using component::Headset;
using component::ProcessFigures;
using testing::IsEmpty;

namespace {

/** Sanitizers keep what was freed for a while, an emulator what it translated, so memory says
 * nothing there, and they are slow. */
constexpr bool kEncumbered = CORVID_SANITIZED || test::kEmulated;

TEST(Storm, TenThousandEventsInOneBurstAllArriveInOrder) {
    constexpr size_t kEvents = 10'000;
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    headset.play("burst wlan0 10000 CTRL-EVENT-ASSOC-STARTED ifname=wlan{n}");
    headset.expectRecord("burst", "done", 120s);
    headset.settle(120s);
    const auto lines = headset.log("is not a p2p interface");
    ASSERT_EQ(lines.size(), kEvents + 1);
    // {n} counts from the same number that the first one has.
    const auto number = [&](size_t i) {
        return std::stoul(lines[i].text.substr(lines[i].text.find("'wlan") + 5));
    };
    for (size_t i = 1; i < kEvents; ++i) {
        ASSERT_EQ(number(i), number(0) + i);
    }
}

TEST(Storm, TenThousandEventsOfNetworksFoundDontHideWhatMatters) {
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    headset.settle();
    headset.forget();
    headset.playAll({"burst wlan0 5000 CTRL-EVENT-BSS-ADDED {n} 02:00:00:00:00:01",
                     "burst wlan0 5000 CTRL-EVENT-BSS-REMOVED {n} 02:00:00:00:00:01",
                     "connect freq=5180"});
    headset.expectLog("I", "StaManager: STA event(CONNECTED)", 60s);
    headset.settle(60s);
    EXPECT_THAT(headset.log("STA event(DISCONNECTED"), IsEmpty());
}

TEST(Storm, ConnectionsAndDisconnectionsInOneBurstLeaveWhatTheLastOneSays) {
    Headset headset;
    headset.playAll({"stats start", "supplicant start"});
    headset.startDaemon();
    headset.expectConnection();
    headset.settle();
    headset.forget();
    for (int i = 0; i < 100; ++i) {
        headset.playAll({"connect freq=5180", "disconnect"});
    }
    headset.settle(60s);
    EXPECT_EQ(headset.log("STA event(CONNECTED)").size(), 100u);
    EXPECT_EQ(headset.log("STA event(DISCONNECTED-").size(), 100u);
    EXPECT_EQ(headset.daemonFigures().threads(), 2u) << "the worker of a link that has ended";
    headset.expectRecords(100, "atom", "WIFI_STA_CONNECTED");
}

TEST(Storm, ASupplicantThatCrashesAThousandTimesLeavesNothingBehind) {
    constexpr int kCrashes = kEncumbered ? 100 : 1000;
    constexpr int kWarmUp = kCrashes / 5;
    Headset headset;
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    headset.startDaemon();
    headset.expectConnection("wlan0");
    headset.expectConnection("p2p0");

    const auto figuresWithoutALink = [&] {
        headset.play("disconnect");
        headset.settle();
        return headset.daemonFigures();
    };
    ProcessFigures before(headset.daemonPid());
    for (int i = 0; i < kCrashes; ++i) {
        headset.play("connect freq=5180 width=80 rssi=-48");
        // Not into the middle of a command: its answer would be waited for.
        headset.expectRecord("atom", "WIFI_STA_CONNECTED");
        if (i == kWarmUp) {
            before = figuresWithoutALink();
        }
        headset.forget();
        headset.play("supplicant restart");
        headset.expectConnection("wlan0");
        headset.expectConnection("p2p0");
        ASSERT_FALSE(HasFatalFailure()) << "after " << i << " crashes";
    }
    headset.play("connect freq=5180");
    const ProcessFigures after = figuresWithoutALink();
    EXPECT_EQ(after.descriptors(), before.descriptors());
    EXPECT_EQ(after.threads(), 2u);
    if (!kEncumbered) {
        EXPECT_LE(after.anonymousKiB(), before.anonymousKiB() + 64);
    }
    RecordProperty("anonymousKiB", std::to_string(before.anonymousKiB()) + " then " +
                                       std::to_string(after.anonymousKiB()));

    // The library makes a file for each connection; the four that are open have one.
    EXPECT_EQ(component::controlClientFiles(headset.daemonPid()).size(), 4u);

    headset.forget();
    headset.play("connect freq=5745 rssi=-60");
    headset.expectLog("I", "StaManager: STA event(CONNECTED)");
}

}  // namespace
