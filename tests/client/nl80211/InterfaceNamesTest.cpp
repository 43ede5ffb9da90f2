#include <string>

#include <gtest/gtest.h>

#include "client/InterfaceNames.h"

namespace Ursa::OS::Wifi {

namespace {

TEST(InterfaceNames, EqualNamesShareOneText) {
    InterfaceNames names;
    const char* first = names.add("p2p0");
    EXPECT_STREQ(first, "p2p0");
    EXPECT_EQ(names.add(std::string("p2p") + "0"), first);
    EXPECT_NE(names.add("p2p1"), first);
}

TEST(InterfaceNames, TextStaysInPlaceWhenManyNamesFollow) {
    InterfaceNames names;
    const char* first = names.add("p2p-wlan0-00000");
    for (int group = 1; group < 1000; ++group) {
        EXPECT_NE(names.add("p2p-wlan0-" + std::to_string(group)), nullptr);
    }
    EXPECT_STREQ(first, "p2p-wlan0-00000");
    EXPECT_EQ(names.add("p2p-wlan0-00000"), first);
}

TEST(InterfaceNames, NewNameBeyondTheCapacityIsRefusedAndKeptOnesAreNot) {
    InterfaceNames names(2);
    const char* first = names.add("p2p0");
    EXPECT_NE(names.add("p2p1"), nullptr);
    EXPECT_EQ(names.add("p2p2"), nullptr);
    EXPECT_EQ(names.add("p2p0"), first);
}

}  // namespace

}  // namespace Ursa::OS::Wifi
