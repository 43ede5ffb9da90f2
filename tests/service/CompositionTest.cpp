#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "managers/AllManagers.h"
#include "service/CorvidWifiManager.h"
#include "tests/service/FakeClient.h"
#include "tests/support/FeatureSwitches.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

/** The insides of a composition root. */
class CorvidWifiManagerTestPeer {
  public:
    static void link(CorvidWifiManager& manager) { manager.linkCallback_(); }

    /** Which slots hold a manager, in slot order. */
    static std::vector<int> filledSlots(const CorvidWifiManager& manager) {
        return std::apply(
            [](const auto&... slot) {
                std::vector<int> filled;
                int number = 0;
                ((slot.instance != nullptr ? filled.push_back(number++) : void(number++)), ...);
                return filled;
            },
            manager.slots_);
    }

    /** Whether every slot knows how to make its manager, and is enabled just when it has one. */
    static bool slotsAreConsistent(const CorvidWifiManager& manager) {
        return std::apply(
            [](const auto&... slot) {
                return ((slot.make != nullptr && slot.enabled == (slot.instance != nullptr)) &&
                        ...);
            },
            manager.slots_);
    }
};

namespace {

using ::android::sp;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Peer = CorvidWifiManagerTestPeer;

constexpr char kAssocStarted[] = "CTRL-EVENT-ASSOC-STARTED ifname=p2p-wlan0-0";
constexpr char kRegdomChange[] = "CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=US";
constexpr char kStaSwitch[] = "CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=wlan0 width=80";
constexpr char kP2pSwitch[] = "CTRL-EVENT-CHANNEL-SWITCH freq=5180 ifname=p2p-wlan0-0 width=40";

class CompositionTest : public ManagerTest {
  protected:
    void switchOn(const std::string& property) const {
        root_.setProperty("persist.vendor.wifi." + property, "true");
    }

    /** Builds the composition root; it makes itself known to the client. */
    void build() { manager_ = std::make_unique<CorvidWifiManager>(client_); }

    /** The numbers of the features that have a manager with these switches on. */
    std::vector<int> slotsWith(const std::vector<std::string>& properties) {
        for (const std::string& property : properties) {
            root_.setProperty(property, "true");
        }
        build();
        EXPECT_TRUE(Peer::slotsAreConsistent(*manager_));
        std::vector<int> slots = Peer::filledSlots(*manager_);
        manager_.reset();
        for (const std::string& property : properties) {
            root_.unsetProperty(property);
        }
        return slots;
    }

    void deliverSta(const std::string& event) { deliver(NetInterfaceType::STA, event); }

    /** The lines of the composition root itself. */
    std::vector<std::string> rootLines() const {
        std::vector<std::string> found;
        for (const auto& line : log_.lines()) {
            if (line.message.rfind("CorvidWifiManager: ", 0) == 0) {
                found.push_back(line.message);
            }
        }
        return found;
    }

    std::unique_ptr<CorvidWifiManager> manager_;
    const sp<FakeClient> a_ = new FakeClient;
    const sp<FakeClient> b_ = new FakeClient;
};

// Slots

TEST_F(CompositionTest, WithoutPropertiesSlots0127HoldManagers) {
    EXPECT_THAT(slotsWith({}), ElementsAre(0, 1, 2, 7));
}

TEST_F(CompositionTest, EachSwitchFillsTheSlotsOfItsFeatures) {
    std::set<std::string> properties;
    for (const FeatureInfo& feature : kFeatureTable) {
        for (const std::string& property : test::switchesOf(feature)) {
            properties.insert(property);
        }
    }
    for (const std::string& property : properties) {
        std::vector<int> expected;
        for (size_t number = 0; number < kFeatureTable.size(); ++number) {
            const auto names = test::switchesOf(kFeatureTable[number]);
            if (names.empty() || std::count(names.begin(), names.end(), property) != 0) {
                expected.push_back(static_cast<int>(number));
            }
        }
        EXPECT_EQ(slotsWith({property}), expected) << property;
    }
}

TEST_F(CompositionTest, MipiClockAloneNeedsTheDispatcherAndNotTheBlocklist) {
    EXPECT_THAT(slotsWith({"persist.vendor.wifi.mipiclock.enable"}),
                ElementsAre(0, 1, 2, 7, 14, 15));
}

TEST_F(CompositionTest, EverySwitchTogetherFillsEverySlot) {
    EXPECT_EQ(slotsWith(test::switchesOfEveryFeature()).size(), kFeatureTable.size());
}

TEST_F(CompositionTest, ManagerThatIsSwitchedOffIsNullWithOneWarningThatNamesIt) {
    build();
    const auto expectWarning = [&](const auto& feature) {
        using Manager = typename std::decay_t<decltype(feature)>::Manager;
        if (test::switchesOf(feature).empty()) {
            return;
        }
        log_.clear();
        EXPECT_EQ(manager_->get<Manager>(), nullptr);
        EXPECT_THAT(warnings(), ElementsAre("CorvidWifiManager: " +
                                            std::string(feature.managerName) + " does not exist."));
    };
    std::apply([&](const auto&... feature) { (expectWarning(feature), ...); }, kFeatures);
}

TEST_F(CompositionTest, ManagerThatExistsIsReturnedWithoutALogLine) {
    build();
    log_.clear();
    EXPECT_NE(manager_->get<StaManager>(), nullptr);
    EXPECT_EQ(manager_->staManager(), manager_->get<StaManager>());
    EXPECT_EQ(manager_->p2pManager(), manager_->get<P2pManager>());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(CompositionTest, SwitchThatChangesAfterConstructionHasNoEffect) {
    build();
    switchOn("scs.enable");
    EXPECT_EQ(manager_->get<ScsManager>(), nullptr);
}

TEST_F(CompositionTest, ConstructionSetsTheTransportErrorActionTo3) {
    build();
    std::ifstream file(root_.path() + "/data/vendor/sensors/transport_error_action");
    std::string content;
    std::getline(file, content);
    EXPECT_EQ(content, "3");
}

TEST_F(CompositionTest, ClientPointsToTheRootUntilItIsDestroyed) {
    build();
    EXPECT_EQ(client_->compositionRoot(), manager_.get());
    manager_.reset();
    EXPECT_EQ(client_->compositionRoot(), nullptr);
}

TEST_F(CompositionTest, ManagersAreDestroyedFromTheLastSlotToTheFirst) {
    switchOn("scs.enable");
    switchOn("mipiclock.enable");
    build();
    const std::weak_ptr<P2pManager> p2p = manager_->get<P2pManager>();
    const std::weak_ptr<ScsManager> scs = manager_->get<ScsManager>();
    const std::weak_ptr<CoexManager> coex = manager_->get<CoexManager>();
    const std::weak_ptr<MipiClockManager> mipi = manager_->get<MipiClockManager>();
    const auto map = manager_->get<StaManager>()->staDisconnectedCallbacks;
    bool heard = false;
    // Told by the destructor of slot 0.
    std::function<void(const StaResult&)> handler = [&](const StaResult&) {
        heard = true;
        EXPECT_TRUE(p2p.expired() && scs.expired() && coex.expired() && mipi.expired());
    };
    map->registerCallback(handler);
    manager_.reset();
    EXPECT_TRUE(heard);
}

// Tasks

TEST_F(CompositionTest, TaskMapHoldsTheConstructingThread) {
    build();
    EXPECT_EQ(manager_->copyTaskToPidMap().at("CorvidWifiManager"), gettid());
}

TEST_F(CompositionTest, TaskRecordedTwiceKeepsItsLastThread) {
    build();
    manager_->mapTaskToPid("X.y", 1);
    manager_->mapTaskToPid("A.b", 2);
    manager_->mapTaskToPid("X.y", 3);
    const auto tasks = manager_->copyTaskToPidMap();
    std::vector<std::string> names;
    for (const auto& [name, thread] : tasks) {
        names.push_back(name);
    }
    EXPECT_THAT(names, ElementsAre("A.b", "CorvidWifiManager", "X.y"));
    EXPECT_EQ(tasks.at("X.y"), 3);
}

TEST_F(CompositionTest, TaskMapHoldsTheManagersHandlers) {
    build();
    deliverSta(kRegdomChange);
    EXPECT_EQ(manager_->copyTaskToPidMap().count("RegdomManager.onRegdomUpdated"), 1U);
}

// Relays

TEST_F(CompositionTest, RelayWithoutClientsLogsNothing) {
    switchOn("cmd.cs.p2p.corvid");
    build();
    log_.clear();
    deliverSta(kAssocStarted);
    deliverSta(kRegdomChange);
    deliverSta(kStaSwitch);
    EXPECT_THAT(rootLines(), IsEmpty());
    EXPECT_THAT(errors(), Not(Contains(HasSubstr("no callback for"))));
}

TEST_F(CompositionTest, ClientsAreToldOfEachKindOfEvent) {
    switchOn("cmd.cs.p2p.corvid");
    build();
    manager_->link(a_);
    deliverSta(kStaSwitch);
    deliverSta(kP2pSwitch);
    deliverSta(kAssocStarted);
    deliverSta(kRegdomChange);
    deliverSta("CTRL-EVENT-REGDOM-CHANGE init=CORE type=WORLD");
    EXPECT_THAT(
        a_->calls(),
        ElementsAre("onChannelSwitch 5745 80 STA", "onChannelSwitch 5180 40 P2P", "onAssocStarted",
                    "onRegdomUpdated USER COUNTRY US", "onRegdomUpdated CORE WORLD XZ"));
}

TEST_F(CompositionTest, WithoutTheChannelSwitchFeatureOnlyTheOtherTwoAreRelayed) {
    build();
    EXPECT_THAT(errors(), IsEmpty());
    manager_->link(a_);
    deliverSta(kStaSwitch);
    deliverSta(kAssocStarted);
    deliverSta(kRegdomChange);
    EXPECT_THAT(a_->calls(), ElementsAre("onAssocStarted", "onRegdomUpdated USER COUNTRY US"));
}

TEST_F(CompositionTest, ClientsAreCalledInTheOrderOfTheirRegistration) {
    build();
    std::string order;
    a_->onCall = [&] { order += 'a'; };
    b_->onCall = [&] { order += 'b'; };
    manager_->link(b_);
    manager_->link(a_);
    deliverSta(kAssocStarted);
    EXPECT_EQ(order, "ba");
}

TEST_F(CompositionTest, UnreachableClientLogsOneErrorPerEventAndStaysRegistered) {
    switchOn("cmd.cs.p2p.corvid");
    build();
    a_->callsFail = true;
    manager_->link(a_);
    manager_->link(b_);
    log_.clear();
    deliverSta(kStaSwitch);
    deliverSta(kAssocStarted);
    deliverSta(kAssocStarted);
    deliverSta(kRegdomChange);
    const std::string reason = ": Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '";
    const std::string start = "CorvidWifiManager: Failed to call IWifi ";
    EXPECT_THAT(rootLines(),
                ElementsAre(start + "onChannelSwitch" + reason, start + "onAssocStarted" + reason,
                            start + "onAssocStarted" + reason, start + "onRegdomUpdated" + reason));
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR, start + "onAssocStarted" + reason), 2U);
    EXPECT_EQ(b_->calls().size(), 4U) << "those behind it are called all the same";
    EXPECT_TRUE(manager_->unlink(a_)) << "it is still registered";
}

TEST_F(CompositionTest, DeadClientIsNotCalled) {
    build();
    manager_->link(a_);
    manager_->link(b_);
    a_->die();
    deliverSta(kAssocStarted);
    EXPECT_THAT(a_->calls(), IsEmpty());
    EXPECT_THAT(b_->calls(), ElementsAre("onAssocStarted"));
}

TEST_F(CompositionTest, ClientThatRegistersAnotherInsideItsCallIsHeardFromTheNextEventOn) {
    build();
    a_->onCall = [&] {
        manager_->unlink(a_);
        manager_->link(b_);
    };
    manager_->link(a_);
    deliverSta(kAssocStarted);
    EXPECT_THAT(a_->calls(), ElementsAre("onAssocStarted"));
    EXPECT_THAT(b_->calls(), IsEmpty()) << "from the next event on";
    deliverSta(kAssocStarted);
    EXPECT_THAT(a_->calls(), ElementsAre("onAssocStarted"));
    EXPECT_THAT(b_->calls(), ElementsAre("onAssocStarted"));
}

TEST_F(CompositionTest, ClientUnregisteredWhileAnEventIsRelayedIsCalledForThatEventOnly) {
    build();
    a_->onCall = [&] { EXPECT_TRUE(manager_->unlink(b_)); };
    manager_->link(a_);
    manager_->link(b_);
    deliverSta(kAssocStarted);
    EXPECT_THAT(b_->calls(), ElementsAre("onAssocStarted"));
    a_->onCall = nullptr;
    deliverSta(kAssocStarted);
    EXPECT_THAT(b_->calls(), ElementsAre("onAssocStarted"));
}

TEST_F(CompositionTest, RelayThatIsLinkedTwiceLogsAnError) {
    switchOn("cmd.cs.p2p.corvid");
    build();
    log_.clear();
    Peer::link(*manager_);
    EXPECT_THAT(errors(),
                ElementsAre("ChannelSwitchManager: callback exists => cannot link new one",
                            "CorvidWifiManager: failed to link channel switch callback",
                            "AssocStartedManager: callback exists => cannot link new one",
                            "CorvidWifiManager: failed to link assoc started callback",
                            "RegdomManager: callback exists => cannot link new one",
                            "CorvidWifiManager: failed to link regdom updated callback"));
}

TEST_F(CompositionTest, DestructionUnlinksTheRelaysAndWarnsOfAMissingManager) {
    build();
    const auto assocStarted = manager_->get<AssocStartedManager>();
    const auto regdom = manager_->get<RegdomManager>();
    log_.clear();
    manager_.reset();
    EXPECT_THAT(warnings(), ElementsAre("CorvidWifiManager: ChannelSwitchManager does not exist."));
    // The managers, kept by the test, have nobody to tell any more.
    deliverSta(kAssocStarted);
    deliverSta(kRegdomChange);
    EXPECT_THAT(errors(), ElementsAre("AssocStartedManager: no callback for assoc started event",
                                      "RegdomManager: no callback for regdom updated event"));
}

TEST_F(CompositionTest, DestructionIsSafeWithEventsInFlight) {
    for (const std::string& property : test::switchesOfEveryFeature()) {
        root_.setProperty(property, "true");
    }
    sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5180\n");
    for (int round = 0; round < 5; ++round) {
        build();
        manager_->link(a_);
        for (int i = 0; i < 5; ++i) {
            sta_.sendEvent("CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00");
            sta_.sendEvent(kStaSwitch);
            sta_.sendEvent(kAssocStarted);
            sta_.sendEvent("CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:00 reason=3");
        }
        manager_.reset();
        deliverSta("CTRL-EVENT-SCAN-RESULTS ");
    }
}

}  // namespace

}  // namespace Ursa::OS::Wifi
