// corvid-wifi record beside the daemon: what a walk leaves, whatever happens meanwhile.

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/component/Headset.h"
#include "tests/support/Program.h"

using component::Headset;
using nlohmann::json;
using test::Program;
using testing::HasSubstr;

namespace {

class Recordings : public testing::Test {
  protected:
    std::unique_ptr<Program> record(const std::string& file,
                                    const std::vector<std::string>& options = {}) {
        std::vector<std::string> command = {component::clientPath(), "record", file, "--interval",
                                            "100ms"};
        command.insert(command.end(), options.begin(), options.end());
        return std::make_unique<Program>(
            command, Program::Options{{"CORVID_WIFI_ROOT=" + headset_.root()}, {}, {}});
    }

    /** Starts a recording to standard output. */
    void startRecording() { recording_ = record("-"); }

    /** The next record for which this is true. */
    template <typename Condition>
    json next(const Condition& condition) {
        while (const auto line = recording_->readLine()) {
            json record = json::parse(*line);
            if (condition(record)) {
                return record;
            }
        }
        ADD_FAILURE() << "the recording has ended: " << recording_->readError();
        return {};
    }

    json nextDaemon() {
        return next([](const json& record) { return record["type"] == "daemon"; });
    }

    json nextSampleOf(int rssi) {
        return next([rssi](const json& record) {
            return record["type"] == "sample" && record["sta"].is_object() &&
                   record["sta"]["rssi_dbm"] == rssi;
        });
    }

    Headset headset_;
    std::unique_ptr<Program> recording_;
};

TEST_F(Recordings, FollowTheLinkAndTheEvents) {
    headset_.playAll({"property persist.vendor.wifi.txpower.enable.p2p true", "supplicant start"});
    headset_.startDaemon();
    headset_.expectConnection();
    startRecording();
    EXPECT_EQ(nextDaemon()["state"], "started");
    headset_.play("connect freq=5180 width=80 rssi=-48");
    EXPECT_EQ(nextSampleOf(-48)["sta"]["bandwidth_mhz"], 80);
    headset_.play("rssi -71");
    nextSampleOf(-71);
    headset_.play("regdom init=USER type=COUNTRY alpha2=DE");
    EXPECT_EQ(next([](const json& record) { return record["type"] == "callback"; })["alpha2"],
              "DE");
    headset_.play("p2p start freq=5745 width=80");
    next([](const json& record) {
        return record["type"] == "sample" && record["p2p"].is_object() &&
               record["p2p"]["frequency_mhz"] == 5745;
    });
    headset_.play("disconnect");
    next([](const json& record) { return record["type"] == "sample" && record["sta"].is_null(); });
    recording_->signal(SIGINT);
    EXPECT_EQ(recording_->wait(), 0);
}

TEST_F(Recordings, GoOnAcrossTheDaemonsDeath) {
    headset_.play("supplicant start");
    headset_.startDaemon();
    headset_.expectConnection();
    headset_.play("connect freq=5180 width=80 rssi=-48");
    startRecording();
    EXPECT_EQ(nextDaemon()["state"], "started");
    nextSampleOf(-48);
    headset_.expectDaemonToEnd();
    headset_.play("daemon kill");
    EXPECT_EQ(nextDaemon()["state"], "ended");
    headset_.startDaemon();
    EXPECT_EQ(nextDaemon()["state"], "started");
    nextSampleOf(-48);
    // The callback is registered with the new one.
    headset_.play("regdom init=USER type=COUNTRY alpha2=DE");
    next([](const json& record) { return record["type"] == "callback"; });
    recording_->signal(SIGTERM);
    EXPECT_EQ(recording_->wait(), 0);
}

TEST_F(Recordings, EndOnAFullDiskAndLeaveTheDaemonAlone) {
    headset_.play("supplicant start");
    headset_.startDaemon();
    headset_.expectConnection();
    const auto full = record("/dev/full", {"--force"});
    EXPECT_EQ(full->wait(), 1);
    EXPECT_THAT(full->readError(), HasSubstr("/dev/full: No space left on device"));
    EXPECT_EQ(headset_.call("getStaInfo").status, 0);
}

}  // namespace
