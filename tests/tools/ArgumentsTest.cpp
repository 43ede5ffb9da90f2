#include <string>

#include <gtest/gtest.h>

#include "tools/Arguments.h"

namespace Ursa::OS::Wifi::Tools {
namespace {

using ::android::hardware::hidl_string;
using ::vendor::corvid::hardware::wifi::V1_0::P2pDeviceType;

template <typename Value>
void expectRead(const char* word, Value expected) {
    Value value{};
    EXPECT_TRUE(parseArgument(word, value)) << word;
    EXPECT_EQ(value, expected) << word;
}

template <typename Value>
void expectRefused(const char* word, Value unchanged) {
    Value value = unchanged;
    EXPECT_FALSE(parseArgument(word, value)) << word;
    EXPECT_EQ(value, unchanged) << word;
}

TEST(Arguments, NumbersAreDecimalOr0xHexadecimal) {
    expectRead<uint32_t>("0", 0);
    expectRead<uint32_t>("36", 36);
    expectRead<uint32_t>("010", 10);
    expectRead<uint32_t>("0x24", 36);
    expectRead<uint32_t>("0XfF", 255);
    expectRead<int32_t>("-5", -5);
    expectRead<int32_t>("-0x10", -16);
}

TEST(Arguments, NumbersAtTheirTypesLimitsAreRead) {
    expectRead<uint32_t>("4294967295", 4294967295U);
    expectRead<uint32_t>("0xffffffff", 4294967295U);
    expectRead<int32_t>("2147483647", 2147483647);
    expectRead<int32_t>("-2147483648", -2147483647 - 1);
    expectRead<int32_t>("-0x80000000", -2147483647 - 1);
    expectRead<uint8_t>("255", 255);
    expectRead<uint8_t>("0xff", 255);
}

TEST(Arguments, NumbersBeyondTheirTypesLimitsAreRefused) {
    expectRefused<uint32_t>("4294967296", 7);
    expectRefused<uint32_t>("0x100000000", 7);
    expectRefused<uint32_t>("-1", 7);
    expectRefused<uint32_t>("18446744073709551617", 7);  // 2^64 + 1
    expectRefused<int32_t>("2147483648", 7);
    expectRefused<int32_t>("0xffffffff", 7);
    expectRefused<int32_t>("-2147483649", 7);
    expectRefused<uint8_t>("256", 7);
    expectRefused<uint8_t>("0x100", 7);
    expectRefused<uint8_t>("-1", 7);
}

TEST(Arguments, TextThatIsNotWhollyANumberIsRefused) {
    for (const char* word : {"", "-", "0x", "-0x", "x", "12a", "0x1g", " 1", "1 ", "+1", "--1",
                             "-0x-1", "0x-1", "1.0", "1e3", "true"}) {
        expectRefused<uint32_t>(word, 7);
        expectRefused<int32_t>(word, 7);
        expectRefused<uint8_t>(word, 7);
    }
}

TEST(Arguments, BooleansAreTrueAndFalseOnly) {
    expectRead("true", true);
    expectRead("false", false);
    for (const char* word : {"", "1", "0", "True", "yes", "truex"}) {
        expectRefused(word, true);
        expectRefused(word, false);
    }
}

TEST(Arguments, EnumeratorsAreReadByNameOrAny32BitNumber) {
    expectRead("NONE", P2pDeviceType::NONE);
    expectRead("HALBERD", P2pDeviceType::HALBERD);
    expectRead("MIRACAST", P2pDeviceType::MIRACAST);
    expectRead("UNKNOWN", P2pDeviceType::UNKNOWN);
    expectRead("2", P2pDeviceType::MIRACAST);
    expectRead("7", static_cast<P2pDeviceType>(7));
    expectRead("0xffffffff", static_cast<P2pDeviceType>(0xffffffffU));
}

TEST(Arguments, UnknownEnumeratorsAreRefused) {
    for (const char* word : {"", "halberd", "HALBERD ", "P2pDeviceType::HALBERD", "4294967296",
                             "-1", "NONE|HALBERD"}) {
        expectRefused(word, P2pDeviceType::MIRACAST);
    }
}

TEST(Arguments, TextIsReadAsItIs) {
    for (const char* word : {"", "192.168.49.1", " ", "\xFF\n\"", "--help"}) {
        expectRead(word, hidl_string(word));
    }
}

TEST(Arguments, CallbackOtherThanNullIsRefused) {
    CallbackArgument value;
    EXPECT_TRUE(parseArgument("null", value));
    EXPECT_EQ(value, nullptr);
    for (const char* word : {"", "NULL", "0", "callback"}) {
        EXPECT_FALSE(parseArgument(word, value)) << word;
    }
}

TEST(Arguments, DescriptionsSayWhatIsAllowed) {
    EXPECT_EQ(describeArgument(int32_t{}),
              "a number from -2147483648 to 2147483647 (decimal or 0x hexadecimal)");
    EXPECT_EQ(describeArgument(uint32_t{}),
              "a number from 0 to 4294967295 (decimal or 0x hexadecimal)");
    EXPECT_EQ(describeArgument(uint8_t{}), "a number from 0 to 255 (decimal or 0x hexadecimal)");
    EXPECT_EQ(describeArgument(bool{}), "true or false");
    EXPECT_EQ(describeArgument(P2pDeviceType{}),
              "NONE, HALBERD, MIRACAST, UNKNOWN, or a number from 0 to 4294967295 (decimal or 0x "
              "hexadecimal)");
    EXPECT_EQ(describeArgument(hidl_string()), "a text");
}

}  // namespace
}  // namespace Ursa::OS::Wifi::Tools
