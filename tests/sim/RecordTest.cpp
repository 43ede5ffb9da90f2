#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "sim/Record.h"
#include "tests/sim/SimDriver.h"

using sim::Record;

namespace {

std::string allBytes() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

TEST(Record, MembersStandInOrderOnOneLine) {
    Record record("attach", "wlan0", "/tmp/wpa_ctrl_4711-1");
    record.with("monitors", 1).withNull("reply");
    record.t = 0.0874;
    EXPECT_EQ(record.json(),
              R"({"t":0.087,"kind":"attach","socket":"wlan0","text":"/tmp/wpa_ctrl_4711-1",)"
              R"("monitors":1,"reply":null})");
}

TEST(Record, SocketIsLeftAwayWhenThereIsNone) {
    EXPECT_EQ(Record("ok", "").with("line", 3).json(),
              R"({"t":0.0,"kind":"ok","text":"","line":3})");
}

TEST(Record, BytesFrom0x7FOnStandAsTheirNumber) {
    EXPECT_EQ(sim::lineOf(sim::jsonOf("a\"\\\n\x7f\x80\xff")), R"("a\"\\\n\u007f\u0080\u00ff")");
}

TEST(Record, AnyBytesCanBeReadBack) {
    const Record record = Record("event", "wlan0", allBytes()).with("reply", allBytes());
    const auto read = simtest::SimRecord::parse(record.json());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->text(), allBytes());
    EXPECT_EQ((*read)["reply"], allBytes());
    EXPECT_EQ(record.field("reply"), allBytes());
}

TEST(Record, TextThatIsNoObjectIsNoRecord) {
    EXPECT_FALSE(simtest::SimRecord::parse("plain words"));
    EXPECT_FALSE(simtest::SimRecord::parse("[1]"));
    EXPECT_FALSE(simtest::SimRecord::parse("{\"t\":1"));
}

}  // namespace
