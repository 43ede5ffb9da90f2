#include <memory>
#include <string>

#include "managers/P2pManager.h"
#include "managers/TxPowerManager.h"
#include "tests/managers/LinkPowerScene.h"

namespace Ursa::OS::Wifi {

namespace {

/** What the dump shows of a manager. */
std::string dumpOf(FeatureManager& manager) {
    std::string text;
    EXPECT_TRUE(manager.dumpInfo(text));
    return text;
}

std::string powers(int sta, int p2p) {
    return "\tSTA TX Power: " + std::to_string(sta) +
           " dbm\n\tP2P TX Power: " + std::to_string(p2p) + " dbm\n\tPer Chain Control: 0\n";
}

int frequencyOf(const P2pManager& manager) {
    P2pInfo info;
    manager.getP2pInfo(info);
    EXPECT_EQ(info.bandwidth, -1);
    return info.frequency;
}

}  // namespace

// The station

TEST(TxPowerManager, FollowsTheSignalThereAndBackWithHysteresis) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        for (int rssi = -40; rssi >= -80; --rssi) {
            scene.sample(rssi, 5180);
        }
        EXPECT_THAT(scene.staCommands(),
                    ElementsAre("DRIVER SET_TXPOWER 20",    // the first command is always this
                                "DRIVER SET_TXPOWER 5",     // -41
                                "DRIVER SET_TXPOWER 9",     // -61
                                "DRIVER SET_TXPOWER 20"));  // -71
        for (int rssi = -80; rssi <= -40; ++rssi) {
            scene.sample(rssi, 5180);
        }
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 9",    // -64
                                                     "DRIVER SET_TXPOWER 5"));  // -54
        EXPECT_THAT(scene.p2pCommands(), IsEmpty());
    });
}

TEST(TxPowerManager, LogsASampleThatChangesTheStepAndTheCommandWithItsReply) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        scene.log_.clear();
        scene.sample(-40, 2412);
        scene.sample(-40, 2412);
        EXPECT_THAT(scene.infos(),
                    ElementsAre("TxPowerManager: StaManager event(CONNECTED) rssi:-40 freq:2412",
                                "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20 reply:OK\n"));
        scene.log_.clear();
        scene.disconnect();
        EXPECT_THAT(scene.infos(),
                    ElementsAre("TxPowerManager: StaManager event(DISCONNECTED)",
                                "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20 reply:OK\n"));
    });
}

TEST(TxPowerManager, TheStepIsKeptAfterADisconnect) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        scene.sample(-100, 5180);
        scene.sample(-40, 5180);
        scene.staCommands();
        scene.disconnect();
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
        EXPECT_EQ(dumpOf(manager), powers(20, 0));
        // The step is still 5, so that the new link gets no command although 20 is set.
        scene.sample(-40, 5180);
        EXPECT_THAT(scene.staCommands(), IsEmpty());
        scene.sample(-61, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 9"));
    });
}

TEST(TxPowerManager, EveryDisconnectedResultSendsTheUpperStepAgain) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        scene.disconnect();
        scene.disconnect();
        EXPECT_THAT(scene.staCommands(),
                    ElementsAre("DRIVER SET_TXPOWER 20", "DRIVER SET_TXPOWER 20"));
    });
}

TEST(TxPowerManager, AFailedCommandIsTriedAgainAtTheNextSample) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        scene.sample(-100, 5180);
        scene.staCommands();
        scene.sta_.failAll(true);
        scene.sample(-60, 5180);
        scene.sample(-60, 5180);
        EXPECT_THAT(scene.staCommands(),
                    ElementsAre("DRIVER SET_TXPOWER 9", "DRIVER SET_TXPOWER 9"));
        EXPECT_EQ(dumpOf(manager), powers(9, 0)) << "stored before it is sent";
        EXPECT_EQ(
            scene.log_.count(ANDROID_LOG_INFO,
                             "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 9 reply:ERROR: SEND-RECV"),
            2U);
        scene.sta_.failAll(false);
        scene.sample(-60, 5180);
        scene.sample(-60, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 9"));
    });
}

TEST(TxPowerManager, AFailedCommandThatIsNoLongerWantedIsForgotten) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        scene.sample(-100, 5180);
        scene.sta_.failAll(true);
        scene.sample(-40, 5180);
        scene.sta_.failAll(false);
        scene.staCommands();
        scene.sample(-80, 5180);  // upper, as before the failure
        EXPECT_THAT(scene.staCommands(), IsEmpty());
        EXPECT_EQ(dumpOf(manager), powers(5, 0)) << "still the value last put into a command";
    });
}

TEST(TxPowerManager, TheTextOfAReplyChangesNothing) {
    for (const std::string reply : {"FAIL\n", "UNKNOWN COMMAND\n", "", "garbage"}) {
        inOwnProcess([&] {
            LinkPowerScene scene(kStaPower);
            TxPowerManager manager(scene.client_);
            scene.sta_.answer("DRIVER SET_TXPOWER 20", reply);
            scene.sta_.answer("DRIVER SET_TXPOWER 9", reply);
            scene.sample(-100, 5180);
            scene.sample(-100, 5180);
            scene.sample(-60, 5180);
            scene.sample(-60, 5180);
            EXPECT_THAT(scene.staCommands(),
                        ElementsAre("DRIVER SET_TXPOWER 20", "DRIVER SET_TXPOWER 9"));
            EXPECT_EQ(
                scene.log_.count(ANDROID_LOG_INFO,
                                 "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 9 reply:" + reply),
                1U);
            EXPECT_EQ(dumpOf(manager), powers(9, 0));
        });
    }
}

TEST(TxPowerManager, TheStationsToggleStopsItsCommands) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        manager.toggleFeature(false, NetInterfaceType::STA);
        scene.sample(-40, 5180);
        scene.disconnect();
        EXPECT_THAT(scene.staCommands(), IsEmpty());
        EXPECT_EQ(dumpOf(manager), powers(0, 0));
        manager.toggleFeature(true, NetInterfaceType::STA);
        scene.sample(-40, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    });
}

TEST(TxPowerManager, OtherTogglesAreIgnored) {
    inOwnProcess([] {
        LinkPowerScene scene(kBothPowers);
        TxPowerManager manager(scene.client_);
        manager.toggleFeature(false, static_cast<NetInterfaceType>(2));
        scene.sample(-40, 5180);
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
    });
}

TEST(TxPowerManager, HandTrackingHoldsTheUpperStepUnlessAllowed) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        scene.sample(-100, 5180);
        scene.sample(-40, 5180);
        scene.staCommands();
        EXPECT_TRUE(manager.updateTxPowerConfig(false));
        scene.sample(-40, 5180);
        EXPECT_THAT(scene.staCommands(), IsEmpty()) << "hand tracking is off";
        scene.set("txpower.enable.handtracking", "true");
        scene.sample(-40, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
        EXPECT_TRUE(manager.updateTxPowerConfig(true));
        scene.sample(-40, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 5"));
    });
}

// Half-dB units

TEST(TxPowerManager, HalfDbUnitsAreHalvedOnTheWayOutAndTheOddHalfIsDropped) {
    inOwnProcess([] {
        LinkPowerScene scene({{"txpower.enable.sta", "true"},
                              {"txpower.enable.p2p", "true"},
                              {"txpower.unit.half.dbm", "true"},
                              {"txpower.dbm.p2p", "25"}});
        TxPowerManager manager(scene.client_);
        scene.sample(-40, 5180);
        scene.sample(-60, 5180);
        scene.sample(-40, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 10",
                                                     "DRIVER SET_TXPOWER 4",    // 9
                                                     "DRIVER SET_TXPOWER 2"));  // 5
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
        EXPECT_EQ(dumpOf(manager), powers(2, 12));
        scene.disconnect();
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 10"));
    });
}

// P2P

TEST(TxPowerManager, AGroupGetsItsPowerByItsBand) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        EXPECT_EQ(dumpOf(manager), powers(0, 0));
        for (const auto& [freq, command] :
             std::vector<std::pair<int, std::string>>{{2412, "DRIVER SET_TXPOWER 12"},
                                                      {2999, "DRIVER SET_TXPOWER 12"},
                                                      {3000, "DRIVER SET_TXPOWER 20"},
                                                      {5180, "DRIVER SET_TXPOWER 20"},
                                                      {5955, "DRIVER SET_TXPOWER 20"},
                                                      {-5, "DRIVER SET_TXPOWER 12"},
                                                      {0, "DRIVER SET_TXPOWER 12"}}) {
            scene.p2pStarted(freq);
            EXPECT_THAT(scene.p2pCommands(), ElementsAre(command)) << freq;
            EXPECT_EQ(frequencyOf(*scene.composition_->p2p), freq);
        }
        EXPECT_EQ(dumpOf(manager), powers(0, 12));
        EXPECT_THAT(scene.staCommands(), IsEmpty());
    });
}

TEST(TxPowerManager, TheEndOfAGroupRestoresTheUpperPower) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        scene.p2pStarted(2437);
        scene.p2pRemoved();
        EXPECT_THAT(scene.p2pCommands(),
                    ElementsAre("DRIVER SET_TXPOWER 12", "DRIVER SET_TXPOWER 20"));
        EXPECT_EQ(frequencyOf(*scene.composition_->p2p), -1);
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"))
            << "the old frequency counts no more";
    });
}

TEST(TxPowerManager, ASecondStartOnTheSameFrequencySendsNothing) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        scene.p2pStarted(2437);
        scene.p2pCommands();
        scene.p2pStarted(2437);
        scene.p2pSwitched(2437);
        EXPECT_THAT(scene.p2pCommands(), IsEmpty());
        scene.p2pSwitched(5180);
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
        scene.p2pSwitched(5745);
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 20"))
            << "a new frequency sends even the power that is set";
    });
}

TEST(TxPowerManager, AFailedP2pCommandIsNotTriedAgain) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        scene.p2p_->failAll(true);
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
        scene.p2p_->failAll(false);
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.p2pCommands(), IsEmpty());
    });
}

TEST(TxPowerManager, TheP2pToggleDoesNotGate5Ghz) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        manager.toggleFeature(false, NetInterfaceType::P2P);
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.p2pCommands(), IsEmpty());
        EXPECT_EQ(frequencyOf(*scene.composition_->p2p), 2437) << "it is known all the same";
        scene.p2pStarted(5180);
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
        scene.p2pRemoved();
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
        manager.toggleFeature(true, NetInterfaceType::P2P);
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
    });
}

TEST(TxPowerManager, AStartWithoutAFrequencyIsIgnored) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        for (const std::string text :
             {"p2p-wlan0-0 GO ssid=\"x\"", "freq=", "freq=5180" /* at the end: not read */,
              "freq=abc ", "freq=99999999999 "}) {
            scene.deliver(NetInterfaceType::P2P, "P2P-GROUP-STARTED " + text);
        }
        EXPECT_THAT(scene.p2pCommands(), IsEmpty());
        EXPECT_EQ(frequencyOf(*scene.composition_->p2p), -1);
    });
}

TEST(TxPowerManager, LogsWhatHappensToTheGroup) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        scene.log_.clear();
        scene.p2pStarted(2437);
        scene.p2pRemoved();
        EXPECT_THAT(scene.infos(),
                    ElementsAre("TxPowerManager: P2P event(CONNECTED)",
                                "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 12 reply:OK\n",
                                "TxPowerManager: P2P event(DISCONNECTED-p2p-wlan0-0 GO "
                                "reason=REQUESTED)",
                                "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 20 reply:OK\n"));
        EXPECT_EQ(scene.log_.count(ANDROID_LOG_DEBUG, "TxPowerManager: P2P Freq:-1 newFreq:2437"),
                  1U);
    });
}

TEST(TxPowerManager, TheLossOfTheGroupsSupplicantEndsTheGroup) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        scene.p2pStarted(2437);
        scene.p2pCommands();
        scene.log_.clear();
        scene.deliver(NetInterfaceType::P2P, "CTRL-EVENT-TERMINATING ");
        EXPECT_THAT(
            scene.infos(),
            testing::IsSupersetOf(
                {"TxPowerManager: P2P event(DISCONNECTED-sockettype=P2P)",
                 "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 20 reply:ERROR: NOT-CONNECTED"}));
        EXPECT_EQ(frequencyOf(*scene.composition_->p2p), -1);
    });
}

// Switches and settings

TEST(TxPowerManager, WithoutTheStationsSwitchItsSignalIsNotFollowed) {
    inOwnProcess([] {
        LinkPowerScene scene(kP2pPower);
        TxPowerManager manager(scene.client_);
        scene.sample(-40, 5180);
        scene.disconnect();
        EXPECT_THAT(scene.staCommands(), IsEmpty());
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
    });
}

TEST(TxPowerManager, WithoutTheP2pSwitchGroupsAreNotFollowed) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        scene.p2pStarted(2437);
        scene.p2pRemoved();
        EXPECT_THAT(scene.p2pCommands(), IsEmpty());
        EXPECT_EQ(frequencyOf(*scene.composition_->p2p), -1);
        scene.sample(-40, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    });
}

TEST(TxPowerManager, WithoutAStaManagerItStillFollowsGroups) {
    inOwnProcess([] {
        LinkPowerScene scene(kBothPowers);
        const auto sta = std::exchange(scene.composition_->sta, nullptr);
        {
            TxPowerManager manager(scene.client_);
            scene.p2pStarted(2437);
            EXPECT_THAT(scene.p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
        }
        scene.composition_->sta = sta;
    });
}

TEST(TxPowerManager, AFullResultMapIsLogged) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        std::vector<std::function<void(const StaResult&)>> crowd(64, [](const StaResult&) {});
        std::vector<int> handles;
        for (auto& one : crowd) {
            handles.push_back(
                scene.composition_->sta->staConnectedCallbacks->registerCallback(one));
        }
        {
            TxPowerManager manager(scene.client_);
            ASSERT_EQ(scene.errors().size(), 1U);
            EXPECT_THAT(scene.errors().front(), testing::EndsWith(": register CallbackMap failed"));
            scene.sample(-40, 5180);
            EXPECT_THAT(scene.staCommands(), IsEmpty());
            scene.disconnect();
            EXPECT_THAT(scene.staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
        }
        for (const int handle : handles) {
            scene.composition_->sta->staConnectedCallbacks->unregisterCallback(handle);
        }
    });
}

TEST(TxPowerManager, NothingIsFollowedOnceItIsGone) {
    inOwnProcess([] {
        LinkPowerScene scene(kBothPowers);
        std::make_unique<TxPowerManager>(scene.client_).reset();
        scene.sample(-40, 5180);
        scene.disconnect();
        scene.p2pStarted(2437);
        EXPECT_THAT(scene.staCommands(), IsEmpty());
        EXPECT_THAT(scene.p2pCommands(), IsEmpty());
    });
}

TEST(TxPowerManager, SettingsAreReadOncePerProcessWhateverIsSetLater) {
    inOwnProcess([] {
        LinkPowerScene scene(kBothPowers);
        const auto play = [&] {
            TxPowerManager manager(scene.client_);
            scene.sample(-100, 5180);
            scene.sample(-60, 5180);
            scene.sample(-40, 5180);
            scene.sample(-61, 5180);
            scene.sample(-71, 5180);
            scene.p2pStarted(2437);
            scene.p2pRemoved();
            EXPECT_THAT(
                scene.staCommands(),
                ElementsAre("DRIVER SET_TXPOWER 20", "DRIVER SET_TXPOWER 9", "DRIVER SET_TXPOWER 5",
                            "DRIVER SET_TXPOWER 9", "DRIVER SET_TXPOWER 20"));
            EXPECT_THAT(scene.p2pCommands(),
                        ElementsAre("DRIVER SET_TXPOWER 12", "DRIVER SET_TXPOWER 20"));
        };
        play();
        for (const auto& [name, value] :
             LinkPowerScene::Properties{{"txpower.enable.sta", "false"},
                                        {"txpower.enable.p2p", "false"},
                                        {"txpower.enable.sta.per_chain", "true"},
                                        {"txpower.dbm.upper", "30"},
                                        {"txpower.dbm.middle", "19"},
                                        {"txpower.dbm.lower", "15"},
                                        {"txpower.dbm.p2p", "22"},
                                        {"txpower.rssi.upper", "-10"},
                                        {"txpower.rssi.middle.upper", "-20"},
                                        {"txpower.rssi.middle.lower", "-30"},
                                        {"txpower.rssi.lower", "-40"},
                                        {"txpower.unit.half.dbm", "true"}}) {
            scene.set(name, value);
        }
        play();
    });
}

TEST(TxPowerManager, TheSettingsOfTheChainsAreReadOncePerProcessToo) {
    inOwnProcess([] {
        LinkPowerScene scene(kChainPower);
        const std::string before = [&] {
            TxPowerManager manager(scene.client_);
            return dumpOf(manager);
        }();
        for (const char* name : {"low_rssi_lower", "low_rssi_upper", "limit_default_dbm0",
                                 "limit_default_dbm1", "limit_low_dbm0", "limit_low_dbm1"}) {
            scene.set(std::string("txpower.perchain.") + name, "1");
        }
        scene.set("txpower.enable.sta.per_chain", "false");
        TxPowerManager manager(scene.client_);
        EXPECT_EQ(dumpOf(manager), before);
    });
}

TEST(TxPowerManager, ASettingIsReadAtItsFirstUseNotBefore) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        scene.sample(-40, 2412);  // uses the upper step alone
        scene.set("txpower.dbm.upper", "30");
        scene.set("txpower.dbm.middle", "10");
        scene.set("txpower.rssi.upper", "-35");
        scene.sample(-40, 5180);
        EXPECT_THAT(scene.staCommands(),
                    ElementsAre("DRIVER SET_TXPOWER 20", "DRIVER SET_TXPOWER 10"));
    });
}

TEST(TxPowerManager, HandTrackingIsReadAtEvery5GhzSample) {
    inOwnProcess([] {
        LinkPowerScene scene(kStaPower);
        TxPowerManager manager(scene.client_);
        manager.updateTxPowerConfig(false);
        scene.sample(-100, 5180);
        scene.staCommands();
        for (const bool on : {true, false, true, false}) {
            scene.set("txpower.enable.handtracking", on ? "1" : "0");
            scene.sample(-40, 5180);
            scene.sample(-100, 5180);
            if (on) {
                EXPECT_THAT(scene.staCommands(), IsEmpty());
            } else {
                EXPECT_THAT(scene.staCommands(),
                            ElementsAre("DRIVER SET_TXPOWER 5", "DRIVER SET_TXPOWER 20"));
            }
        }
    });
}

TEST(TxPowerManager, EveryHandlerNotesItsTask) {
    inOwnProcess([] {
        LinkPowerScene scene(kBothPowers);
        TxPowerManager manager(scene.client_);
        scene.sample(-40, 5180);
        scene.disconnect();
        scene.p2pStarted(2437);
        scene.p2pRemoved();
        for (const char* handler :
             {"onStaConnected", "onStaDisconnected", "onP2pStarted", "onP2pStopped"}) {
            EXPECT_TRUE(scene.composition_->ran(std::string("TxPowerManager.") + handler))
                << handler;
        }
    });
}

// Per-chain mode

TEST(TxPowerManager, InPerChainModeTheChainsAreLimitedAndNoStepIsSent) {
    inOwnProcess([] {
        LinkPowerScene scene({{"txpower.enable.sta", "true"},
                              {"txpower.enable.sta.per_chain", "true"},
                              {"txpower.perchain.low_rssi_lower", "-90"},
                              {"txpower.perchain.low_rssi_upper", "-70"},
                              {"txpower.perchain.limit_default_dbm0", "20"},
                              {"txpower.perchain.limit_default_dbm1", "19"},
                              {"txpower.perchain.limit_low_dbm0", "11"},
                              {"txpower.perchain.limit_low_dbm1", "12"}});
        TxPowerManager manager(scene.client_);
        scene.log_.clear();
        EXPECT_EQ(dumpOf(manager),
                  "\tPerChainTxPower: enabled\n"
                  "\t  kLowRssiBoundLower: -90\n"
                  "\t  kLowRssiBoundUpper: -70\n"
                  "\t  kPowerLimitDefaultDbmArray: 20, 19\n"
                  "\t  kPowerLimitLowRssiDbmArray: 11, 12\n"
                  "\t  currentDbmArray: 20, 20\n");
        scene.sample(-80, 2437);
        EXPECT_THAT(scene.staCommands(),
                    ElementsAre("DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 0 power 20",
                                "DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 1 power 20"));
        EXPECT_THAT(dumpOf(manager), testing::EndsWith("\t  currentDbmArray: 11, 12\n"));
        EXPECT_THAT(scene.infos(), IsEmpty());
        scene.disconnect();
        EXPECT_THAT(scene.staCommands(),
                    ElementsAre("DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 0 power 11",
                                "DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 1 power 12"));
        EXPECT_THAT(scene.infos(), ElementsAre("TxPowerManager: StaManager event(DISCONNECTED)"));
    });
}

TEST(TxPowerManager, InPerChainModeGroupsAreFollowedAsEver) {
    inOwnProcess([] {
        LinkPowerScene scene(
            {{"txpower.enable.p2p", "true"}, {"txpower.enable.sta.per_chain", "true"}});
        TxPowerManager manager(scene.client_);
        scene.p2pStarted(2437);
        scene.p2pRemoved();
        EXPECT_THAT(scene.p2pCommands(),
                    ElementsAre("DRIVER SET_TXPOWER 12", "DRIVER SET_TXPOWER 20"));
    });
}

TEST(TxPowerManager, InPerChainModeTheTogglesDoNotMatterToTheStation) {
    inOwnProcess([] {
        LinkPowerScene scene(kChainPower);
        TxPowerManager manager(scene.client_);
        manager.toggleFeature(false, NetInterfaceType::STA);
        scene.sample(-80, 2437);
        EXPECT_THAT(scene.staCommands(),
                    ElementsAre("DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 0 power 20"));
    });
}

}  // namespace Ursa::OS::Wifi
