#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "host/stats/AtomJson.h"

using android::frameworks::stats::V1_0::VendorAtom;
using host::atomJson;
using host::jsonString;

namespace {

VendorAtom::Value intValue(int32_t number) {
    VendorAtom::Value value;
    value.intValue(number);
    return value;
}

VendorAtom::Value stringValue(const std::string& text) {
    VendorAtom::Value value;
    value.stringValue(text);
    return value;
}

std::string floatJson(float number) {
    VendorAtom atom{};
    atom.values.resize(1);
    atom.values[0].floatValue(number);
    const std::string json = atomJson(atom).value_or("none");
    const size_t start = json.find("{\"float\"");
    return json.substr(start, json.size() - start - 2);
}

TEST(AtomJson, WritesTheValuesInTheirOrder) {
    const VendorAtom atom{
        "com.corvid.os",
        116183,
        {intValue(1), stringValue("WIFI_STA_CONNECTED"), intValue(5180), intValue(-50)}};
    EXPECT_EQ(
        "{\"reverseDomainName\":\"com.corvid.os\",\"atomId\":116183,\"values\":[{\"int\":1},"
        "{\"string\":\"WIFI_STA_CONNECTED\"},{\"int\":5180},{\"int\":-50}]}",
        atomJson(atom));
}

TEST(AtomJson, WritesAnAtomWithoutValues) {
    EXPECT_EQ("{\"reverseDomainName\":\"\",\"atomId\":0,\"values\":[]}", atomJson(VendorAtom{}));
}

TEST(AtomJson, WritesLongsWhole) {
    VendorAtom atom{};
    atom.values.resize(2);
    atom.values[0].longValue(INT64_MIN);
    atom.values[1].longValue(INT64_MAX);
    EXPECT_EQ(
        "{\"reverseDomainName\":\"\",\"atomId\":0,\"values\":[{\"long\":-9223372036854775808},"
        "{\"long\":9223372036854775807}]}",
        atomJson(atom));
}

TEST(AtomJson, WritesFloatsSoThatTheyReadBackTheSame) {
    EXPECT_EQ("{\"float\":1.5}", floatJson(1.5F));
    EXPECT_EQ("{\"float\":0.1}", floatJson(0.1F));
    EXPECT_EQ("{\"float\":-0}", floatJson(-0.0F));
    EXPECT_EQ("{\"float\":1e+30}", floatJson(1e30F));
    EXPECT_EQ("{\"float\":null}", floatJson(NAN));
    EXPECT_EQ("{\"float\":null}", floatJson(-INFINITY));
}

TEST(AtomJson, RefusesAValueOfAnUnknownKind) {
    VendorAtom atom{};
    atom.values = {intValue(1)};
    const uint8_t unknown = 99;
    // As it would arrive from a client that sends garbage.
    std::memcpy(static_cast<void*>(&atom.values[0]), &unknown, 1);
    EXPECT_EQ(std::nullopt, atomJson(atom));
    const uint8_t known = 0;
    std::memcpy(static_cast<void*>(&atom.values[0]), &known, 1);
}

TEST(JsonString, EscapesWhatMayNotStandForItself) {
    EXPECT_EQ("\"\"", jsonString(""));
    EXPECT_EQ("\"a\\\"b\\\\c/\"", jsonString("a\"b\\c/"));
    EXPECT_EQ("\"\\u0000\\u000a\\u001f\\u007f \"", jsonString(std::string("\0\n\x1f\x7f ", 5)));
}

TEST(JsonString, KeepsUtf8) {
    for (const std::string text : {"\u00e9", "\u20ac", "\U0001f600", "\u0080", "\u07ff", "\u0800",
                                   "\ud7ff", "\uffff", "\U0010ffff"}) {
        EXPECT_EQ("\"" + text + "\"", jsonString(text));
    }
}

TEST(JsonString, ReplacesEachByteThatIsNotUtf8) {
    const std::string replacement = "\xef\xbf\xbd";
    const auto expectReplaced = [&](const std::string& bytes, int count, const std::string& rest) {
        std::string expected = "\"";
        for (int i = 0; i < count; ++i) {
            expected += replacement;
        }
        EXPECT_EQ(expected + rest + "\"", jsonString(bytes + rest));
    };
    expectReplaced("\x80", 1, "x");              // no first byte
    expectReplaced("\xc3", 1, "x");              // cut short
    expectReplaced("\xe2\x82", 2, "");           // cut short by the end
    expectReplaced("\xc0\xaf", 2, "x");          // overlong
    expectReplaced("\xe0\x80\xaf", 3, "x");      // overlong
    expectReplaced("\xed\xa0\x80", 3, "x");      // a surrogate
    expectReplaced("\xf4\x90\x80\x80", 4, "x");  // above U+10FFFF
    expectReplaced("\xff\xfe", 2, "x");
}

}  // namespace
