// What the running daemon writes for the platform's trace viewer.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/component/Headset.h"

using component::Headset;
using testing::Contains;
using Json = nlohmann::json;
namespace fs = std::filesystem;

namespace {

/** A slice, with what lies in it on its thread. */
struct Slice {
    std::string name;
    std::vector<Slice> inside;

    const Slice* find(const std::string& wanted) const {
        for (const Slice& slice : inside) {
            if (slice.name == wanted) {
                return &slice;
            }
        }
        return nullptr;
    }
};

class Tracing : public testing::Test {
  protected:
    /** The station's power control, traced or not. */
    void start(const std::string& tracing) {
        headset_.play("property debug.trace.CorvidWifi " + tracing);
        headset_.play("property persist.vendor.wifi.txpower.enable.sta true");
        headset_.play("supplicant start");
        headset_.startDaemon();
        headset_.expectConnection("wlan0");
    }

    /** A link, until the daemon has handled its event. */
    void connect() {
        headset_.play("connect freq=5180 rssi=-48");
        headset_.expectLog("I", "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20");
        headset_.settle();
    }

    std::string path() const { return headset_.root() + "/data/misc/trace/corvid-wifi.json"; }

    /** The trace. Read anew if the daemon wrote between two reads of the file. */
    Json events() const {
        const auto end = std::chrono::steady_clock::now() + test::kPatience;
        while (true) {
            std::ifstream file(path());
            const std::string text((std::istreambuf_iterator<char>(file)), {});
            if (Json::accept(text) || std::chrono::steady_clock::now() > end) {
                return Json::parse(text);
            }
        }
    }

    /** The slices of all threads that lie in no other. */
    std::vector<Slice> slices() const {
        std::map<int, std::vector<Slice>> open;  // of each thread, from the outermost
        std::vector<Slice> outermost;
        for (const Json& event : events()) {
            std::vector<Slice>& stack = open[event.at("tid")];
            if (event.at("ph") == "B") {
                stack.push_back({event.at("name"), {}});
            } else if (event.at("ph") == "E" && !stack.empty()) {
                Slice slice = std::move(stack.back());
                stack.pop_back();
                (stack.empty() ? outermost : stack.back().inside).push_back(std::move(slice));
            }
        }
        return outermost;
    }

    /** The names of the slices that have no end yet. */
    std::multiset<std::string> openSlices() const {
        std::map<int, std::vector<std::string>> open;
        for (const Json& event : events()) {
            std::vector<std::string>& stack = open[event.at("tid")];
            if (event.at("ph") == "B") {
                stack.push_back(event.at("name"));
            } else if (event.at("ph") == "E" && !stack.empty()) {
                stack.pop_back();
            }
        }
        std::multiset<std::string> names;
        for (const auto& [thread, stack] : open) {
            names.insert(stack.begin(), stack.end());
        }
        return names;
    }

    std::optional<Slice> slice(const std::string& name) const {
        for (Slice& slice : slices()) {
            if (slice.name == name) {
                return std::move(slice);
            }
        }
        return std::nullopt;
    }

    std::vector<int> counter(const std::string& name) const {
        std::vector<int> values;
        for (const Json& event : events()) {
            if (event.at("ph") == "C" && event.at("name") == name) {
                values.push_back(event.at("args").at("value"));
            }
        }
        return values;
    }

    Headset headset_;
};

TEST_F(Tracing, EventHoldsItsSubscribersAndTheirCommands) {
    start("true");
    connect();
    const std::optional<Slice> event = slice("STA CONNECTED");
    ASSERT_TRUE(event);
    const Slice* const subscriber = event->find("StaManager.onStaConnected");
    ASSERT_NE(subscriber, nullptr);
    EXPECT_NE(subscriber->find("STA SIGNAL_POLL"), nullptr);
    const Slice* const power = subscriber->find("TxPowerManager.onStaDisconnected");
    ASSERT_NE(power, nullptr) << "a new link begins with the upper step";
    EXPECT_NE(power->find("STA DRIVER SET_TXPOWER 20"), nullptr);
    EXPECT_THAT(counter("STA RSSI (dBm)"), Contains(-48));
    EXPECT_THAT(counter("STA power (dBm)"), Contains(20));
}

TEST_F(Tracing, CallHoldsItsCommandAndItsNetlinkRequest) {
    start("true");
    connect();
    EXPECT_EQ(headset_.call("getStaInfo").status, 0);
    const std::optional<Slice> server = slice("HIDL::IWifi::getStaInfo::server");
    ASSERT_TRUE(server) << "the interface's generated code has slices, too";
    const Slice* const call = server->find("StaManager.call");
    ASSERT_NE(call, nullptr);
    EXPECT_NE(call->find("STA SIGNAL_POLL"), nullptr);
    EXPECT_NE(call->find("nl80211 stations"), nullptr);
}

TEST_F(Tracing, EverySliceOfTheDocumentationIsWritten) {
    headset_.play("property persist.vendor.wifi.scs.enable true");
    start("true");
    connect();
    headset_.expectRecords(2, "command", "SIGNAL_POLL");  // of the event, and of a sample
    headset_.call("getStaInfo");
    headset_.call("clearScs 0");

    std::set<std::string> written;
    for (const Json& event : events()) {
        written.insert(event.value("name", ""));
    }
    size_t slices = 0;
    bool isTable = false;
    std::ifstream document(DEBUG_DOCUMENT);
    for (std::string line; std::getline(document, line);) {
        isTable = line == "| slice | is |" || (isTable && !line.empty());
        const size_t end = line.find("` |");
        if (isTable && line.rfind("| `", 0) == 0 && end != std::string::npos) {
            ++slices;
            EXPECT_THAT(written, Contains(line.substr(3, end - 3)));
        }
    }
    EXPECT_GE(slices, 5U);
}

TEST_F(Tracing, NothingIsWrittenWhileItIsOff) {
    start("false");
    connect();
    EXPECT_FALSE(fs::exists(path()));
}

TEST_F(Tracing, SwitchIsNoticedWhileTheDaemonRuns) {
    start("false");
    connect();
    headset_.play("property debug.trace.CorvidWifi true");
    const auto end = std::chrono::steady_clock::now() + test::kPatience;
    while (!fs::exists(path()) && std::chrono::steady_clock::now() < end) {
        headset_.settle();  // an event each
    }
    headset_.play("disconnect");
    headset_.settle();
    const std::optional<Slice> event = slice("STA DISCONNECTED");
    ASSERT_TRUE(event);
    EXPECT_NE(event->find("StaManager.onStaDisconnected"), nullptr);
}

TEST_F(Tracing, KilledDaemonLeavesWhatWasUnderWay) {
    start("true");
    connect();
    headset_.play("reply SIGNAL_POLL none");
    headset_.play("connect freq=5180 rssi=-48");  // its handler waits for the reply
    const auto end = std::chrono::steady_clock::now() + test::kPatience;
    while (openSlices().count("STA SIGNAL_POLL") == 0) {
        ASSERT_LT(std::chrono::steady_clock::now(), end);
    }
    headset_.expectDaemonToEnd();
    headset_.killDaemon();
    EXPECT_GT(events().size(), 0U);  // complete JSON

    // The next daemon keeps that file beside its own.
    headset_.play("reply SIGNAL_POLL default");
    headset_.startDaemon();
    headset_.expectConnection("wlan0");
    headset_.settle();
    EXPECT_TRUE(fs::exists(path() + ".1"));
}

TEST_F(Tracing, MissingFolderDoesNotTroubleTheDaemon) {
    fs::create_directories(headset_.root() + "/data/misc");
    std::ofstream(headset_.root() + "/data/misc/trace") << "no folder";
    start("true");
    connect();
    EXPECT_EQ(headset_.log("Trace: cannot ", "W").size(), 1U);
}

}  // namespace
