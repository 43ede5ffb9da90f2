// What a client asks of the P2P link through the daemon: another channel, airtime, priority for a
// stream. Each call is followed to the command that leaves the daemon, and back to its status.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/component/Headset.h"

using component::Headset;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kOk = R"({"code":0,"description":""})";
constexpr const char* kFailed = R"({"code":1,"description":""})";

constexpr const char* kSupplicantSwitch = "persist.vendor.wifi.cmd.cs.p2p.corvid";
constexpr const char* kVendorSwitch = "persist.vendor.wifi.cmd.cs.p2p.ecsa";
constexpr const char* kNoa = "persist.vendor.wifi.cmd.noa.p2p";
constexpr const char* kIncreaseBw = "persist.vendor.wifi.cmd.mcc.p2p.increase.bw";
constexpr const char* kQuota = "persist.vendor.wifi.cmd.mcc.quota";
constexpr const char* kScs = "persist.vendor.wifi.scs.enable";

class P2pLink : public testing::Test {
  protected:
    /** The daemon with these switches on, the station connected and a group on p2p-wlan0-0. */
    void start(const std::vector<std::string>& switches) {
        for (const std::string& name : switches) {
            headset_.play("property " + name + " true");
        }
        headset_.playAll({"stats start", "supplicant start"});
        headset_.startDaemon();
        headset_.expectConnection();
        headset_.playAll({"connect freq=5180 width=80 rssi=-48 ip=192.168.49.23",
                          "p2p start freq=5180 width=20"});
        headset_.expectConnection("p2p-wlan0-0");
        headset_.expectRecord("event", "P2P-GROUP-STARTED");
        headset_.settle();
    }

    std::string call(const std::string& text) { return headset_.call(text).output; }

    /** The commands on wlan0 so far that contain `part`. */
    std::vector<std::string> commands(const std::string& part) { return texts_("command", part); }
    /** The vendor commands or frames so far, in words. */
    std::vector<std::string> netlink(const std::string& part) { return texts_("netlink", part); }

    Headset headset_;

  private:
    std::vector<std::string> texts_(const std::string& kind, const std::string& part) {
        std::vector<std::string> found;
        for (const auto& record : headset_.sim().records(kind)) {
            if (record.text().find(part) != std::string::npos) {
                found.push_back(record.text());
            }
        }
        return found;
    }
};

TEST_F(P2pLink, ASwitchIsAskedOfTheSupplicantAndSeenByTheRegisteredClient) {
    start({kSupplicantSwitch});
    headset_.play("monitor start");
    headset_.expectRecord("callback", R"({"event":"registered"})");
    EXPECT_EQ(call("startCsa 149 80"), kOk);
    EXPECT_THAT(
        commands("CHAN_SWITCH"),
        ElementsAre("CORVID_P2P_CHAN_SWITCH 0 5745 bandwidth=80 center_freq1=5775 vht_enabled=1"));
    headset_.play("p2p switch freq=5745 width=80");
    headset_.expectRecord(
        "callback", R"({"event":"onChannelSwitch","frequency":5745,"width":80,"isP2p":true})");
    EXPECT_EQ(call("getP2pInfo"), R"({"frequency":5745,"bandwidth":-1})");
    headset_.play("channel switch freq=5500 width=40");
    headset_.expectRecord(
        "callback", R"({"event":"onChannelSwitch","frequency":5500,"width":40,"isP2p":false})");
    EXPECT_EQ(call("getP2pInfo"), R"({"frequency":5745,"bandwidth":-1})");
    EXPECT_THAT(headset_.dump(), HasSubstr("\tChannelSwitchManager.onChannelSwitch: "));
}

TEST_F(P2pLink, ASwitchThatTheSupplicantDoesNotGrantFails) {
    start({kSupplicantSwitch});
    for (const char* reply : {"fail", "empty", "unknown"}) {
        headset_.play(std::string("reply CORVID_P2P_CHAN_SWITCH ") + reply);
        EXPECT_EQ(call("startCsa 36 20"), kFailed) << reply;
    }
    EXPECT_EQ(headset_.log("ChannelSwitchManager: startCsa failed", "E").size(), 3U);
    headset_.play("reply CORVID_P2P_CHAN_SWITCH default");
    EXPECT_EQ(call("startCsa 36 20"), kOk);
    headset_.forget();
    EXPECT_EQ(call("startCsa 36 160"), kFailed);
    EXPECT_EQ(call("startCsa 145 40"), kFailed);
    EXPECT_THAT(commands("CHAN_SWITCH"), IsEmpty()) << "refused before anything is sent";
    headset_.expectLog("E", "ChannelSwitchCommand: Unsupported bandwidth 160");
    headset_.expectLog("E",
                       "ChannelSwitchCommand: Frequency 5725 MHz is not a 5 GHz channel that "
                       "supports 40 MHz");
}

TEST_F(P2pLink, ASwitchGoesToTheDriverWhenItsCommandIsSwitchedOn) {
    start({kVendorSwitch, kSupplicantSwitch});
    EXPECT_EQ(call("startCsa 149 80"), kOk);
    EXPECT_THAT(netlink("VENDOR"),
                ElementsAre(EndsWith(" oui=0x001018 subcmd=2 data: "
                                     "0=\"ifname=p2p-wlan0-0 P2P_ECSA 149 80\"")));
    headset_.play("netlink error vendor EOPNOTSUPP times=1");
    EXPECT_EQ(call("startCsa 149 80"), kFailed);
    EXPECT_THAT(commands("CHAN_SWITCH"), IsEmpty());
}

TEST_F(P2pLink, TheNoticeOfAbsenceIsSetAgainAfterAScanAlsoWhenItFailedAtFirst) {
    start({kNoa});
    headset_.play("netlink error vendor EBUSY times=1");
    EXPECT_EQ(call("setP2pNoa 255 0 100"), kFailed);
    headset_.play("scan");
    headset_.expectRecords(2, "netlink", "P2P_SET_NOA 255 0 100");
    headset_.expectLog("D",
                       "CorvidWifiClient: NL80211: ifname=p2p-wlan0-0 cmd=[P2P_SET_NOA 255 0 "
                       "100] oui=0x001018");
    EXPECT_EQ(call("setP2pNoa 0 0 0"), kOk);
    EXPECT_EQ(call("setP2pNoa 1 10 100"), kFailed);
    headset_.expectLog("E", "NoaManager: fixed count 1 not supported yet.");
    headset_.play("scan");
    headset_.expectRecords(2, "netlink", "P2P_SET_NOA 0 0 0");
}

TEST_F(P2pLink, TheQuotaIsAskedOfTheSupplicant) {
    start({kQuota});
    EXPECT_EQ(call("setMccTimeAllocation 70"), kOk);
    EXPECT_EQ(call("setMccTimeAllocation 4294967295"), kOk);
    EXPECT_THAT(commands("MCC_QUOTA"),
                ElementsAre("DRIVER MCC_QUOTA set iface p2p-wlan0-0 quota 30",
                            "DRIVER MCC_QUOTA set iface p2p-wlan0-0 quota 101"));
}

TEST_F(P2pLink, TheShareOfAirtimeGoesToTheDriverWhenItsCommandIsSwitchedOn) {
    start({kQuota, kIncreaseBw});
    EXPECT_EQ(call("setMccTimeAllocation 70"), kOk);
    EXPECT_THAT(netlink("VENDOR"), ElementsAre(EndsWith("0=\"ifname=wlan0 P2P_INCREASE_BW 70\"")));
    EXPECT_THAT(commands("MCC_QUOTA"), IsEmpty());
}

TEST_F(P2pLink, AStreamIsGivenPriorityAndLosesIt) {
    start({kScs});
    EXPECT_EQ(call("setScsV4 10.0.0.1 4660 192.168.49.1 70000 46 17"), R"({"id":0})");
    EXPECT_EQ(call("setScsV4 10.0.0.1 4660 192.168.49.1 50000 46 17"), R"({"id":1})");
    EXPECT_EQ(call("setScsV6 fe80::1 4660 fe80::2 50000 0 46 17"), R"({"id":-1})");
    EXPECT_EQ(call("clearScs 0"), kOk);
    EXPECT_EQ(call("clearScs 0"), kFailed);
    const std::string header =
        "d0000000"
        "020000000100"
        "020000000000"
        "020000000100"
        "0000"
        "1300fb";
    const std::string stream =
        "b91a0a00"
        "b80104"
        "0e13"
        "04045f04"
        "c0a83101"
        "c0a83117";
    EXPECT_THAT(netlink("FRAME"),
                ElementsAre(EndsWith(" 41=0d frame(55)=" + header + stream + "000012342e1100"),
                            EndsWith(" 41=0d frame(55)=" + header + stream + "c35012342e1100"),
                            EndsWith(" 41=0d frame(31)=" + header + "b9020a01")));
}

TEST_F(P2pLink, StreamsAreForgottenAtADisconnectionAndRefusedUntilTheNextConnection) {
    start({kScs});
    EXPECT_EQ(call("setScsV4 10.0.0.1 4660 192.168.49.1 50000 46 17"), R"({"id":0})");
    headset_.play("disconnect");
    headset_.expectLog("I", "ScsManager: STA event(DISCONNECTED ");
    headset_.settle();
    EXPECT_EQ(call("clearScs 0"), kFailed);
    headset_.expectLog("W", "ScsManager: ScsProfileId 0 not found.");
    EXPECT_EQ(call("setScsV4 10.0.0.1 4660 192.168.49.1 50000 46 17"), R"({"id":-2})");
    headset_.expectLog("W", "ScsManager: Cannot parse bssid from wpa_supplicant STATUS reply.");
    headset_.play("connect freq=5180 rssi=-48");
    EXPECT_EQ(call("setScsV4 10.0.0.1 4660 192.168.49.1 50000 46 17"), R"({"id":0})");
    EXPECT_EQ(netlink("FRAME").size(), 2U);
}

TEST_F(P2pLink, WithoutItsSwitchesEveryCallFails) {
    start({});
    EXPECT_EQ(call("startCsa 149 80"), kFailed);
    EXPECT_EQ(call("setP2pNoa 255 0 100"), kFailed);
    EXPECT_EQ(call("setMccTimeAllocation 70"), kFailed);
    EXPECT_EQ(call("setScsV4 10.0.0.1 1 10.0.0.2 2 0 17"), R"({"id":-1})");
    EXPECT_EQ(call("clearScs 0"), kFailed);
    EXPECT_THAT(netlink("VENDOR"), IsEmpty());
    EXPECT_THAT(netlink("FRAME"), IsEmpty());
}

}  // namespace
