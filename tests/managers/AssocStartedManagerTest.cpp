#include "managers/AssocStartedManager.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class AssocStartedManagerTest : public ManagerTest {
  protected:
    /** Delivers the event with this text behind its name. */
    void assocStarted(const std::string& text) {
        deliver(NetInterfaceType::STA, "CTRL-EVENT-ASSOC-STARTED " + text);
    }

    void link() { ASSERT_TRUE(manager_.linkAssocStartedCallback(listener_)); }

    AssocStartedManager manager_{client_};
    std::atomic<int> calls_{0};
    AssocStartedManager::Listener listener_ = [this] { ++calls_; };
};

TEST_F(AssocStartedManagerTest, AP2pInterfaceCallsTheListenerOnce) {
    link();
    assocStarted("ifname=p2p-wlan0-3");
    EXPECT_EQ(calls_, 1);
    EXPECT_THAT(debugs(), ElementsAre("AssocStartedManager: onAssocStarted(ifname=p2p-wlan0-3)",
                                      "AssocStartedManager: Notify p2p assoc started event"));
}

TEST_F(AssocStartedManagerTest, TheStationsInterfaceIsIgnored) {
    link();
    assocStarted("ifname=wlan0");
    EXPECT_EQ(calls_, 0);
    EXPECT_THAT(infos(), ElementsAre("AssocStartedManager: 'wlan0' is not a p2p interface => "
                                     "ignore the event"));
}

TEST_F(AssocStartedManagerTest, AnEventWithoutANameIsIgnored) {
    link();
    assocStarted("bssid=02:00:00:00:01:00");
    assocStarted("ifname=");
    EXPECT_EQ(calls_, 0);
    const std::string line = "AssocStartedManager: '' is not a p2p interface => ignore the event";
    EXPECT_THAT(infos(), ElementsAre(line, line));
}

TEST_F(AssocStartedManagerTest, ANameIsReadUpTo15Characters) {
    link();
    assocStarted("ifname=wlan0123456789abcdef");
    EXPECT_THAT(infos(), ElementsAre("AssocStartedManager: 'wlan0123456789a' is not a p2p "
                                     "interface => ignore the event"));
    assocStarted("ifname=p2p-wlan0-123456789abcdef");
    EXPECT_EQ(calls_, 1);
}

TEST_F(AssocStartedManagerTest, AnEventThatNobodyListensToIsAnError) {
    assocStarted("ifname=p2p-wlan0-3");
    EXPECT_THAT(errors(), ElementsAre("AssocStartedManager: no callback for assoc started event"));
    EXPECT_THAT(debugs(), ElementsAre("AssocStartedManager: onAssocStarted(ifname=p2p-wlan0-3)"));
}

TEST_F(AssocStartedManagerTest, WithoutAListenerTheInterfaceIsNotLookedAt) {
    assocStarted("ifname=wlan0");
    EXPECT_THAT(errors(), ElementsAre("AssocStartedManager: no callback for assoc started event"));
    EXPECT_THAT(infos(), IsEmpty());
}

TEST_F(AssocStartedManagerTest, ASecondListenerIsRefusedUntilTheFirstIsUnlinked) {
    link();
    std::atomic<int> others{0};
    AssocStartedManager::Listener other = [&] { ++others; };
    EXPECT_FALSE(manager_.linkAssocStartedCallback(other));
    EXPECT_THAT(errors(),
                ElementsAre("AssocStartedManager: callback exists => cannot link new one"));
    assocStarted("ifname=p2p0");
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(others, 0);

    manager_.unlinkAssocStartedCallback();
    EXPECT_TRUE(manager_.linkAssocStartedCallback(other));
    assocStarted("ifname=p2p0");
    EXPECT_EQ(calls_, 1);
    EXPECT_EQ(others, 1);
}

TEST_F(AssocStartedManagerTest, TheListenerIsCopied) {
    link();
    listener_ = nullptr;
    assocStarted("ifname=p2p0");
    EXPECT_EQ(calls_, 1);
}

TEST_F(AssocStartedManagerTest, AListenerMayUnlinkItselfFromItsOwnCall) {
    // What a listener holds must last to the end of the call in which it lets go of it.
    std::string seen;
    {
        AssocStartedManager::Listener listener = [this, &seen, held = std::string(100, 'x')] {
            manager_.unlinkAssocStartedCallback();
            seen = held;
        };
        ASSERT_TRUE(manager_.linkAssocStartedCallback(listener));
    }
    assocStarted("ifname=p2p0");
    EXPECT_EQ(seen, std::string(100, 'x'));
    assocStarted("ifname=p2p0");
    EXPECT_THAT(errors(), Contains("AssocStartedManager: no callback for assoc started event"));
}

TEST_F(AssocStartedManagerTest, NotesItsTask) {
    assocStarted("ifname=wlan0");
    EXPECT_TRUE(composition_->ran("AssocStartedManager.onAssocStarted"));
}

TEST_F(AssocStartedManagerTest, ListensToTheStationsSocketOnly) {
    startP2p();
    link();
    p2p_->sendEvent("CTRL-EVENT-ASSOC-STARTED ifname=p2p-wlan0-0");
    deliver(NetInterfaceType::P2P, "P2P-GROUP-REMOVED p2p-wlan0-0 GO");  // behind it
    EXPECT_EQ(calls_, 0);
}

TEST_F(AssocStartedManagerTest, HasNothingToDump) {
    std::string text = "before";
    EXPECT_FALSE(manager_.dumpInfo(text));
    EXPECT_EQ(text, "before");
}

}  // namespace

}  // namespace Ursa::OS::Wifi
