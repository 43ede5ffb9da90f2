#include <string>
#include <utility>

#include "managers/PerChainTxPower.h"
#include "tests/managers/LinkPowerScene.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr ChainLimits kDefault = {20, 20};
constexpr ChainLimits kLow = {13, 20};

std::string limitCommand(int chain, int power) {
    return "DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain " + std::to_string(chain) + " power " +
           std::to_string(power);
}

/** The last line of a dump: the limits that are current. */
std::string current(const PerChainTxPower& chains) {
    const std::string text = chains.dump("");
    return text.substr(text.rfind("  currentDbmArray: "));
}

class PerChainTxPowerTest : public LinkPowerScene {
  protected:
    PerChainTxPower chains_{client_};
};

}  // namespace

TEST(PerChainTxPower, TheLowLimitsHoldOnlyOnAWeak2GhzLink) {
    const PerChainTxPower chains(nullptr);
    for (const int freq : {-1, 0, 1, 2412, 2484, 2999, 3000, 4999, 5000, 5180, 5955}) {
        const bool is2Ghz = freq >= 1 && freq < 3000;
        for (int rssi = -100; rssi <= 0; ++rssi) {
            const bool weak = rssi >= -84 && rssi <= -76;
            EXPECT_EQ(chains.chooseLimits(rssi, freq), is2Ghz && weak ? kLow : kDefault)
                << rssi << " dBm, " << freq << " MHz";
        }
    }
}

TEST(PerChainTxPower, BoundsConfiguredUpsideDownOrEqualNeverGiveTheLowLimits) {
    for (const auto& [lower, upper] : {std::pair(-75, -85), std::pair(-80, -80)}) {
        PerChainTxPower chains(nullptr);
        chains.setParameters(lower, upper, 20, 20, 13, 20);
        for (int rssi = -100; rssi <= 0; ++rssi) {
            EXPECT_EQ(chains.chooseLimits(rssi, 2437), kDefault) << rssi;
        }
    }
}

TEST_F(PerChainTxPowerTest, ACommandCarriesTheLimitThatWasCurrentBefore) {
    chains_.update(-80, 2437);
    EXPECT_THAT(staCommands(), ElementsAre(limitCommand(0, 20)));
    EXPECT_EQ(current(chains_), "  currentDbmArray: 13, 20\n");
    chains_.update(-60, 2437);
    EXPECT_THAT(staCommands(), ElementsAre(limitCommand(0, 13)));
    EXPECT_EQ(current(chains_), "  currentDbmArray: 20, 20\n");
    EXPECT_THAT(log_.lines(), IsEmpty()) << "nothing is logged";
}

TEST_F(PerChainTxPowerTest, OnlyAChainWhoseLimitChangesIsSent) {
    chains_.setParameters(-85, -75, 20, 20, 20, 15);
    chains_.update(-80, 2437);
    chains_.update(-80, 2437);
    EXPECT_THAT(staCommands(), ElementsAre(limitCommand(1, 20)));
    chains_.update(-1, -1);  // no link
    EXPECT_THAT(staCommands(), ElementsAre(limitCommand(1, 15)));
}

TEST_F(PerChainTxPowerTest, AFailedChainKeepsItsLimitAndTheOtherIsStillSent) {
    chains_.setParameters(-85, -75, 20, 20, 13, 14);
    sta_.fail(limitCommand(0, 20));
    chains_.update(-80, 2437);
    EXPECT_THAT(staCommands(), ElementsAre(limitCommand(0, 20), limitCommand(1, 20)));
    EXPECT_EQ(current(chains_), "  currentDbmArray: 20, 14\n");
    sta_.answer(limitCommand(0, 20), "OK\n");
    chains_.update(-80, 2437);
    EXPECT_THAT(staCommands(), ElementsAre(limitCommand(0, 20))) << "tried again";
    EXPECT_EQ(current(chains_), "  currentDbmArray: 13, 14\n");
}

TEST_F(PerChainTxPowerTest, TheTextOfAReplyChangesNothing) {
    for (const std::string reply : {"FAIL\n", "UNKNOWN COMMAND\n", ""}) {
        PerChainTxPower chains(client_);
        sta_.answer(limitCommand(0, 20), reply);
        chains.update(-80, 2437);
        EXPECT_EQ(current(chains), "  currentDbmArray: 13, 20\n") << reply;
    }
}

TEST(PerChainTxPower, WithoutAClientEveryCommandCountsAsSent) {
    PerChainTxPower chains(nullptr);
    chains.update(-80, 2437);
    EXPECT_EQ(current(chains), "  currentDbmArray: 13, 20\n");
    chains.update(-76, 2999);
    EXPECT_EQ(current(chains), "  currentDbmArray: 13, 20\n");
    chains.update(-75, 2437);
    EXPECT_EQ(current(chains), "  currentDbmArray: 20, 20\n");
}

TEST(PerChainTxPower, NewParametersDoNotTouchWhatIsCurrent) {
    PerChainTxPower chains(nullptr);
    chains.setParameters(-90, -70, 1, 2, 3, 4);
    EXPECT_EQ(chains.dump("> "),
              "> PerChainTxPower: enabled\n"
              ">   kLowRssiBoundLower: -90\n"
              ">   kLowRssiBoundUpper: -70\n"
              ">   kPowerLimitDefaultDbmArray: 1, 2\n"
              ">   kPowerLimitLowRssiDbmArray: 3, 4\n"
              ">   currentDbmArray: 20, 20\n");
}

}  // namespace Ursa::OS::Wifi
