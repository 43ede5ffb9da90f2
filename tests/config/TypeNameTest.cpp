#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/FeatureList.h"

namespace Ursa::OS::Wifi {

namespace {

TEST(TypeName, ManagersNameIsTheBareNameOfItsClass) {
    EXPECT_EQ(typeName<StaManager>(), "StaManager");
    EXPECT_EQ(typeName<ChannelSwitchManager>(), "ChannelSwitchManager");
    EXPECT_EQ(typeName<P2pManager>(), "P2pManager");
}

TEST(TypeName, NameIsAConstantExpression) {
    static_assert(typeName<TxPowerManager>().size() == sizeof("TxPowerManager") - 1);
}

}  // namespace

}  // namespace Ursa::OS::Wifi
