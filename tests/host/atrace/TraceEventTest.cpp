#include <unistd.h>

#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "host/atrace/TraceEvent.h"

namespace {

using host::TraceEvent;
using Json = nlohmann::json;

Json parsed(const TraceEvent& event) { return Json::parse(event.json()); }

TEST(TraceEvent, SliceHasItsNameAndTheThread) {
    const Json begin = parsed(TraceEvent::sliceBegin("STA CONNECTED"));
    EXPECT_EQ(begin.at("ph"), "B");
    EXPECT_EQ(begin.at("name"), "STA CONNECTED");
    EXPECT_EQ(begin.at("pid"), getpid());
    EXPECT_EQ(begin.at("tid"), gettid());
    const Json end = parsed(TraceEvent::sliceEnd());
    EXPECT_EQ(end.at("ph"), "E");
    EXPECT_EQ(end.at("tid"), gettid());
    EXPECT_GE(end.at("ts").get<double>(), begin.at("ts").get<double>());
}

TEST(TraceEvent, TimeIsTheMonotonicClockInMicroseconds) {
    const auto now = [] {
        timespec time = {};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
    };
    const double before = now();
    const double time = parsed(TraceEvent::sliceEnd()).at("ts").get<double>();
    EXPECT_GE(time, before - 0.001);  // the JSON has a nanosecond's digits
    EXPECT_LE(time, now() + 0.001);
}

TEST(TraceEvent, CounterHasItsValue) {
    const Json event = parsed(TraceEvent::counter("STA RSSI (dBm)", -48));
    EXPECT_EQ(event.at("ph"), "C");
    EXPECT_EQ(event.at("name"), "STA RSSI (dBm)");
    EXPECT_EQ(event.at("args").at("value"), -48);
    EXPECT_EQ(parsed(TraceEvent::counter("x", INT64_MIN)).at("args").at("value"), INT64_MIN);
}

TEST(TraceEvent, ProcessHasItsName) {
    const Json event = parsed(TraceEvent::processName("daemon"));
    EXPECT_EQ(event.at("ph"), "M");
    EXPECT_EQ(event.at("name"), "process_name");
    EXPECT_EQ(event.at("args").at("name"), "daemon");
}

TEST(TraceEvent, NameOfAnyBytesIsAStringOfThem) {
    std::string name;
    for (int byte = 1; byte < 256; ++byte) {
        name += static_cast<char>(byte);
    }
    // A quarter at a time: escaped, the whole is longer than an event may be.
    for (const size_t begin : {0, 64, 128, 192}) {
        const std::string part = name.substr(begin, 64);
        const auto text = parsed(TraceEvent::sliceBegin(part)).at("name").get<std::string>();
        std::string utf8;
        for (const char c : part) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte < 0x80) {
                utf8 += c;
            } else {
                utf8 += static_cast<char>(0xc0 | (byte >> 6));
                utf8 += static_cast<char>(0x80 | (byte & 0x3f));
            }
        }
        EXPECT_EQ(text, utf8);
    }
}

TEST(TraceEvent, NameThatIsTooLongIsCut) {
    for (const char c : {'x', '"', '\n', '\xff'}) {
        const std::string name(100'000, c);
        for (const TraceEvent& event :
             {TraceEvent::sliceBegin(name), TraceEvent::counter(name, INT64_MIN),
              TraceEvent::processName(name)}) {
            EXPECT_LE(event.json().size(), TraceEvent::kMaxSize);
            EXPECT_TRUE(Json::accept(event.json())) << event.json();
        }
    }
}

TEST(TraceEvent, SliceWithoutANameGetsOne) {
    EXPECT_EQ(parsed(TraceEvent::sliceBegin("")).at("name"), "?");
}

}  // namespace
