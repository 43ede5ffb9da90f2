// A daemon that can't register ends, at once and in order, whatever is under way. Under the
// sanitizers: and nothing is used after it was freed, or lost.

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/component/Features.h"
#include "tests/component/Headset.h"
#include "tests/support/Program.h"

using namespace std::chrono_literals;
using component::Headset;
using component::LogLine;
using test::Program;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/** Far below the 300 s that the listener sleeps when nothing wakes it. */
constexpr std::chrono::seconds kPromptly{10};

const LogLine kFailed{"E", "service: Failed to register as a service."};

void expectPromptEnd(Headset& headset) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(headset.runDaemonToItsEnd(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kPromptly);
    EXPECT_THAT(headset.log("service: ", "E"), testing::ElementsAre(kFailed));
}

TEST(Shutdown, WithoutTheFolderInWhichServicesMeet) {
    Headset headset;
    headset.play("folder hwbinder remove");
    expectPromptEnd(headset);
}

TEST(Shutdown, WithEverythingSwitchedOn) {
    Headset headset;
    headset.playAll(component::everythingOn());
    headset.play("folder hwbinder remove");
    expectPromptEnd(headset);
}

TEST(Shutdown, BesideASupplicant) {
    Headset headset;
    headset.playAll({"stats start", "supplicant start p2p=p2p0", "folder hwbinder remove"});
    expectPromptEnd(headset);
}

TEST(Shutdown, OfASecondDaemonLeavesTheFirstAlone) {
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    for (int i = 0; i < 3; ++i) {
        Program second({"/bin/sh", "-c", "exec \"$0\" 2>&1", component::daemonPath()},
                       {{"CORVID_WIFI_ROOT=" + headset.root()}, {}, {}});
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_THAT(second.readOutput(), HasSubstr("service: Failed to register as a service."));
        EXPECT_EQ(second.wait(), 1);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, kPromptly);
    }
    EXPECT_EQ(headset.call("getP2pInfo").status, 0);
    headset.settle();
}

TEST(Shutdown, OfADeadDaemonFreesTheNameForTheNext) {
    Headset headset;
    headset.startDaemon();
    headset.play("daemon kill");
    headset.expectDaemonToEnd();
    headset.startDaemon();
    EXPECT_EQ(headset.call("getP2pInfo").status, 0);
}

/**
 * A daemon that can't register, but does not know yet: its registration is held up (HoldFlock.c)
 * until release(), while the listener thread is at work.
 */
class Held : public testing::Test {
  protected:
    void start(Headset& headset) {
        headset.play("folder hwbinder create");
        holder_ = headset.root() + "/dev/hold-flock";
        ASSERT_EQ(mkfifo(holder_.c_str(), 0600), 0);
        // Another daemon has the name.
        headset.startDaemon();
        second_ = std::make_unique<Program>(
            std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" 2>&1", component::daemonPath()},
            Program::Options{
                {"CORVID_WIFI_ROOT=" + headset.root(), "ANDROID_LOG_TAGS=*:V",
                 "LD_PRELOAD=" HOLD_FLOCK ":" NL80211_REDIRECT, "HOLD_FLOCK=" + holder_},
                {},
                {}});
    }

    /**
     * Until the second_ daemon is connected as well as held: the listener thread may connect before
     * the main thread has made the managers, which would miss the events that come then.
     */
    void waitUntilItIsConnectedAndHeld(const Headset& headset) {
        const std::string connected =
            "Connected to supplicant socket: " + headset.socketFolder() + "/wlan0";
        bool isConnected = false;
        bool isHeld = false;
        while (!isConnected || !isHeld) {
            const auto line = second_->readLine();
            ASSERT_TRUE(line) << "the daemon ended";
            isConnected = isConnected || line->find(connected) != std::string::npos;
            isHeld = isHeld || *line == "held";
        }
    }

    /** Reads the second_ daemon's log up to a line with `text`. */
    void readUpTo(const std::string& text) {
        for (auto line = second_->readLine(); line; line = second_->readLine()) {
            if (line->find(text) != std::string::npos) {
                return;
            }
        }
        FAIL() << "the daemon ended without " << text;
    }

    /** Lets the registration fail; the rest of the daemon's output. */
    std::string release() {
        const auto begin = std::chrono::steady_clock::now();
        const Program writer({"/bin/sh", "-c", "exec 3>\"$0\"", holder_});
        const std::string rest = second_->readOutput();
        EXPECT_EQ(second_->wait(), 1);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, kPromptly);
        // Behind the error line, everything is taken down: the sockets leave their loop last.
        const size_t failed = rest.find("service: Failed to register as a service.");
        EXPECT_NE(failed, std::string::npos);
        for (const char* kind : {"STA", "P2P"}) {
            const size_t gone = rest.find(std::string("[WPA-") + kind +
                                          "] Deinitialized wpa socket reconnect timer");
            EXPECT_NE(gone, std::string::npos) << kind;
            EXPECT_GT(gone, failed) << kind;
        }
        EXPECT_THAT(rest, testing::Not(HasSubstr("Sanitizer")));
        return rest;
    }

    std::string holder_;
    std::unique_ptr<Program> second_;
};

TEST_F(Held, EndsWhileConnectedAndEventsAreInFlight) {
    Headset headset;
    headset.playAll(component::everythingOn());
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    start(headset);
    waitUntilItIsConnectedAndHeld(headset);
    headset.expectConnection("wlan0");
    headset.play("connect freq=5180 width=80");
    readUpTo("StaManager: STA event(CONNECTED)");
    headset.forget();
    headset.playAll({"burst wlan0 300 CTRL-EVENT-CONNECTED - Connection to {n} completed",
                     "burst p2p0 300 P2P-GROUP-STARTED p2p-wlan0-0 GO freq=5180 {n}",
                     "burst wlan0 300 CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=wlan0 width={n}"});
    release();
    // It takes no leave of the supplicant, which finds out by itself.
    EXPECT_EQ(headset.count("command", "DETACH"), 0u);
    for (const auto& record : headset.sim().records("detach")) {
        EXPECT_EQ(record["why"], "dropped");
    }
}

TEST_F(Held, EndsWhileTheSensorLibraryHangs) {
    Headset headset;
    headset.playAll({"supplicant start", "property persist.vendor.wifi.mipiclock.enable true",
                     "property debug.sensors.camera.notify hang"});
    start(headset);
    waitUntilItIsConnectedAndHeld(headset);
    headset.expectConnection("wlan0");
    headset.play("connect freq=5745");
    readUpTo("MipiClockManager: (1/5) notify new clock:1");
    const auto begin = std::chrono::steady_clock::now();
    const std::string rest = release();
    // One attempt takes 2 s, and five of them 10.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 8s);
    EXPECT_THAT(rest, HasSubstr("MipiClockManager: CameraProvider: no response"));
    EXPECT_THAT(rest, testing::Not(HasSubstr("MipiClockManager: notification failed 5 times")));
}

TEST_F(Held, EndsWhileTheSupplicantComesAndGoes) {
    Headset headset;
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    start(headset);
    waitUntilItIsConnectedAndHeld(headset);
    headset.playAll({"connect freq=5180", "supplicant restart", "supplicant crash"});
    readUpTo("Failed to open wpa_supplicant control interface.");
    release();
}

}  // namespace
