// The daemon beside supplicants that are late, absent, broken or talk nonsense.

#include <algorithm>
#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/component/Headset.h"

using namespace std::chrono_literals;
using component::Headset;
using component::LogLine;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kOpenFailed = "[WPA-STA] Failed to open wpa_supplicant control interface.";
constexpr const char* kAttachFailed =
    "[WPA-STA] Failed to register as event monitor for wpa_supplicant control interface.";

/** The levels that say something is wrong. */
std::vector<LogLine> complaints(Headset& headset) {
    std::vector<LogLine> lines = headset.log("", "E");
    const std::vector<LogLine> warnings = headset.log("", "W");
    lines.insert(lines.end(), warnings.begin(), warnings.end());
    return lines;
}

TEST(Supplicant, SocketsInTheFolderAtStartAreConnectedTo) {
    Headset headset;
    headset.playAll({"stats start", "supplicant start p2p=p2p0"});
    headset.startDaemon();
    headset.expectConnection("wlan0");
    headset.expectConnection("p2p0");
    headset.expectLog("I", "WpaClient: wpa STA socket file (" + headset.socketFolder() +
                               "/wlan0) exists. Try to connect now");
    headset.expectLog("I", "WpaClient: wpa P2P socket file (" + headset.socketFolder() +
                               "/p2p0) exists. Try to connect now");
    headset.expectLog(
        "I", "[WPA-STA] Update wpa socket file path: " + headset.socketFolder() + "/wlan0");
    headset.expectLog("I", "[WPA-STA] Start connecting to supplicant in 25 ms");
    EXPECT_THAT(headset.log("is created"), IsEmpty());
    EXPECT_THAT(headset.log("[WPA-STA] Enter new wpa client state"),
                ElementsAre(LogLine{"D",
                                    "[WPA-STA] Enter new wpa client state 'Idle' (old "
                                    "'Stopped')"},
                            LogLine{"D",
                                    "[WPA-STA] Enter new wpa client state 'Connecting' (old "
                                    "'Idle')"},
                            LogLine{"D",
                                    "[WPA-STA] Enter new wpa client state 'Connected' (old "
                                    "'Connecting')"}));
    EXPECT_THAT(complaints(headset), IsEmpty());
}

TEST(Supplicant, AbsentOneIsFoundWhenItAppears) {
    Headset headset;
    headset.startDaemon();
    headset.expectLog("I", "WpaClient: Started monitoring wpa socket directory");
    EXPECT_THAT(headset.call("getStaInfo").output,
                "{\"frequency\":-1,\"rssi\":-1,\"bandwidth\":0}");
    headset.expectLog("E", "StaManager: Failed to send SIGNAL_POLL command");
    headset.play("supplicant start");
    headset.expectLog("I", "WpaClient: Wpa socket for STA (wlan0) is created");
    headset.expectConnection();
    headset.play("connect freq=5180 rssi=-48");
    EXPECT_THAT(headset.call("getStaInfo").output, HasSubstr("\"frequency\":5180,\"rssi\":-48"));
}

TEST(Supplicant, TerminatedOneIsLeftWithoutComplaintAndFoundAgain) {
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    headset.play("supplicant terminate");
    headset.expectLog("I", "[WPA-STA] Supplicant exited gracefully");
    headset.expectLog("I", "WpaClient: Wpa socket for STA (wlan0) is deleted");
    headset.expectLog("I", "[WPA-STA] Reset wpa socket file path");
    headset.expectLog("I", "[WPA-STA] Disconnecting supplicant socket");
    headset.expectLog("I", "StaManager: STA event(DISCONNECTED-sockettype=STA)");
    EXPECT_THAT(headset.log("", "W"), IsEmpty());
    headset.forget();
    headset.play("supplicant start");
    headset.expectConnection();
}

TEST(Supplicant, MissingFolderLeavesADaemonThatServesItsCallers) {
    Headset headset;
    headset.play("folder sockets remove");
    headset.startDaemon();
    headset.expectLog("E",
                      "WpaClient: Failed to init wpa socket directory watch descriptor: err 2");
    EXPECT_THAT(headset.log("Started monitoring"), IsEmpty());
    EXPECT_THAT(headset.dump(), HasSubstr("StaManager: Enabled\n\tSTA frequency: -1\n"));
    // Nobody watches: a supplicant that comes now is not seen.
    headset.playAll({"supplicant start", "expect no attach wlan0 within 500ms"});
    EXPECT_EQ(headset.call("getP2pInfo").status, 0);
}

TEST(Supplicant, SocketsOfOtherNamesAreIgnored) {
    Headset headset;
    headset.playAll({"socket create wlan1", "socket create p2p-dev-wlan0"});
    headset.startDaemon();
    headset.playAll({"socket create p2p-wlan0-x", "socket create xwlan0", "socket create wlan00",
                     "socket create p2p-wlan0-", "socket create p2p01"});
    // Records come in the order of what happened: had one been taken up, it would stand first.
    headset.play("supplicant start");
    headset.expectConnection();
    EXPECT_THAT(headset.log("exists. Try to connect now"), IsEmpty());
    EXPECT_THAT(headset.log("is created"),
                ElementsAre(LogLine{"I", "WpaClient: Wpa socket for STA (wlan0) is created"}));
}

TEST(Supplicant, NewP2pSocketRetargetsTheP2pConnection) {
    Headset headset;
    headset.play("supplicant start p2p=p2p0");
    headset.startDaemon();
    headset.expectConnection("p2p0");
    headset.play("socket create p2p-wlan0-3");
    headset.expectLog("I", "WpaClient: Wpa socket for P2P (p2p-wlan0-3) is created");
    headset.expectConnection("p2p-wlan0-3");
    headset.expectRecord("detach", "p2p0");
    // Whichever matching file goes, the P2P connection ends.
    headset.forget();
    headset.play("socket delete p2p0");
    headset.expectLog("I", "WpaClient: Wpa socket for P2P (p2p0) is deleted");
    headset.expectLog("I", "[WPA-P2P] Disconnecting supplicant socket");
    headset.expectRecord("detach", "p2p-wlan0-3");
}

TEST(Supplicant, SocketWithNobodyBehindItIsTriedEvery50MsWithOneErrorLineEach) {
    Headset headset;
    headset.playAll({"socket create wlan0", "socket abandon wlan0"});
    headset.startDaemon();
    headset.expectRecords(5, "log", kOpenFailed);
    // Each failed attempt also tells the subscribers that there is no connection.
    headset.expectRecords(5, "log", "StaManager: STA event(DISCONNECTED-sockettype=STA)");
    const auto failures = headset.sim().records("log");
    std::vector<double> times;
    for (const auto& record : failures) {
        if (record.text() == kOpenFailed) {
            times.push_back(record.t());
        }
    }
    ASSERT_GE(times.size(), 5u);
    // Four pauses of 50 ms; how much longer depends on the machine.
    EXPECT_GE(times[4] - times[0], 0.19);
    headset.play("supplicant start");
    headset.expectConnection();
    headset.forget();
    headset.settle();
    EXPECT_THAT(headset.log(kOpenFailed), IsEmpty());
}

TEST(Supplicant, RefusedMonitorIsAskedForUntilItIsGranted) {
    Headset headset;
    headset.playAll({"supplicant start", "reply ATTACH fail times=3"});
    headset.startDaemon();
    headset.expectConnection();
    EXPECT_THAT(headset.log(kAttachFailed),
                ElementsAre(LogLine{"E", kAttachFailed}, LogLine{"E", kAttachFailed},
                            LogLine{"E", kAttachFailed}));
    const size_t descriptors = headset.daemonFigures().descriptors();
    headset.forget();
    headset.playAll({"reply ATTACH fail times=3", "supplicant restart"});
    headset.expectConnection();
    EXPECT_EQ(headset.daemonFigures().descriptors(), descriptors);
}

TEST(Supplicant, UnansweredCommandTimesOutAfterTenSeconds) {
    Headset headset;
    headset.playAll({"supplicant start", "reply SIGNAL_POLL none"});
    headset.startDaemon();
    headset.expectConnection();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(headset.call("getStaInfo").output, "{\"frequency\":-1,\"rssi\":-1,\"bandwidth\":0}");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 10s);
    headset.expectLog("E", "StaManager: Failed to send SIGNAL_POLL command");
    // The connection stays; the next command is answered, and not by the late reply.
    headset.play("reply SIGNAL_POLL default");
    headset.play("connect freq=5745 rssi=-60");
    headset.settle(60s);  // the connected handler polls
    EXPECT_THAT(headset.call("getStaInfo").output, HasSubstr("\"frequency\":5745,\"rssi\":-60"));
    EXPECT_THAT(headset.log("Disconnecting supplicant socket"), testing::SizeIs(1));
}

TEST(Supplicant, LateReplyIsNotTakenForTheNextCommand) {
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    const size_t descriptors = headset.daemonFigures().descriptors();
    headset.play("supplicant suspend");
    EXPECT_EQ(headset.call("getStaInfo").output, "{\"frequency\":-1,\"rssi\":-1,\"bandwidth\":0}");
    headset.play("reply SIGNAL_POLL \"RSSI=-45\\nFREQUENCY=5180\\n\" times=1");
    headset.play("supplicant resume");
    headset.expectRecord("command", "SIGNAL_POLL");  // the late reply
    headset.play("reply SIGNAL_POLL \"RSSI=-80\\nFREQUENCY=5745\\n\"");
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(headset.call("getStaInfo").output,
                    HasSubstr("\"frequency\":5745,\"rssi\":-80"));
    }
    EXPECT_LE(headset.daemonFigures().descriptors(), descriptors);
    EXPECT_THAT(headset.log("Disconnecting supplicant socket"), testing::SizeIs(1));
}

TEST(Supplicant, LargeReplyIsReadAsFarAsItFits) {
    Headset headset;
    headset.playAll({"supplicant start", "reply SIGNAL_POLL too-long"});
    headset.startDaemon();
    headset.expectConnection();
    EXPECT_EQ(headset.call("getStaInfo").output, "{\"frequency\":-1,\"rssi\":-1,\"bandwidth\":0}");
    headset.expectLog("E",
                      "StaManager: failed to parse frequency and RSSI from SIGNAL_POLL response");
    headset.play("reply SIGNAL_POLL default");
    headset.play("connect freq=5180 rssi=-50");
    EXPECT_THAT(headset.call("getStaInfo").output, HasSubstr("\"frequency\":5180,\"rssi\":-50"));
}

TEST(Supplicant, ReplyWithoutNumbersCountsAsNone) {
    Headset headset;
    headset.playAll(
        {"supplicant start", "reply SIGNAL_POLL \"RSSI=x\\nFREQUENCY=99999999999\\n\""});
    headset.startDaemon();
    headset.expectConnection();
    EXPECT_EQ(headset.call("getStaInfo").status, 0);
    headset.expectLog("E",
                      "StaManager: failed to parse frequency and RSSI from SIGNAL_POLL response");
    headset.play("connect freq=5180");
    headset.settle();
}

TEST(Supplicant, GarbageEventsChangeNothing) {
    Headset headset;
    headset.play("property persist.vendor.wifi.cmd.cs.p2p.corvid true");
    headset.play("supplicant start p2p=p2p0");
    headset.startDaemon();
    headset.expectConnection("wlan0");
    headset.expectConnection("p2p0");
    headset.settle();
    headset.forget();
    for (const char* socket : {"wlan0", "p2p0"}) {
        for (const char* bytes :
             {"\"\"", "\"<\"", "\"<3\"", "\"<3>\"", "\"<3>\\x00\"", "\"\\x00\\xff\\xfe\\x80\"",
              "size=4096 fill=0xff", "size=4096 fill=0x00", "size=4096 fill=0x25",
              "size=4095 fill=0x41", "size=0", "size=3 fill=0x3c", "\"<3>%s%n%s%n\"",
              "\"<3>CTRL-EVENT-CONNECTED\"", "\"CTRL-EVENT-CONNECTED \"",
              "\"<3>CTRL-EVENT-UNKNOWN x\"", "\"<3>\\x00CTRL-EVENT-CONNECTED x\""}) {
            headset.play(std::string("raw ") + socket + " " + bytes);
        }
    }
    // These have a known beginning; what follows is not what it should be.
    headset.playAll({
        "event wlan0 \"CTRL-EVENT-CHANNEL-SWITCH \"",
        "event wlan0 \"CTRL-EVENT-CHANNEL-SWITCH freq=x ifname=wlan0 width=20\"",
        "event wlan0 \"CTRL-EVENT-CHANNEL-SWITCH freq=99999999999999 ifname=\\xff\\xfe width=\"",
        "event wlan0 \"CTRL-EVENT-REGDOM-CHANGE \"",
        "event wlan0 \"CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=USA\"",
        "event wlan0 \"CTRL-EVENT-ASSOC-STARTED \"",
        "event wlan0 \"CTRL-EVENT-ASSOC-STARTED ifname=p1234567890123456789012345678901234567890\"",
        "event p2p0 \"CTRL-EVENT-REGDOM-CHANGE =\"",
        "event p2p0 \"P2P-GROUP-STARTED \"",
        "event p2p0 \"AP-CSA-FINISHED \"",
    });
    headset.settle();
    EXPECT_EQ(headset.call("getP2pInfo").output, "{\"frequency\":-1,\"bandwidth\":-1}");
    EXPECT_THAT(headset.log("Disconnecting supplicant socket"), IsEmpty());
    EXPECT_THAT(headset.log("Failed to receive"), IsEmpty());
    EXPECT_THAT(headset.log("STA event(CONNECTED"), IsEmpty());
    headset.expectLog("E", "ChannelSwitchManager: invalid channel switch event");
    headset.expectRecords(2, "log", "RegdomManager: invalid regdom updated event");
    headset.expectLog("I", "AssocStartedManager: '' is not a p2p interface => ignore the event");
    // And the connections still work.
    headset.play("connect freq=5180 rssi=-48");
    headset.expectLog("I", "StaManager: STA event(CONNECTED)");
}

TEST(Supplicant, SocketMadeTwiceWhileConnectedIsConnectedToAfresh) {
    Headset headset;
    headset.play("supplicant start");
    headset.startDaemon();
    headset.expectConnection();
    headset.settle();
    headset.forget();
    headset.play("supplicant restart");  // the socket file is replaced
    headset.expectConnection();
    headset.expectLog("I", "StaManager: STA event(DISCONNECTED-sockettype=STA)");
    headset.settle();
    EXPECT_EQ(headset.count("attach", "wlan0"), 1u);
}

}  // namespace
