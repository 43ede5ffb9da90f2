#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/FeatureList.h"
#include "tests/support/FeatureSwitches.h"

namespace Ursa::OS::Wifi {

namespace {

using test::switchesOf;
using testing::IsEmpty;

constexpr std::string_view kPrefix = "persist.vendor.wifi.";

/** `names` without kPrefix. */
std::vector<std::string> withoutPrefix(std::vector<std::string> names) {
    for (std::string& name : names) {
        EXPECT_EQ(name.substr(0, kPrefix.size()), kPrefix);
        name.erase(0, kPrefix.size());
    }
    return names;
}

/**
 * What shipped, and so stays: numbers, switches and dump are known outside of the daemon. Features
 * that come later need no row here.
 */
const struct Shipped {
    std::string manager;
    std::vector<std::string> switches;  ///< behind kPrefix
    bool tellsClients = false;
    std::string dumpLabel = manager;
} kShipped[] = {
    {"StaManager", {}},
    {"P2pManager", {}},
    {"AssocStartedManager", {}, true},
    {"ChannelSwitchManager", {"cmd.cs.p2p.corvid", "cmd.cs.p2p.ecsa"}, true},
    {"NoaManager", {"cmd.noa.p2p"}},
    {"MccTimeManager", {"cmd.mcc.p2p.increase.bw", "cmd.mcc.quota"}},
    {"ElnaBypassManager", {"cmd.elna.bypass.mode"}, false, "ElnaManager"},
    {"RegdomManager", {}, true},
    {"ScsManager", {"scs.enable"}},
    {"TxChainManager", {"txchain.enable.p2p"}},
    {"TxPowerManager", {"txpower.enable.sta", "txpower.enable.p2p"}},
    {"DevParamsManager", {"devparams.enable"}},
    {"PowerJumpDetectManager", {"powerjump.detect.enable"}},
    {"TelemetryManager", {"telemetry.enable"}},
    {"CoexManager", {"frequency.block.enable", "mipiclock.enable"}},
    {"MipiClockManager", {"mipiclock.enable"}},
    {"FrequencyBlockManager", {"frequency.block.enable"}},
};

TEST(FeatureList, ShippedFeaturesKeepNumberSwitchesAndLabel) {
    ASSERT_GE(kFeatureTable.size(), std::size(kShipped));
    for (size_t number = 0; number < std::size(kShipped); ++number) {
        const FeatureInfo& feature = kFeatureTable[number];
        SCOPED_TRACE(number);
        EXPECT_EQ(feature.managerName, kShipped[number].manager);
        EXPECT_EQ(withoutPrefix(switchesOf(feature)), kShipped[number].switches);
        EXPECT_EQ(feature.tellsClients, kShipped[number].tellsClients);
        EXPECT_EQ(feature.dumpLabel, kShipped[number].dumpLabel);
    }
}

TEST(FeatureList, ManagersAndLabelsAreUnique) {
    std::set<std::string_view> managers;
    std::set<std::string_view> labels;
    for (const FeatureInfo& feature : kFeatureTable) {
        EXPECT_TRUE(managers.insert(feature.managerName).second) << feature.managerName;
        EXPECT_TRUE(labels.insert(feature.dumpLabel).second) << feature.dumpLabel;
    }
}

/** The features of the list that have a switch but none among `words`. */
std::vector<std::string_view> notSwitchedOnBy(const std::set<std::string>& words) {
    std::vector<std::string_view> missing;
    for (const FeatureInfo& feature : kFeatureTable) {
        const auto names = withoutPrefix(switchesOf(feature));
        if (!names.empty() && std::none_of(names.begin(), names.end(), [&](const auto& name) {
                return words.count(name) != 0;
            })) {
            missing.push_back(feature.managerName);
        }
    }
    return missing;
}

TEST(FeatureList, LabScriptsThatSwitchMostFeaturesOnSwitchAllOn) {
    size_t scripts = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(LAB_FOLDER)) {
        if (entry.path().extension() != ".sh") {
            continue;
        }
        std::ifstream in(entry.path());
        std::string text{std::istreambuf_iterator<char>(in), {}};
        std::replace(text.begin(), text.end(), ';', ' ');
        std::istringstream words(text);
        const auto missing = notSwitchedOnBy({std::istream_iterator<std::string>(words), {}});
        if (missing.size() < kFeatureTable.size() / 2) {
            ++scripts;
            EXPECT_THAT(missing, IsEmpty()) << "add a switch to the list in " << entry.path();
        }
    }
    EXPECT_GE(scripts, 1U) << "no script of the lab switches most features on";
}

}  // namespace

}  // namespace Ursa::OS::Wifi
