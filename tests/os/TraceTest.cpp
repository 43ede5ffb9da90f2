#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "os/Trace.h"

// The platform's tracer, in the place of libcutils'.

namespace {

bool isTracing = false;
int updates = 0;
std::vector<std::string> traced;

}  // namespace

extern "C" {

uint64_t atrace_get_enabled_tags() { return isTracing ? ATRACE_TAG_HAL : ATRACE_TAG_NOT_READY; }
void atrace_init() { ++updates; }
void atrace_begin_body(const char* name) { traced.push_back(std::string("begin ") + name); }
void atrace_end_body() { traced.emplace_back("end"); }
void atrace_int_body(const char* name, int32_t value) {
    traced.push_back(std::string(name) + " = " + std::to_string(value));
}

}  // extern "C"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Ursa::OS::traceCounter;
using Ursa::OS::TraceName;
using Ursa::OS::TraceSlice;

class Trace : public testing::Test {
  protected:
    void SetUp() override {
        isTracing = true;
        updates = 0;
        traced.clear();
    }
    ~Trace() override { isTracing = false; }
};

TEST_F(Trace, SlicesNest) {
    {
        const TraceSlice outer([] { return TraceName("STA", "CONNECTED"); });
        const TraceSlice inner([] { return std::string("StaManager.onStaConnected"); });
        traceCounter("RSSI", -48);
    }
    EXPECT_THAT(traced, ElementsAre("begin STA CONNECTED", "begin StaManager.onStaConnected",
                                    "RSSI = -48", "end", "end"));
}

TEST_F(Trace, NameIsNotMadeWhileTracingIsOff) {
    isTracing = false;
    bool isMade = false;
    {
        const TraceSlice slice([&] {
            isMade = true;
            return TraceName("STA");
        });
        traceCounter("RSSI", -48);
    }
    EXPECT_FALSE(isMade);
    EXPECT_THAT(traced, IsEmpty());
}

TEST_F(Trace, SliceThatBeganWhileTracingWasOffHasNoEnd) {
    isTracing = false;
    std::optional<TraceSlice> slice(std::in_place, [] { return TraceName("STA"); });
    isTracing = true;
    slice.reset();
    EXPECT_THAT(traced, IsEmpty());
}

TEST_F(Trace, OutermostSliceNoticesTheSwitch) {
    {
        const TraceSlice outer = TraceSlice::outermost([] { return TraceName("outer"); });
        const TraceSlice inner([] { return TraceName("inner"); });
    }
    EXPECT_EQ(updates, 1);
    EXPECT_THAT(traced, ElementsAre("begin outer", "begin inner", "end", "end"));
}

TEST(TraceName, PartsAreJoinedByBlanks) {
    EXPECT_STREQ(TraceName("STA", std::string_view("DRIVER SET_TXPOWER 20")).c_str(),
                 "STA DRIVER SET_TXPOWER 20");
    EXPECT_STREQ(TraceName("").c_str(), "");
}

TEST(TraceName, ControlCharactersBecomeBlanks) {
    EXPECT_STREQ(TraceName("a\nb\tc\x7f\x01z\xc3\xa4").c_str(), "a b c  z\xc3\xa4");
}

TEST(TraceName, LongNameIsCut) {
    const std::string text(1000, 'x');
    EXPECT_EQ(std::string(TraceName("STA", text).c_str()),
              "STA " + text.substr(0, TraceName::kMaxSize - 4));
    EXPECT_EQ(std::string(TraceName(text, text).c_str()), text.substr(0, TraceName::kMaxSize));
}

}  // namespace
