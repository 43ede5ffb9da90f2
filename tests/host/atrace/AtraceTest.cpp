// The host's tracer as a program reaches it: the platform's macros and a property.

#define ATRACE_TAG ATRACE_TAG_HAL

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <cutils/trace.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/host/platform/TempRoot.h"

namespace {

using testing::ElementsAre;
using Json = nlohmann::json;

constexpr char kFile[] = "/data/misc/trace/corvid-wifi.json";

class Atrace : public testing::Test {
  protected:
    ~Atrace() override { turn("0"); }

    /** Sets the property, and waits until it has taken effect. */
    void turn(const std::string& value) {
        root_.setProperty("debug.trace.CorvidWifi", value);
        const bool on = value == "1" || value == "true";
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while ((ATRACE_ENABLED() != 0) != on && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            ATRACE_INIT();
        }
        ASSERT_EQ(ATRACE_ENABLED() != 0, on);
    }

    /** The trace without what it tells of the process. */
    Json events(const std::string& file = kFile) const {
        Json all = Json::parse(root_.read(file));
        EXPECT_EQ(all.at(0).at("ph"), "M");
        all.erase(0);
        return all;
    }

    bool isWritten() const { return std::filesystem::exists(root_.path("/data")); }

    TempRoot root_;
};

TEST_F(Atrace, NothingIsWrittenWhileItIsOff) {
    turn("0");
    ATRACE_BEGIN("slice");
    ATRACE_INT("counter", 1);
    ATRACE_END();
    EXPECT_FALSE(isWritten());
}

TEST_F(Atrace, SlicesNestAndCountersHaveValues) {
    turn("true");
    ATRACE_BEGIN("outer");
    ATRACE_BEGIN("inner \"quoted\"");
    ATRACE_END();
    ATRACE_INT("counter", -7);
    ATRACE_END();
    std::vector<std::string> order;
    for (const Json& event : events()) {
        order.push_back(event.at("ph").get<std::string>() + " " +
                        event.value("name", std::string()));
    }
    EXPECT_THAT(order, ElementsAre("B outer", "B inner \"quoted\"", "E ", "C counter", "E "));
    EXPECT_EQ(events().at(3).at("args").at("value"), -7);
}

TEST_F(Atrace, SwitchingOffEndsTheFileAndOnBeginsAnother) {
    turn("1");
    ATRACE_BEGIN("first");
    turn("0");
    ATRACE_END();
    EXPECT_EQ(events().size(), 1U);
    turn("1");
    ATRACE_INT("second", 2);
    EXPECT_EQ(events().size(), 1U);
    EXPECT_EQ(events().at(0).at("name"), "second");
    EXPECT_EQ(events(std::string(kFile) + ".1").at(0).at("name"), "first");
}

TEST_F(Atrace, EveryThreadHasItsOwnSlices) {
    constexpr int kThreads = 4;
    constexpr int kSlices = 200;
    turn("1");
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            const std::string name = "thread " + std::to_string(thread);
            for (int i = 0; i < kSlices; ++i) {
                ATRACE_BEGIN(name.c_str());
                ATRACE_END();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::map<int, std::vector<std::string>> names;
    std::map<int, int> open;
    for (const Json& event : events()) {
        const int thread = event.at("tid");
        if (event.at("ph") == "B") {
            EXPECT_EQ(open[thread]++, 0);
            names[thread].push_back(event.at("name"));
        } else {
            EXPECT_EQ(--open[thread], 0);
        }
    }
    ASSERT_EQ(names.size(), kThreads);
    for (const auto& [thread, slices] : names) {
        EXPECT_EQ(slices, std::vector<std::string>(kSlices, slices.front()));
    }
}

}  // namespace
