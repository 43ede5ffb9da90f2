#include <cerrno>
#include <string>
#include <vector>

#include <linux/nl80211.h>

#include "managers/TxChainManager.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

namespace {

using test::Bytes;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kStarted[] = "P2P-GROUP-STARTED p2p-wlan0-0 GO ssid=\"DIRECT-xy\" freq=5180 ";

class TxChainManagerTest : public ManagerTest {
  protected:
    TxChainManagerTest() {
        startP2p();
        nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
        set("enable.p2p", "true");
        set("qualcomm", "true");
    }

    void set(const std::string& property, const std::string& value) const {
        root_.setProperty("persist.vendor.wifi.txchain." + property, value);
    }

    size_t sent() const { return nl80211_.requests(NL80211_CMD_VENDOR).size(); }
};

}  // namespace

TEST_F(TxChainManagerTest, AGroupIsLimitedToOneChainByTheseBytes) {
    const TxChainManager manager(client_);
    deliver(NetInterfaceType::P2P, kStarted);
    const auto requests = nl80211_.requests(NL80211_CMD_VENDOR);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].type, test::FakeNl80211::kFamily);
    EXPECT_EQ(requests[0].version, 0);
    const Bytes expected = {
        8,    0, 3,    0,    0,    0,    0, 0,  // interface: the host has none of that name
        8,    0, 0xc3, 0,    0x74, 0x13, 0, 0,  // vendor 0x001374
        8,    0, 0xc4, 0,    74,   0,    0, 0,  // subcommand
        0x1c, 0, 0xc5, 0x80,                    // vendor data, nested
        5,    0, 73,   0,    1,    0,    0, 0,  // one chain, three times
        5,    0, 74,   0,    1,    0,    0, 0,  //
        5,    0, 70,   0,    1,    0,    0, 0,
    };
    EXPECT_EQ(requests[0].attributes, expected);
}

TEST_F(TxChainManagerTest, LogsTheGroupAndTheOutcome) {
    const TxChainManager manager(client_);
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_THAT(infos(), ElementsAre("TxChainManager: P2P event(CONNECTED)",
                                     "TxChainManager: setTxChain nTx=1 success"));
    log_.clear();
    nl80211_.refuse(NL80211_CMD_VENDOR, -EOPNOTSUPP);
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_THAT(infos(), ElementsAre("TxChainManager: P2P event(CONNECTED)",
                                     "TxChainManager: setTxChain nTx=1 fail"));
    EXPECT_EQ(sent(), 2U);
    EXPECT_TRUE(composition_->ran("TxChainManager.onP2pStarted"));
}

TEST_F(TxChainManagerTest, WithoutAP2pInterfaceEverSeenTheClientRefuses) {
    nl80211_.setInterfaces({"wlan0"});
    const TxChainManager manager(client_);
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_EQ(sent(), 0U);
    EXPECT_THAT(errors(),
                ElementsAre("CorvidWifiClient: P2P interface not found. Ignoring NlCmd []."));
    EXPECT_THAT(infos(), ElementsAre("TxChainManager: P2P event(CONNECTED)",
                                     "TxChainManager: setTxChain nTx=1 fail"));
}

TEST_F(TxChainManagerTest, TheToggleGatesLaterGroups) {
    TxChainManager manager(client_);
    manager.toggleFeature(false);
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_EQ(sent(), 0U);
    EXPECT_THAT(infos(), ElementsAre("TxChainManager: P2P event(CONNECTED)"));
    manager.toggleFeature(true);
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_EQ(sent(), 1U);
}

TEST_F(TxChainManagerTest, WhetherTheDriverTakesTheCommandIsReadAtEachGroup) {
    const TxChainManager manager(client_);
    set("qualcomm", "false");
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_EQ(sent(), 0U);
    set("qualcomm", "true");
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_EQ(sent(), 1U);
}

TEST_F(TxChainManagerTest, WhetherGroupsAreFollowedIsReadAtConstruction) {
    set("enable.p2p", "false");
    const TxChainManager off(client_);
    set("enable.p2p", "true");
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_EQ(sent(), 0U);
    EXPECT_THAT(infos(), IsEmpty());
    const TxChainManager on(client_);
    set("enable.p2p", "false");
    deliver(NetInterfaceType::P2P, kStarted);
    EXPECT_EQ(sent(), 1U);
}

TEST_F(TxChainManagerTest, OnlyTheStartOfAGroupCounts) {
    const TxChainManager manager(client_);
    deliver(NetInterfaceType::P2P, "AP-CSA-FINISHED freq=5180 dfs=0");
    deliver(NetInterfaceType::P2P, "P2P-GROUP-REMOVED p2p-wlan0-0 GO reason=REQUESTED");
    EXPECT_EQ(sent(), 0U);
}

TEST_F(TxChainManagerTest, WritesNothingIntoTheDump) {
    TxChainManager manager(client_);
    std::string text;
    EXPECT_FALSE(manager.dumpInfo(text));
    EXPECT_EQ(text, "");
}

}  // namespace Ursa::OS::Wifi
