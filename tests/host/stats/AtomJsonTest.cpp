#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "host/stats/AtomJson.h"

using android::frameworks::stats::V1_0::VendorAtom;
using host::atomJson;

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

VendorAtom::Value floatValue(float number) {
    VendorAtom::Value value;
    value.floatValue(number);
    return value;
}

/** The JSON of one value. */
std::string json(const VendorAtom::Value& value) {
    VendorAtom atom{};
    atom.values = {value};
    const std::string whole = atomJson(atom).value_or("none");
    const std::string begin = R"({"reverseDomainName":"","atomId":0,"values":[)";
    EXPECT_EQ(begin, whole.substr(0, begin.size()));
    return whole.substr(begin.size(), whole.size() - begin.size() - 2);
}

TEST(AtomJson, ValuesAreWrittenInTheirOrder) {
    const VendorAtom atom{
        "com.corvid.os",
        116183,
        {intValue(1), stringValue("WIFI_STA_CONNECTED"), intValue(5180), intValue(-50)}};
    EXPECT_EQ(
        "{\"reverseDomainName\":\"com.corvid.os\",\"atomId\":116183,\"values\":[{\"int\":1},"
        "{\"string\":\"WIFI_STA_CONNECTED\"},{\"int\":5180},{\"int\":-50}]}",
        atomJson(atom));
}

TEST(AtomJson, AtomWithoutValuesHasAnEmptyList) {
    EXPECT_EQ("{\"reverseDomainName\":\"\",\"atomId\":0,\"values\":[]}", atomJson(VendorAtom{}));
}

TEST(AtomJson, LongsAreWrittenWhole) {
    VendorAtom atom{};
    atom.values.resize(2);
    atom.values[0].longValue(INT64_MIN);
    atom.values[1].longValue(INT64_MAX);
    EXPECT_EQ(
        "{\"reverseDomainName\":\"\",\"atomId\":0,\"values\":[{\"long\":-9223372036854775808},"
        "{\"long\":9223372036854775807}]}",
        atomJson(atom));
}

TEST(AtomJson, FloatReadsBackTheSame) {
    EXPECT_EQ("{\"float\":1.5}", json(floatValue(1.5F)));
    EXPECT_EQ("{\"float\":0.1}", json(floatValue(0.1F)));
    EXPECT_EQ("{\"float\":3.0}", json(floatValue(3.0F)));
    EXPECT_EQ("{\"float\":-0.0}", json(floatValue(-0.0F)));
    EXPECT_EQ("{\"float\":1e+30}", json(floatValue(1e30F)));
}

TEST(AtomJson, FloatThatIsNoNumberIsNull) {
    EXPECT_EQ("{\"float\":null}", json(floatValue(NAN)));
    EXPECT_EQ("{\"float\":null}", json(floatValue(-INFINITY)));
}

TEST(AtomJson, ValueOfAnUnknownKindIsRefused) {
    VendorAtom atom{};
    atom.values = {intValue(1)};
    const uint8_t unknown = 99;
    // As it would arrive from a client that sends garbage.
    std::memcpy(static_cast<void*>(&atom.values[0]), &unknown, 1);
    EXPECT_EQ(std::nullopt, atomJson(atom));
    const uint8_t known = 0;
    std::memcpy(static_cast<void*>(&atom.values[0]), &known, 1);
}

TEST(AtomJson, StringIsEscapedWhereJsonAsksForIt) {
    EXPECT_EQ(R"({"string":""})", json(stringValue("")));
    EXPECT_EQ(R"({"string":"a\"b\\c/"})", json(stringValue("a\"b\\c/")));
    EXPECT_EQ(R"({"string":"\u0000\n\u001f "})", json(stringValue(std::string("\0\n\x1f ", 4))));
}

TEST(AtomJson, Utf8IsKept) {
    for (const std::string text : {"\u00e9", "\u20ac", "\U0001f600", "\u0080", "\u07ff", "\u0800",
                                   "\ud7ff", "\uffff", "\U0010ffff"}) {
        EXPECT_EQ("{\"string\":\"" + text + "\"}", json(stringValue(text)));
    }
}

TEST(AtomJson, BytesThatAreNotUtf8AreReplaced) {
    const std::string sequences[] = {
        "\x80",              // no first byte
        "\xc3",              // cut short
        "\xe2\x82",          // cut short
        "\xc0\xaf",          // overlong
        "\xe0\x80\xaf",      // overlong
        "\xed\xa0\x80",      // a surrogate
        "\xf4\x90\x80\x80",  // above U+10FFFF
        "\xff\xfe",
    };
    for (const std::string& bytes : sequences) {
        std::string replaced = json(stringValue("a" + bytes + "b"));
        int replacements = 0;
        for (size_t at = 0; (at = replaced.find("\xef\xbf\xbd")) != std::string::npos;) {
            replaced.erase(at, 3);
            ++replacements;
        }
        EXPECT_GT(replacements, 0);
        EXPECT_EQ(R"({"string":"ab"})", replaced);
    }
}

}  // namespace
