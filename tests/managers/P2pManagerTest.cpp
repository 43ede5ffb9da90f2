#include "managers/P2pManager.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class P2pManagerTest : public ManagerTest {
  protected:
    P2pManager manager_{client_};
};

TEST_F(P2pManagerTest, AssumesTheCompanionDeviceUntilToldOtherwise) {
    EXPECT_TRUE(manager_.isP2pPairedDeviceType(P2pDeviceType::HALBERD));
    EXPECT_FALSE(manager_.isP2pPairedDeviceType(P2pDeviceType::NONE));
}

TEST_F(P2pManagerTest, KnowsOfNoGroupAtFirst) {
    P2pInfo info = {1, 1};
    manager_.getP2pInfo(info);
    EXPECT_EQ(info.frequency, -1);
    EXPECT_EQ(info.bandwidth, -1);
}

TEST_F(P2pManagerTest, RemembersBothFieldsOfTheGroup) {
    manager_.setP2pInfo({5180, 80});
    P2pInfo info;
    manager_.getP2pInfo(info);
    EXPECT_EQ(info.frequency, 5180);
    EXPECT_EQ(info.bandwidth, 80);
}

TEST_F(P2pManagerTest, ShowsBothFieldsOfTheGroupFromTheSameChange) {
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int32_t i = 0; !stop; ++i) {
            manager_.setP2pInfo({i, i});
        }
    });
    int torn = 0;
    for (int i = 0; i < 100'000; ++i) {
        P2pInfo info;
        manager_.getP2pInfo(info);
        torn += info.frequency == info.bandwidth ? 0 : 1;
    }
    stop = true;
    writer.join();
    EXPECT_EQ(torn, 0);
}

TEST_F(P2pManagerTest, RefusesADeviceTypeAboveUnknownAndKeepsTheStoredOne) {
    ASSERT_TRUE(manager_.setP2pPairedDeviceType(P2pDeviceType::MIRACAST));
    log_.clear();

    EXPECT_FALSE(manager_.setP2pPairedDeviceType(static_cast<P2pDeviceType>(4)));

    EXPECT_TRUE(manager_.isP2pPairedDeviceType(P2pDeviceType::MIRACAST));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(P2pManagerTest, TakesEveryTypeUpToUnknownAndLogsItsName) {
    for (const auto type : {P2pDeviceType::NONE, P2pDeviceType::HALBERD, P2pDeviceType::MIRACAST,
                            P2pDeviceType::UNKNOWN}) {
        EXPECT_TRUE(manager_.setP2pPairedDeviceType(type));
        EXPECT_TRUE(manager_.isP2pPairedDeviceType(type));
    }
    EXPECT_THAT(infos(), ElementsAre("P2pManager: set p2p paired device to NONE",
                                     "P2pManager: set p2p paired device to HALBERD",
                                     "P2pManager: set p2p paired device to MIRACAST",
                                     "P2pManager: set p2p paired device to UNKNOWN"));
}

TEST_F(P2pManagerTest, DumpsTheGroupAndNotThePairedType) {
    std::string text = "before\n";
    EXPECT_TRUE(manager_.dumpInfo(text));
    EXPECT_EQ(text, "before\n\tP2P frequency: -1\n\tP2P bandwidth: -1\n");

    manager_.setP2pInfo({2437, 20});
    text.clear();
    EXPECT_TRUE(manager_.dumpInfo(text));
    EXPECT_EQ(text, "\tP2P frequency: 2437\n\tP2P bandwidth: 20\n");
}

TEST_F(P2pManagerTest, FollowsNoEventByItself) {
    startP2p();
    deliver(NetInterfaceType::P2P, "P2P-GROUP-STARTED p2p-wlan0-0 GO ssid=\"x\" freq=5180");
    P2pInfo info;
    manager_.getP2pInfo(info);
    EXPECT_EQ(info.frequency, -1);
}

}  // namespace

}  // namespace Ursa::OS::Wifi
