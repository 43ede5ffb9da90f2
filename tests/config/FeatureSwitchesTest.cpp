#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/system_properties.h>

#include "config/FeatureList.h"
#include "config/FeatureSwitches.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/FeatureSwitches.h"

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

using test::switchesOf;
using testing::ElementsAre;

class FeatureSwitches : public testing::Test {
  protected:
    /** Sets every switch of the list. */
    void setAll(const std::string& value) const {
        for (const FeatureInfo& feature : kFeatureTable) {
            for (const std::string& name : switchesOf(feature)) {
                root_.setProperty(name, value);
            }
        }
    }

    /** Expects that exactly the features without a switch are on. */
    static void expectOnlyThoseWithoutASwitch() {
        for (unsigned long number = 0; number < kFeatureTable.size(); ++number) {
            EXPECT_EQ(IsFeatureEnabled(number), switchesOf(kFeatureTable[number]).empty())
                << kFeatureTable[number].managerName;
        }
    }

    test::DeviceRoot root_;
};

TEST_F(FeatureSwitches, WithoutPropertiesOnlyFeaturesWithoutASwitchAreOn) {
    expectOnlyThoseWithoutASwitch();
}

TEST_F(FeatureSwitches, SwitchesThatAreFalseLeaveFeaturesWithoutASwitchOn) {
    setAll("false");
    expectOnlyThoseWithoutASwitch();
}

TEST_F(FeatureSwitches, SwitchThatDoesNotParseCountsAsOff) {
    setAll("yes");
    expectOnlyThoseWithoutASwitch();
}

TEST_F(FeatureSwitches, UnknownNumberIsOn) {
    for (const unsigned long number :
         std::vector<unsigned long>{kFeatureTable.size(), kFeatureTable.size() + 1, ULONG_MAX}) {
        EXPECT_TRUE(IsFeatureEnabled(number)) << number;
    }
}

TEST_F(FeatureSwitches, EachPropertySwitchesOnTheFeaturesThatNameItAndNoOthers) {
    for (const FeatureInfo& feature : kFeatureTable) {
        for (const std::string& property : switchesOf(feature)) {
            SCOPED_TRACE(property);
            root_.setProperty(property, "1");
            for (unsigned long number = 0; number < kFeatureTable.size(); ++number) {
                const auto names = switchesOf(kFeatureTable[number]);
                const bool named = std::count(names.begin(), names.end(), property) != 0;
                EXPECT_EQ(IsFeatureEnabled(number), named || names.empty())
                    << kFeatureTable[number].managerName;
            }
            root_.unsetProperty(property);
        }
    }
}

TEST_F(FeatureSwitches, SecondPropertyCountsWhenTheFirstIsFalse) {
    for (unsigned long number = 0; number < kFeatureTable.size(); ++number) {
        if (const auto names = switchesOf(kFeatureTable[number]); names.size() == 2) {
            root_.setProperty(names[0], "false");
            root_.setProperty(names[1], "true");
            EXPECT_TRUE(IsFeatureEnabled(number)) << names[1];
            root_.unsetProperty(names[0]);
            root_.unsetProperty(names[1]);
        }
    }
}

TEST_F(FeatureSwitches, SecondPropertyIsReadOnlyWhenTheFirstIsFalse) {
    for (unsigned long number = 0; number < kFeatureTable.size(); ++number) {
        const auto names = switchesOf(kFeatureTable[number]);
        SCOPED_TRACE(kFeatureTable[number].managerName);
        lookedUp.clear();
        IsFeatureEnabled(number);
        EXPECT_EQ(lookedUp, names);

        if (!names.empty()) {
            root_.setProperty(names[0], "true");
            lookedUp.clear();
            IsFeatureEnabled(number);
            EXPECT_THAT(lookedUp, ElementsAre(names[0]));
            root_.unsetProperty(names[0]);
        }
    }
}

TEST_F(FeatureSwitches, PropertyThatChangesIsSeenByTheNextCall) {
    for (unsigned long number = 0; number < kFeatureTable.size(); ++number) {
        if (const auto names = switchesOf(kFeatureTable[number]); !names.empty()) {
            root_.setProperty(names[0], "1");
            EXPECT_TRUE(IsFeatureEnabled(number)) << names[0];
            root_.setProperty(names[0], "0");
            EXPECT_FALSE(IsFeatureEnabled(number)) << names[0];
        }
    }
}

}  // namespace

}  // namespace Ursa::OS::Wifi
