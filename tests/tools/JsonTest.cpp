#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "tools/Json.h"

namespace Ursa::OS::Wifi::Tools {
namespace {

TEST(Json, AnEmptyObjectIsTwoBraces) { EXPECT_EQ(JsonObject().str(), "{}"); }

TEST(Json, MembersStandInTheOrderOfTheCallsWithoutSpaces) {
    EXPECT_EQ(JsonObject()
                  .add("event", "onChannelSwitch")
                  .add("frequency", int32_t{5180})
                  .add("width", uint32_t{80})
                  .add("isP2p", true)
                  .add("other", false)
                  .str(),
              R"({"event":"onChannelSwitch","frequency":5180,"width":80,"isP2p":true,)"
              R"("other":false})");
}

TEST(Json, TheSmallestAndLargestNumbersAreWhole) {
    EXPECT_EQ(JsonObject()
                  .add("a", std::numeric_limits<int32_t>::min())
                  .add("b", std::numeric_limits<uint32_t>::max())
                  .str(),
              R"({"a":-2147483648,"b":4294967295})");
}

TEST(Json, QuotesAndBackslashesAreEscaped) {
    EXPECT_EQ(quoteJson(R"(a"b\c/d)"), R"("a\"b\\c/d")");
    EXPECT_EQ(JsonObject().add("a\"", "").str(), R"({"a\"":""})");
}

TEST(Json, ControlCharactersAreEscaped) {
    EXPECT_EQ(quoteJson("\t\n\r"), R"("\t\n\r")");
    EXPECT_EQ(quoteJson(std::string("\0\x01\x1f\x7f\x1b[31m", 9)),
              R"("\u0000\u0001\u001f\u007f\u001b[31m")");
}

TEST(Json, ValidUtf8StaysAsItIs) {
    for (const char* text : {"\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                             "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(quoteJson(text), "\"" + std::string(text) + "\"");
    }
}

TEST(Json, EachByteThatIsNotUtf8BecomesTheReplacementCharacter) {
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_EQ(quoteJson("\x80"), "\"" + r + "\"") << "a stray continuation byte";
    EXPECT_EQ(quoteJson("a\xFFz"), "\"a" + r + "z\"") << "never a part of UTF-8";
    EXPECT_EQ(quoteJson("\xC0\xAF"), "\"" + r + r + "\"") << "longer than needed";
    EXPECT_EQ(quoteJson("\xE0\x9F\xBF"), "\"" + r + r + r + "\"") << "longer than needed";
    EXPECT_EQ(quoteJson("\xF0\x8F\xBF\xBF"), "\"" + r + r + r + r + "\"") << "longer than needed";
    EXPECT_EQ(quoteJson("\xED\xA0\x80"), "\"" + r + r + r + "\"") << "a surrogate";
    EXPECT_EQ(quoteJson("\xF4\x90\x80\x80"), "\"" + r + r + r + r + "\"") << "above U+10FFFF";
    EXPECT_EQ(quoteJson("\xF5\x80\x80\x80"), "\"" + r + r + r + r + "\"") << "above U+10FFFF";
    EXPECT_EQ(quoteJson("\xE2\x82"), "\"" + r + r + "\"") << "cut short by the end";
    EXPECT_EQ(quoteJson("\xE2\x82z"), "\"" + r + r + "z\"") << "cut short by a letter";
    EXPECT_EQ(quoteJson("\xE2\"\n"), "\"" + r + "\\\"\\n\"") << "what follows is still escaped";
}

}  // namespace
}  // namespace Ursa::OS::Wifi::Tools
