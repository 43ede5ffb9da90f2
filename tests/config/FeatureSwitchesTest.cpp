#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/system_properties.h>

#include "config/FeatureSwitches.h"
#include "tests/support/DeviceRoot.h"

namespace {

/** The names of the properties that were looked up, in order. */
std::vector<std::string> lookedUp;

}  // namespace

// The linker leads every look-up here (see CMakeLists.txt).
// NOLINTBEGIN(bugprone-reserved-identifier): the names that its --wrap gives.
extern "C" const prop_info* __real___system_property_find(const char* name);
extern "C" const prop_info* __wrap___system_property_find(const char* name);
const prop_info* __wrap___system_property_find(const char* name) {
    lookedUp.emplace_back(name);
    return __real___system_property_find(name);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace Ursa::OS::Wifi {

namespace {

using testing::ElementsAre;

/** Which properties switch which feature on, in the order in which they are read. */
struct Switch {
    unsigned long feature;
    std::vector<std::string> properties;  ///< behind "persist.vendor.wifi."; none: always on
};

const std::vector<Switch> kSwitches = {
    {0, {}},
    {1, {}},
    {2, {}},
    {3, {"cmd.cs.p2p.corvid", "cmd.cs.p2p.ecsa"}},
    {4, {"cmd.noa.p2p"}},
    {5, {"cmd.mcc.p2p.increase.bw", "cmd.mcc.quota"}},
    {6, {"cmd.elna.bypass.mode"}},
    {7, {}},
    {8, {"scs.enable"}},
    {9, {"txchain.enable.p2p"}},
    {10, {"txpower.enable.sta", "txpower.enable.p2p"}},
    {11, {"devparams.enable"}},
    {12, {"powerjump.detect.enable"}},
    {13, {"telemetry.enable"}},
    {14, {"frequency.block.enable", "mipiclock.enable"}},
    {15, {"mipiclock.enable"}},
    {16, {"frequency.block.enable"}},
};

class FeatureSwitches : public testing::Test {
  protected:
    void set(const std::string& name, const std::string& value) const {
        root_.setProperty("persist.vendor.wifi." + name, value);
    }
    void unset(const std::string& name) const {
        root_.unsetProperty("persist.vendor.wifi." + name);
    }

    /** The numbers of the features up to 16 that are on now. */
    static std::vector<unsigned long> enabled() {
        std::vector<unsigned long> features;
        for (unsigned long feature = 0; feature <= 16; ++feature) {
            if (IsFeatureEnabled(feature)) {
                features.push_back(feature);
            }
        }
        return features;
    }

    test::DeviceRoot root_;
};

TEST_F(FeatureSwitches, WithoutPropertiesOnlyTheAlwaysOnFeaturesAreOn) {
    EXPECT_THAT(enabled(), ElementsAre(0, 1, 2, 7));
}

TEST_F(FeatureSwitches, AnUnknownNumberIsOn) {
    for (const unsigned long feature : {17UL, 18UL, 100UL, ULONG_MAX}) {
        EXPECT_TRUE(IsFeatureEnabled(feature)) << feature;
    }
}

TEST_F(FeatureSwitches, EachPropertyOfAFeatureSwitchesItOnAlone) {
    for (const Switch& entry : kSwitches) {
        for (const std::string& property : entry.properties) {
            SCOPED_TRACE(property);
            EXPECT_FALSE(IsFeatureEnabled(entry.feature));
            set(property, "true");
            EXPECT_TRUE(IsFeatureEnabled(entry.feature));
            unset(property);
        }
    }
}

TEST_F(FeatureSwitches, APropertySwitchesNothingOnButItsFeatures) {
    for (const Switch& entry : kSwitches) {
        for (const std::string& property : entry.properties) {
            SCOPED_TRACE(property);
            set(property, "1");
            for (const Switch& other : kSwitches) {
                const bool names =
                    std::count(other.properties.begin(), other.properties.end(), property) != 0;
                EXPECT_EQ(IsFeatureEnabled(other.feature), names || other.properties.empty())
                    << other.feature;
            }
            unset(property);
        }
    }
}

TEST_F(FeatureSwitches, NoPropertySwitchesAnAlwaysOnFeatureOff) {
    for (const Switch& entry : kSwitches) {
        for (const std::string& property : entry.properties) {
            set(property, "false");
        }
    }
    EXPECT_THAT(enabled(), ElementsAre(0, 1, 2, 7));
}

TEST_F(FeatureSwitches, APropertyThatDoesNotParseCountsAsOff) {
    for (const Switch& entry : kSwitches) {
        for (const std::string& property : entry.properties) {
            set(property, "yes");
        }
    }
    EXPECT_THAT(enabled(), ElementsAre(0, 1, 2, 7));
}

TEST_F(FeatureSwitches, TheSecondPropertyCountsWhenTheFirstIsFalse) {
    for (const Switch& entry : kSwitches) {
        if (entry.properties.size() == 2) {
            set(entry.properties[0], "false");
            set(entry.properties[1], "true");
            EXPECT_TRUE(IsFeatureEnabled(entry.feature)) << entry.feature;
            unset(entry.properties[0]);
            unset(entry.properties[1]);
        }
    }
}

TEST_F(FeatureSwitches, TheFirstPropertyIsReadFirstAndTheSecondOnlyWhenTheFirstIsFalse) {
    for (const Switch& entry : kSwitches) {
        SCOPED_TRACE(entry.feature);
        std::vector<std::string> names;
        for (const std::string& property : entry.properties) {
            names.push_back("persist.vendor.wifi." + property);
        }
        lookedUp.clear();
        IsFeatureEnabled(entry.feature);
        EXPECT_EQ(lookedUp, names);

        if (!names.empty()) {
            set(entry.properties[0], "true");
            lookedUp.clear();
            IsFeatureEnabled(entry.feature);
            EXPECT_THAT(lookedUp, ElementsAre(names[0]));
            unset(entry.properties[0]);
        }
    }
}

TEST_F(FeatureSwitches, EveryCallReadsTheProperties) {
    EXPECT_FALSE(IsFeatureEnabled(kFeatureScs));
    set("scs.enable", "1");
    EXPECT_TRUE(IsFeatureEnabled(kFeatureScs));
    set("scs.enable", "0");
    EXPECT_FALSE(IsFeatureEnabled(kFeatureScs));
}

}  // namespace

}  // namespace Ursa::OS::Wifi
