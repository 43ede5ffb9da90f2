#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "tools/Json.h"

namespace Ursa::OS::Wifi::Tools {
namespace {

TEST(Json, FieldsKeepTheirOrderInOneLineWithoutSpaces) {
    EXPECT_EQ(toLine({{"event", "onChannelSwitch"},
                      {"frequency", int32_t{5180}},
                      {"width", uint32_t{80}},
                      {"isP2p", true}}),
              R"({"event":"onChannelSwitch","frequency":5180,"width":80,"isP2p":true})");
    EXPECT_EQ(toLine({{"event", "registered"}}), R"({"event":"registered"})");
}

TEST(Json, SmallestAndLargestNumbersAreWhole) {
    EXPECT_EQ(toLine({{"a", std::numeric_limits<int32_t>::min()},
                      {"b", std::numeric_limits<uint32_t>::max()}}),
              R"({"a":-2147483648,"b":4294967295})");
}

TEST(Json, QuotesBackslashesAndControlCharactersAreEscaped) {
    EXPECT_EQ(toLine(R"(a"b\c/d)"), R"("a\"b\\c/d")");
    EXPECT_EQ(toLine(std::string("\t\n\r\0\x01\x1b[31m", 10)), R"("\t\n\r\u0000\u0001\u001b[31m")");
}

TEST(Json, Utf8StaysAndOtherBytesBecomeTheReplacementCharacter) {
    EXPECT_EQ(toLine("\xC2\x80\xE0\xA0\x80\xF4\x8F\xBF\xBF"),
              "\"\xC2\x80\xE0\xA0\x80\xF4\x8F\xBF\xBF\"");
    EXPECT_EQ(toLine("a\xFFz"), "\"a\xEF\xBF\xBDz\"");
    EXPECT_EQ(toLine("\xE2\"\n"), "\"\xEF\xBF\xBD\\\"\\n\"") << "what follows is still escaped";
}

}  // namespace
}  // namespace Ursa::OS::Wifi::Tools
