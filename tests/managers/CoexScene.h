#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "managers/CoexManager.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

/** A dispatcher, and the host's sensor library behind it, for the managers that subscribe to it. */
class CoexScene : public ManagerTest {
  protected:
    CoexScene() {
        composition_->coex = std::make_shared<CoexManager>(client_);
        EXPECT_TRUE(log_.waitFor("CoexManager: Start event dispatcher thread."));
        log_.clear();
    }

    CoexManager& coex() { return *composition_->coex; }

    /**
     * Signals the events, and waits until the subscribers have handled them. One at a time: nothing
     * else is signalled meanwhile.
     */
    void dispatch(CoexEventType type, const std::string& data) {
        coex().signalEvent(type, data);
        settle();
    }

    /** Waits until the dispatcher has handled everything signalled so far. */
    void settle() {
        // A type of no name is handled in its turn, and leaves a line.
        const size_t before = log_.count(ANDROID_LOG_WARN, kSettled);
        coex().signalEvent(static_cast<CoexEventType>(kNoType), "");
        ASSERT_TRUE(
            test::waitUntil([&] { return log_.count(ANDROID_LOG_WARN, kSettled) > before; }));
    }

    void stationConnected(const std::string& signalPollReply) {
        sta_.answer("SIGNAL_POLL", signalPollReply);
        dispatch(CoexEventType::WIFI_STA_CONNECTED, "- Connection to 02:00:00:00:00:01 completed");
    }
    void stationConnected(int freq) {
        stationConnected("RSSI=-50\nLINKSPEED=866\nFREQUENCY=" + std::to_string(freq) + "\n");
    }

    /** The next operations of the sensor library: "controller.get", "hang"; see the library. */
    void steer(const std::string& operation, const std::string& behaviour) const {
        root_.setProperty("debug.sensors." + operation, behaviour);
    }
    /** A file of the library's state; empty when there is none. */
    std::string sensorFile(const std::string& name) const {
        std::ifstream file(root_.path() + "/data/vendor/sensors/" + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void setSensorFile(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories(root_.path() + "/data/vendor/sensors");
        std::ofstream(root_.path() + "/data/vendor/sensors/" + name) << content;
    }

    /** What `source` logged since the last clear(): "D last clock:-1 new clock:0". */
    std::vector<std::string> linesOf(const std::string& source) const {
        std::vector<std::string> lines;
        const std::string prefix = source + ": ";
        for (const auto& line : log_.lines()) {
            if (line.message.compare(0, prefix.size(), prefix) == 0) {
                const auto level =
                    std::string("??VDIWEF").substr(static_cast<size_t>(line.priority), 1);
                lines.push_back(level + " " + line.message.substr(prefix.size()));
            }
        }
        return lines;
    }

  private:
    static constexpr int kNoType = 77;
    static constexpr std::string_view kSettled =
        "CoexManager: Failed to find a callback map with type 77";
};

}  // namespace Ursa::OS::Wifi
