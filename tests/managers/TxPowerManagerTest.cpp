#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "managers/P2pManager.h"
#include "managers/TxPowerManager.h"
#include "tests/managers/LinkPowerScene.h"

namespace Ursa::OS::Wifi {

namespace {

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

class TxPowerManagerTest : public LinkPowerScene {
  protected:
    /** The manager with these properties, all behind "txpower.", and settings of its own. */
    void start(const Properties& properties) {
        for (const auto& [name, value] : properties) {
            set("txpower." + name, value);
        }
        manager_ = std::make_unique<TxPowerManager>(client_, settings_);
    }

    std::string dump() {
        std::string text;
        EXPECT_TRUE(manager_->dumpInfo(text));
        return text;
    }

    const TxPowerSettings settings_{};
    std::unique_ptr<TxPowerManager> manager_;
};

class TxPowerOfStation : public TxPowerManagerTest {
  protected:
    TxPowerOfStation() { start({{"enable.sta", "true"}}); }
};

class TxPowerOfGroup : public TxPowerManagerTest {
  protected:
    TxPowerOfGroup() { start({{"enable.p2p", "true"}}); }
};

class TxPowerOfBoth : public TxPowerManagerTest {
  protected:
    TxPowerOfBoth() { start({{"enable.sta", "true"}, {"enable.p2p", "true"}}); }
};

class TxPowerPerChain : public TxPowerManagerTest {
  protected:
    TxPowerPerChain() { start({{"enable.sta", "true"}, {"enable.sta.per_chain", "true"}}); }
};

}  // namespace

// The station

TEST_F(TxPowerOfStation, FollowsTheSignalThereAndBackWithHysteresis) {
    for (int rssi = -40; rssi >= -80; --rssi) {
        sample(rssi, 5180);
    }
    EXPECT_THAT(staCommands(),
                ElementsAre("DRIVER SET_TXPOWER 20",    // the first command is always this
                            "DRIVER SET_TXPOWER 5",     // -41
                            "DRIVER SET_TXPOWER 9",     // -61
                            "DRIVER SET_TXPOWER 20"));  // -71
    for (int rssi = -80; rssi <= -40; ++rssi) {
        sample(rssi, 5180);
    }
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 9",    // -64
                                           "DRIVER SET_TXPOWER 5"));  // -54
    EXPECT_THAT(p2pCommands(), IsEmpty());
}

TEST_F(TxPowerOfStation, LogsASampleThatChangesTheStepAndTheCommandWithItsReply) {
    log_.clear();
    sample(-40, 2412);
    sample(-40, 2412);
    EXPECT_THAT(infos(),
                ElementsAre("TxPowerManager: StaManager event(CONNECTED) rssi:-40 freq:2412",
                            "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20 reply:OK\n"));
    log_.clear();
    disconnect();
    EXPECT_THAT(infos(), ElementsAre("TxPowerManager: StaManager event(DISCONNECTED)",
                                     "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20 reply:OK\n"));
}

TEST_F(TxPowerOfStation, TheStepIsKeptAfterADisconnect) {
    sample(-100, 5180);
    sample(-40, 5180);
    staCommands();
    disconnect();
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    EXPECT_EQ(dump(), powers(20, 0));
    // The step is still 5, so that the new link gets no command although 20 is set.
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), IsEmpty());
    sample(-61, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 9"));
}

TEST_F(TxPowerOfStation, EveryDisconnectedResultSendsTheUpperStepAgain) {
    disconnect();
    disconnect();
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20", "DRIVER SET_TXPOWER 20"));
}

TEST_F(TxPowerOfStation, AFailedCommandIsTriedAgainAtTheNextSample) {
    sample(-100, 5180);
    staCommands();
    sta_.failAll(true);
    sample(-60, 5180);
    sample(-60, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 9", "DRIVER SET_TXPOWER 9"));
    EXPECT_EQ(dump(), powers(9, 0)) << "stored before it is sent";
    EXPECT_EQ(log_.count(ANDROID_LOG_INFO,
                         "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 9 reply:ERROR: SEND-RECV"),
              2U);
    sta_.failAll(false);
    sample(-60, 5180);
    sample(-60, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 9"));
}

TEST_F(TxPowerOfStation, AFailedCommandThatIsNoLongerWantedIsForgotten) {
    sample(-100, 5180);
    sta_.failAll(true);
    sample(-40, 5180);
    sta_.failAll(false);
    staCommands();
    sample(-80, 5180);  // upper, as before the failure
    EXPECT_THAT(staCommands(), IsEmpty());
    EXPECT_EQ(dump(), powers(5, 0)) << "still the value last put into a command";
}

class TxPowerReply : public TxPowerOfStation, public testing::WithParamInterface<const char*> {};

TEST_P(TxPowerReply, ItsTextChangesNothing) {
    const std::string reply = GetParam();
    sta_.answer("DRIVER SET_TXPOWER 20", reply);
    sta_.answer("DRIVER SET_TXPOWER 9", reply);
    sample(-100, 5180);
    sample(-100, 5180);
    sample(-60, 5180);
    sample(-60, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20", "DRIVER SET_TXPOWER 9"));
    EXPECT_EQ(
        log_.count(ANDROID_LOG_INFO, "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 9 reply:" + reply),
        1U);
    EXPECT_EQ(dump(), powers(9, 0));
}

INSTANTIATE_TEST_SUITE_P(TxPower, TxPowerReply,
                         testing::Values("FAIL\n", "UNKNOWN COMMAND\n", "", "garbage"));

TEST_F(TxPowerOfStation, TheStationsToggleStopsItsCommands) {
    manager_->toggleFeature(false, NetInterfaceType::STA);
    sample(-40, 5180);
    disconnect();
    EXPECT_THAT(staCommands(), IsEmpty());
    EXPECT_EQ(dump(), powers(0, 0));
    manager_->toggleFeature(true, NetInterfaceType::STA);
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
}

TEST_F(TxPowerOfBoth, TheStationsToggleDoesNotStopTheGroupsCommands) {
    manager_->toggleFeature(false, NetInterfaceType::STA);
    p2pStarted(2437);
    p2pRemoved();
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12", "DRIVER SET_TXPOWER 20"));
    EXPECT_THAT(staCommands(), IsEmpty());
}

TEST_F(TxPowerOfBoth, OtherTogglesAreIgnored) {
    manager_->toggleFeature(false, static_cast<NetInterfaceType>(2));
    sample(-40, 5180);
    p2pStarted(2437);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
}

TEST_F(TxPowerOfStation, HandTrackingHoldsTheUpperStepUnlessAllowed) {
    sample(-100, 5180);
    sample(-40, 5180);
    staCommands();
    EXPECT_TRUE(manager_->updateTxPowerConfig(false));
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), IsEmpty()) << "hand tracking is off";
    set("txpower.enable.handtracking", "true");
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    EXPECT_TRUE(manager_->updateTxPowerConfig(true));
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 5"));
}

// Half-dB units

TEST_F(TxPowerManagerTest, HalfDbUnitsAreHalvedOnTheWayOutAndTheOddHalfIsDropped) {
    start({{"enable.sta", "true"},
           {"enable.p2p", "true"},
           {"unit.half.dbm", "true"},
           {"dbm.p2p", "25"}});
    sample(-40, 5180);
    sample(-60, 5180);
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 10",
                                           "DRIVER SET_TXPOWER 4",    // 9
                                           "DRIVER SET_TXPOWER 2"));  // 5
    p2pStarted(2437);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
    EXPECT_EQ(dump(), powers(2, 12));
    disconnect();
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 10"));
}

// P2P

TEST_F(TxPowerOfGroup, AGroupGetsItsPowerByItsBand) {
    EXPECT_EQ(dump(), powers(0, 0));
    for (const auto& [freq, command] :
         std::vector<std::pair<int, std::string>>{{2412, "DRIVER SET_TXPOWER 12"},
                                                  {2999, "DRIVER SET_TXPOWER 12"},
                                                  {3000, "DRIVER SET_TXPOWER 20"},
                                                  {5180, "DRIVER SET_TXPOWER 20"},
                                                  {5955, "DRIVER SET_TXPOWER 20"},
                                                  {-5, "DRIVER SET_TXPOWER 12"},
                                                  {0, "DRIVER SET_TXPOWER 12"}}) {
        p2pStarted(freq);
        EXPECT_THAT(p2pCommands(), ElementsAre(command)) << freq;
        EXPECT_EQ(frequencyOf(*composition_->p2p), freq);
    }
    EXPECT_EQ(dump(), powers(0, 12));
    EXPECT_THAT(staCommands(), IsEmpty());
}

TEST_F(TxPowerOfGroup, TheEndOfAGroupRestoresTheUpperPower) {
    p2pStarted(2437);
    p2pRemoved();
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12", "DRIVER SET_TXPOWER 20"));
    EXPECT_EQ(frequencyOf(*composition_->p2p), -1);
    p2pStarted(2437);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"))
        << "the old frequency counts no more";
}

TEST_F(TxPowerOfGroup, ASecondStartOnTheSameFrequencySendsNothing) {
    p2pStarted(2437);
    p2pCommands();
    p2pStarted(2437);
    p2pSwitched(2437);
    EXPECT_THAT(p2pCommands(), IsEmpty());
    p2pSwitched(5180);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    p2pSwitched(5745);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 20"))
        << "a new frequency sends even the power that is set";
}

TEST_F(TxPowerOfGroup, AFailedP2pCommandIsNotTriedAgain) {
    p2p_->failAll(true);
    p2pStarted(2437);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
    p2p_->failAll(false);
    p2pStarted(2437);
    EXPECT_THAT(p2pCommands(), IsEmpty());
}

TEST_F(TxPowerOfGroup, TheP2pToggleDoesNotGate5Ghz) {
    manager_->toggleFeature(false, NetInterfaceType::P2P);
    p2pStarted(2437);
    EXPECT_THAT(p2pCommands(), IsEmpty());
    EXPECT_EQ(frequencyOf(*composition_->p2p), 2437) << "it is known all the same";
    p2pStarted(5180);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    p2pRemoved();
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    manager_->toggleFeature(true, NetInterfaceType::P2P);
    p2pStarted(2437);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
}

TEST_F(TxPowerOfGroup, AStartWithoutAFrequencyIsIgnored) {
    for (const std::string text :
         {"p2p-wlan0-0 GO ssid=\"x\"", "freq=", "freq=5180" /* at the end: not read */, "freq=abc ",
          "freq=99999999999 "}) {
        deliver(NetInterfaceType::P2P, "P2P-GROUP-STARTED " + text);
    }
    EXPECT_THAT(p2pCommands(), IsEmpty());
    EXPECT_EQ(frequencyOf(*composition_->p2p), -1);
}

TEST_F(TxPowerOfGroup, LogsWhatHappensToTheGroup) {
    log_.clear();
    p2pStarted(2437);
    p2pRemoved();
    EXPECT_THAT(infos(), ElementsAre("TxPowerManager: P2P event(CONNECTED)",
                                     "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 12 reply:OK\n",
                                     "TxPowerManager: P2P event(DISCONNECTED-p2p-wlan0-0 GO "
                                     "reason=REQUESTED)",
                                     "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 20 reply:OK\n"));
    EXPECT_EQ(log_.count(ANDROID_LOG_DEBUG, "TxPowerManager: P2P Freq:-1 newFreq:2437"), 1U);
}

TEST_F(TxPowerOfGroup, TheLossOfTheGroupsSupplicantEndsTheGroup) {
    p2pStarted(2437);
    p2pCommands();
    log_.clear();
    deliver(NetInterfaceType::P2P, "CTRL-EVENT-TERMINATING ");
    EXPECT_THAT(infos(),
                testing::IsSupersetOf(
                    {"TxPowerManager: P2P event(DISCONNECTED-sockettype=P2P)",
                     "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 20 reply:ERROR: NOT-CONNECTED"}));
    EXPECT_EQ(frequencyOf(*composition_->p2p), -1);
}

// Switches and settings

TEST_F(TxPowerOfGroup, WithoutTheStationsSwitchItsSignalIsNotFollowed) {
    sample(-40, 5180);
    disconnect();
    EXPECT_THAT(staCommands(), IsEmpty());
    p2pStarted(2437);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
}

TEST_F(TxPowerOfStation, WithoutTheP2pSwitchGroupsAreNotFollowed) {
    p2pStarted(2437);
    p2pRemoved();
    EXPECT_THAT(p2pCommands(), IsEmpty());
    EXPECT_EQ(frequencyOf(*composition_->p2p), -1);
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
}

TEST_F(TxPowerManagerTest, WithoutAStaManagerItStillFollowsGroups) {
    const auto sta = std::exchange(composition_->sta, nullptr);
    start({{"enable.sta", "true"}, {"enable.p2p", "true"}});
    p2pStarted(2437);
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12"));
    manager_.reset();
    composition_->sta = sta;
}

TEST_F(TxPowerManagerTest, AFullResultMapIsLoggedAndTheOtherOneUsed) {
    std::vector<std::function<void(const StaResult&)>> crowd(64, [](const StaResult&) {});
    for (auto& one : crowd) {
        composition_->sta->staConnectedCallbacks->registerCallback(one);
    }
    start({{"enable.sta", "true"}});
    EXPECT_THAT(errors(), ElementsAre(testing::EndsWith(": register CallbackMap failed")));
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), IsEmpty());
    disconnect();
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20"));
    manager_.reset();
    composition_->sta.reset();  // before the crowd
}

TEST_F(TxPowerOfBoth, NothingIsFollowedOnceItIsGone) {
    manager_.reset();
    sample(-40, 5180);
    disconnect();
    p2pStarted(2437);
    EXPECT_THAT(staCommands(), IsEmpty());
    EXPECT_THAT(p2pCommands(), IsEmpty());
}

TEST_F(TxPowerOfBoth, SettingsAreKeptForTheNextManagerWhateverIsSetLater) {
    const auto play = [&] {
        for (const int rssi : {-100, -60, -40, -61, -71}) {
            sample(rssi, 5180);
        }
        p2pStarted(2437);
        p2pRemoved();
        EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20", "DRIVER SET_TXPOWER 9",
                                               "DRIVER SET_TXPOWER 5", "DRIVER SET_TXPOWER 9",
                                               "DRIVER SET_TXPOWER 20"));
        EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12", "DRIVER SET_TXPOWER 20"));
    };
    play();
    start({{"enable.sta", "false"},
           {"enable.p2p", "false"},
           {"enable.sta.per_chain", "true"},
           {"dbm.upper", "30"},
           {"dbm.middle", "19"},
           {"dbm.lower", "15"},
           {"dbm.p2p", "22"},
           {"rssi.upper", "-10"},
           {"rssi.middle.upper", "-20"},
           {"rssi.middle.lower", "-30"},
           {"rssi.lower", "-40"},
           {"unit.half.dbm", "true"}});
    play();
}

TEST_F(TxPowerPerChain, SettingsOfTheChainsAreKeptForTheNextManagerWhateverIsSetLater) {
    const std::string before = dump();
    start({{"perchain.low_rssi_lower", "1"},
           {"perchain.low_rssi_upper", "1"},
           {"perchain.limit_default_dbm0", "1"},
           {"perchain.limit_default_dbm1", "1"},
           {"perchain.limit_low_dbm0", "1"},
           {"perchain.limit_low_dbm1", "1"},
           {"enable.sta.per_chain", "false"}});
    EXPECT_EQ(dump(), before);
}

TEST_F(TxPowerManagerTest, ByDefaultEveryManagerSharesTheSettingsOfTheProcess) {
    set("txpower.enable.p2p", "true");
    set("txpower.dbm.upper", "31");
    {
        const TxPowerManager first(client_);
        p2pStarted(5180);
        EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 31"));
    }
    set("txpower.enable.p2p", "false");
    set("txpower.dbm.upper", "32");
    const TxPowerManager second(client_);
    p2pRemoved();
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 31"));
}

TEST_F(TxPowerOfStation, ASettingIsReadAtItsFirstUseNotBefore) {
    sample(-40, 2412);  // uses the upper step alone
    set("txpower.dbm.upper", "30");
    set("txpower.dbm.middle", "10");
    set("txpower.rssi.upper", "-35");
    sample(-40, 5180);
    EXPECT_THAT(staCommands(), ElementsAre("DRIVER SET_TXPOWER 20", "DRIVER SET_TXPOWER 10"));
}

TEST_F(TxPowerOfStation, HandTrackingIsReadAtEvery5GhzSample) {
    manager_->updateTxPowerConfig(false);
    sample(-100, 5180);
    staCommands();
    for (const bool on : {true, false, true, false}) {
        set("txpower.enable.handtracking", on ? "1" : "0");
        sample(-40, 5180);
        sample(-100, 5180);
        if (on) {
            EXPECT_THAT(staCommands(), IsEmpty());
        } else {
            EXPECT_THAT(staCommands(),
                        ElementsAre("DRIVER SET_TXPOWER 5", "DRIVER SET_TXPOWER 20"));
        }
    }
}

TEST_F(TxPowerOfBoth, EveryHandlerNotesItsTask) {
    sample(-40, 5180);
    disconnect();
    p2pStarted(2437);
    p2pRemoved();
    for (const char* handler :
         {"onStaConnected", "onStaDisconnected", "onP2pStarted", "onP2pStopped"}) {
        EXPECT_TRUE(composition_->ran(std::string("TxPowerManager.") + handler)) << handler;
    }
}

// Per-chain mode

TEST_F(TxPowerManagerTest, InPerChainModeTheChainsAreLimitedAndNoStepIsSent) {
    start({{"enable.sta", "true"},
           {"enable.sta.per_chain", "true"},
           {"perchain.low_rssi_lower", "-90"},
           {"perchain.low_rssi_upper", "-70"},
           {"perchain.limit_default_dbm0", "20"},
           {"perchain.limit_default_dbm1", "19"},
           {"perchain.limit_low_dbm0", "11"},
           {"perchain.limit_low_dbm1", "12"}});
    log_.clear();
    EXPECT_EQ(dump(),
              "\tPerChainTxPower: enabled\n"
              "\t  kLowRssiBoundLower: -90\n"
              "\t  kLowRssiBoundUpper: -70\n"
              "\t  kPowerLimitDefaultDbmArray: 20, 19\n"
              "\t  kPowerLimitLowRssiDbmArray: 11, 12\n"
              "\t  currentDbmArray: 20, 20\n");
    sample(-80, 2437);
    EXPECT_THAT(staCommands(),
                ElementsAre("DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 0 power 20",
                            "DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 1 power 20"));
    EXPECT_THAT(dump(), testing::EndsWith("\t  currentDbmArray: 11, 12\n"));
    EXPECT_THAT(infos(), IsEmpty());
    disconnect();
    EXPECT_THAT(staCommands(),
                ElementsAre("DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 0 power 11",
                            "DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 1 power 12"));
    EXPECT_THAT(infos(), ElementsAre("TxPowerManager: StaManager event(DISCONNECTED)"));
}

TEST_F(TxPowerManagerTest, InPerChainModeGroupsAreFollowedAsEver) {
    start({{"enable.p2p", "true"}, {"enable.sta.per_chain", "true"}});
    p2pStarted(2437);
    p2pRemoved();
    EXPECT_THAT(p2pCommands(), ElementsAre("DRIVER SET_TXPOWER 12", "DRIVER SET_TXPOWER 20"));
}

TEST_F(TxPowerPerChain, TheStationsToggleDoesNotMatter) {
    manager_->toggleFeature(false, NetInterfaceType::STA);
    sample(-80, 2437);
    EXPECT_THAT(staCommands(),
                ElementsAre("DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 0 power 20"));
}

}  // namespace Ursa::OS::Wifi
