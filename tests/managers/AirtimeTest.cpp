// The two managers that divide the radio's airtime.

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>
#include <utility>

#include <linux/nl80211.h>

#include "managers/MccTimeManager.h"
#include "managers/NoaManager.h"
#include "tests/managers/PrivateCommandBytes.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kNoa[] = "persist.vendor.wifi.cmd.noa.p2p";
constexpr char kIncreaseBw[] = "persist.vendor.wifi.cmd.mcc.p2p.increase.bw";
constexpr char kQuota[] = "persist.vendor.wifi.cmd.mcc.quota";

class AirtimeTest : public ManagerTest {
  protected:
    AirtimeTest() { nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"}); }

    /** What follows the header of each vendor command so far. */
    std::vector<test::Bytes> vendorCommands() const {
        std::vector<test::Bytes> found;
        for (const auto& request : nl80211_.requests(NL80211_CMD_VENDOR)) {
            found.push_back(request.attributes);
        }
        return found;
    }

    /** A whole text of a driver command to the group or to the station. */
    static test::Bytes toGroup(const std::string& text) {
        return test::privateCommandBytes("p2p-wlan0-0", "ifname=p2p-wlan0-0 " + text);
    }
    static test::Bytes toStation(const std::string& text) {
        return test::privateCommandBytes("wlan0", "ifname=wlan0 " + text);
    }
};

// Notice of absence

class NoaManagerTest : public AirtimeTest {
  protected:
    NoaManagerTest() { root_.setProperty(kNoa, "true"); }

    void deliverScan() { deliver(NetInterfaceType::STA, "CTRL-EVENT-SCAN-RESULTS "); }

    NoaManager manager_{client_};
};

TEST_F(NoaManagerTest, SendsTheScheduleOnTheGroupsInterface) {
    EXPECT_TRUE(manager_.setP2pNoa(255, 0, 100));
    EXPECT_THAT(vendorCommands(), ElementsAre(toGroup("P2P_SET_NOA 255 0 100")));
    EXPECT_EQ(debugs(), (std::vector<std::string>{"NoaManager: setP2pNoa(255, 0, 100)",
                                                  "CorvidWifiClient: NL80211: ifname=p2p-wlan0-0 "
                                                  "cmd=[P2P_SET_NOA 255 0 100] oui=0x001018"}));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(NoaManagerTest, PassesTheValuesOnUnchanged) {
    EXPECT_TRUE(manager_.setP2pNoa(0, 4294967295, 7));
    EXPECT_THAT(vendorCommands(), ElementsAre(toGroup("P2P_SET_NOA 0 4294967295 7")));
}

TEST_F(NoaManagerTest, ATextOf30CharactersIsSentUnpadded) {
    nl80211_.setInterfaces({"wlan0", "p2p0"});
    const std::string text = "ifname=p2p0 P2P_SET_NOA 0 0 10";
    ASSERT_EQ(text.size(), 30U);
    EXPECT_TRUE(manager_.setP2pNoa(0, 0, 10));
    EXPECT_THAT(vendorCommands(), ElementsAre(test::privateCommandBytes("p2p0", text)));
}

TEST_F(NoaManagerTest, AnyCountBut0And255IsRefusedAndNotStored) {
    for (const unsigned count : {1U, 2U, 100U, 254U, 256U, 4294967295U}) {
        log_.clear();
        EXPECT_FALSE(manager_.setP2pNoa(count, 10, 100));
        EXPECT_THAT(errors(), ElementsAre("NoaManager: fixed count " + std::to_string(count) +
                                          " not supported yet."));
        EXPECT_THAT(debugs(),
                    ElementsAre("NoaManager: setP2pNoa(" + std::to_string(count) + ", 10, 100)"));
    }
    deliverScan();
    EXPECT_THAT(vendorCommands(), IsEmpty());
}

TEST_F(NoaManagerTest, ARefusedCountLeavesTheStoredScheduleInPlace) {
    EXPECT_TRUE(manager_.setP2pNoa(255, 0, 100));
    EXPECT_FALSE(manager_.setP2pNoa(3, 1, 2));
    deliverScan();
    EXPECT_THAT(vendorCommands(),
                ElementsAre(toGroup("P2P_SET_NOA 255 0 100"), toGroup("P2P_SET_NOA 255 0 100")));
}

TEST_F(NoaManagerTest, TheScheduleIsSentAgainAfterEachScan) {
    EXPECT_TRUE(manager_.setP2pNoa(255, 0, 100));
    deliverScan();
    deliverScan();
    EXPECT_TRUE(manager_.setP2pNoa(0, 1, 2));
    deliverScan();
    EXPECT_THAT(vendorCommands(),
                ElementsAre(toGroup("P2P_SET_NOA 255 0 100"), toGroup("P2P_SET_NOA 255 0 100"),
                            toGroup("P2P_SET_NOA 255 0 100"), toGroup("P2P_SET_NOA 0 1 2"),
                            toGroup("P2P_SET_NOA 0 1 2")));
}

TEST_F(NoaManagerTest, AScanWithoutAScheduleSendsNothing) {
    deliver(NetInterfaceType::STA, "CTRL-EVENT-SCAN-RESULTS of today");
    EXPECT_THAT(vendorCommands(), IsEmpty());
    EXPECT_THAT(debugs(), ElementsAre("NoaManager: onScanEnded(of today)"));
    EXPECT_TRUE(composition_->ran("NoaManager.onStaScanEnded"));
}

TEST_F(NoaManagerTest, AScheduleThatCouldNotBeSentIsTriedAgainAfterTheNextScan) {
    nl80211_.refuse(NL80211_CMD_VENDOR, -EBUSY);
    EXPECT_FALSE(manager_.setP2pNoa(255, 0, 100));
    EXPECT_THAT(errors(), Contains("CorvidWifiClient: Failed to send vendor command to driver."));
    nl80211_.refuse(NL80211_CMD_VENDOR, 0);
    log_.clear();
    deliverScan();
    EXPECT_THAT(vendorCommands(), SizeIs(2));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(NoaManagerTest, AScheduleSetWithoutAGroupIsTriedAgainAfterTheNextScan) {
    nl80211_.setInterfaces({"wlan0"});
    EXPECT_FALSE(manager_.setP2pNoa(255, 0, 100));
    EXPECT_THAT(errors(), ElementsAre("CorvidWifiClient: P2P interface not found. Ignoring NlCmd "
                                      "[P2P_SET_NOA 255 0 100]."));
    nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
    deliverScan();
    EXPECT_THAT(vendorCommands(), ElementsAre(toGroup("P2P_SET_NOA 255 0 100")));
}

TEST_F(NoaManagerTest, WithThePropertyOffNothingIsSentButTheScheduleIsStored) {
    root_.unsetProperty(kNoa);
    EXPECT_FALSE(manager_.setP2pNoa(255, 0, 100));
    deliverScan();
    const std::string line = "NoaManager: setP2pNoa is not supported.";
    EXPECT_THAT(errors(), ElementsAre(line, line));
    EXPECT_THAT(nl80211_.kernel().requests(), IsEmpty());

    root_.setProperty(kNoa, "true");
    deliverScan();
    EXPECT_THAT(vendorCommands(), ElementsAre(toGroup("P2P_SET_NOA 255 0 100")));
}

TEST_F(NoaManagerTest, ScansAndCallsAtOnceSendOnlyWholeSchedules) {
    EXPECT_TRUE(manager_.setP2pNoa(0, 0, 0));
    std::thread calls([this] {
        for (unsigned i = 1; i <= 50; ++i) {
            manager_.setP2pNoa(255, i, i);
        }
    });
    for (int i = 0; i < 20; ++i) {
        deliverScan();
    }
    calls.join();
    std::vector<test::Bytes> whole = {toGroup("P2P_SET_NOA 0 0 0")};
    for (unsigned i = 1; i <= 50; ++i) {
        const std::string value = std::to_string(i);
        whole.push_back(toGroup("P2P_SET_NOA 255 " + value + " " + value));
    }
    const auto sent = vendorCommands();
    EXPECT_EQ(sent.size(), 71U);
    for (const auto& command : sent) {
        EXPECT_THAT(whole, Contains(command));
    }
}

// Multi-channel concurrency

class MccTimeManagerTest : public AirtimeTest {
  protected:
    MccTimeManager manager_{client_};
};

TEST_F(MccTimeManagerTest, WithoutEitherPropertyNothingIsSent) {
    EXPECT_FALSE(manager_.setMccTimeAllocation(70));
    EXPECT_THAT(errors(), ElementsAre("MccTimeManager: no match MCC Allocation command."));
    EXPECT_THAT(nl80211_.kernel().requests(), IsEmpty());
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(MccTimeManagerTest, TheVendorCommandCarriesTheValueUnchangedOnTheStationsInterface) {
    root_.setProperty(kIncreaseBw, "true");
    const std::pair<unsigned, const char*> cases[] = {{0, "P2P_INCREASE_BW 0"},
                                                      {30, "P2P_INCREASE_BW 30"},
                                                      {100, "P2P_INCREASE_BW 100"},
                                                      {101, "P2P_INCREASE_BW 101"},
                                                      {4294967295, "P2P_INCREASE_BW 4294967295"}};
    for (const auto& [value, text] : cases) {
        log_.clear();
        EXPECT_TRUE(manager_.setMccTimeAllocation(value));
        EXPECT_EQ(vendorCommands().back(), toStation(text));
        EXPECT_THAT(infos(), ElementsAre("MccTimeManager: MCC allocation command P2P_INCREASE_BW.",
                                         std::string("MccTimeManager: ") + text));
    }
    EXPECT_THAT(vendorCommands(), SizeIs(5));
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(MccTimeManagerTest, ARefusedVendorCommandIsAFailure) {
    root_.setProperty(kIncreaseBw, "true");
    nl80211_.refuse(NL80211_CMD_VENDOR, -EINVAL);
    EXPECT_FALSE(manager_.setMccTimeAllocation(70));
    EXPECT_THAT(vendorCommands(), SizeIs(1));
}

TEST_F(MccTimeManagerTest, TheVendorCommandGoesFirstWhenBothPropertiesAreSet) {
    root_.setProperty(kIncreaseBw, "true");
    root_.setProperty(kQuota, "true");
    EXPECT_TRUE(manager_.setMccTimeAllocation(70));
    EXPECT_THAT(vendorCommands(), SizeIs(1));
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(MccTimeManagerTest, TheQuotaGivesTheGroupTheRestAndWrapsAbove100) {
    root_.setProperty(kQuota, "true");
    const std::pair<unsigned, const char*> cases[] = {
        {0, "100"}, {30, "70"}, {70, "30"}, {100, "0"}, {101, "4294967295"}, {4294967295, "101"}};
    std::vector<std::string> expected;
    for (const auto& [value, rest] : cases) {
        log_.clear();
        EXPECT_TRUE(manager_.setMccTimeAllocation(value));
        expected.push_back(std::string("DRIVER MCC_QUOTA set iface p2p-wlan0-0 quota ") + rest);
        EXPECT_THAT(infos(), ElementsAre("MccTimeManager: MCC allocation command MCC_QUOTA.",
                                         "MccTimeManager: cmd:" + expected.back() + " reply:OK\n"));
    }
    EXPECT_EQ(sta_.commands(), expected);
    EXPECT_THAT(vendorCommands(), IsEmpty());
}

TEST_F(MccTimeManagerTest, NameOfAQuotaThatWaitsIsNotWrittenWhenAnotherIsFound) {
    root_.setProperty(kQuota, "true");
    std::atomic<int> dumps{0};
    nl80211_.kernel().answer([&](const test::NetlinkRequest& request) -> std::vector<test::Bytes> {
        const char* name = dumps++ == 0 ? "p2p-wlan0-0" : "p2p0";
        return {test::dumpEntry(request, NL80211_CMD_NEW_INTERFACE,
                                test::attribute(NL80211_ATTR_IFNAME, test::terminatedText(name))),
                test::done(request)};
    });
    // Another command keeps the quota from being sent, so that its thread does nothing after it
    // has read the name that would order it before the other thread's dump.
    std::promise<void> held;
    std::promise<void> released;
    sta_.socket().answerCommands([&](const std::string& command) {
        if (command == "HOLD") {
            held.set_value();
            released.get_future().wait();
        }
        return "OK\n";
    });
    std::thread holder([&] {
        std::string reply;
        EXPECT_TRUE(client_->sendWpaCtrlCmd("HOLD", reply, NetInterfaceType::STA));
    });
    held.get_future().wait();
    std::thread caller([&] { EXPECT_TRUE(manager_.setMccTimeAllocation(70)); });
    EXPECT_TRUE(test::waitUntil([&] { return dumps == 1; }));
    EXPECT_STREQ(client_->getNl80211Client()->getNetInterfaceName(NetInterfaceType::P2P), "p2p0");
    released.set_value();
    holder.join();
    caller.join();

    EXPECT_THAT(infos(), Contains("MccTimeManager: cmd:DRIVER MCC_QUOTA set iface p2p-wlan0-0 "
                                  "quota 30 reply:OK\n"));
}

TEST_F(MccTimeManagerTest, TheReplyToTheQuotaIsNotLookedAt) {
    root_.setProperty(kQuota, "true");
    for (const char* reply : {"FAIL\n", "", "-1"}) {
        sta_.answer("DRIVER MCC_QUOTA set iface p2p-wlan0-0 quota 30", reply);
        EXPECT_TRUE(manager_.setMccTimeAllocation(70)) << reply;
    }
}

TEST_F(MccTimeManagerTest, AQuotaThatCannotBeSentIsAFailure) {
    root_.setProperty(kQuota, "true");
    sta_.fail("DRIVER MCC_QUOTA set iface p2p-wlan0-0 quota 30");
    EXPECT_FALSE(manager_.setMccTimeAllocation(70));
    EXPECT_THAT(infos(), Contains("MccTimeManager: cmd:DRIVER MCC_QUOTA set iface p2p-wlan0-0 "
                                  "quota 30 reply:ERROR: SEND-RECV"));
}

TEST_F(MccTimeManagerTest, WithoutAGroupTheQuotaIsNotSent) {
    nl80211_.setInterfaces({"wlan0"});
    root_.setProperty(kQuota, "true");
    EXPECT_FALSE(manager_.setMccTimeAllocation(70));
    EXPECT_THAT(errors(), ElementsAre("MccTimeManager: cannot find P2P interface"));
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(MccTimeManagerTest, ReadsThePropertiesAtEachCall) {
    EXPECT_FALSE(manager_.setMccTimeAllocation(70));
    root_.setProperty(kQuota, "true");
    EXPECT_TRUE(manager_.setMccTimeAllocation(70));
    root_.setProperty(kIncreaseBw, "true");
    EXPECT_TRUE(manager_.setMccTimeAllocation(70));
    EXPECT_THAT(sta_.commands(), SizeIs(1));
    EXPECT_THAT(vendorCommands(), SizeIs(1));
}

}  // namespace

}  // namespace Ursa::OS::Wifi
