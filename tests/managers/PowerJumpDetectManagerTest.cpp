#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "config/CorvidWifiProperties.h"
#include "managers/PowerJumpDetectManager.h"
#include "tests/managers/LinkPowerScene.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr char kOn[] = "DRIVER SET_POWER_SURGE_CONFIG 1 ADC_SATURATION 1 RSSI_DELTA 1";
constexpr char kOff[] = "DRIVER SET_POWER_SURGE_CONFIG 1 ADC_SATURATION 0 RSSI_DELTA 0";

class PowerJumpDetectManagerTest : public LinkPowerScene {
  protected:
    PowerJumpDetectManagerTest() { start(); }

    /** A new manager, with the test's own threshold. */
    void start() { manager_ = std::make_unique<PowerJumpDetectManager>(client_, rssiThreshold_); }

    const ReadOnce<int> rssiThreshold_{Sysprop::corvid_wifi_power_jump_detect_rssi_threshold, -55};
    std::unique_ptr<PowerJumpDetectManager> manager_;
};

}  // namespace

TEST_F(PowerJumpDetectManagerTest, DetectionIsOffOnlyOnAWeak2GhzLink) {
    bool isOn = false;
    for (const int freq : {-1, 0, 2412, 2484, 2999, 3000, 4999, 5000, 5180, 5955}) {
        for (int rssi = -100; rssi <= 0; ++rssi) {
            const bool wanted = rssi >= -55 || freq >= 3000;
            sample(rssi, freq);
            const std::vector<std::string> commands = staCommands();
            const bool first = freq == -1 && rssi == -100;
            if (wanted != isOn || first) {
                EXPECT_THAT(commands, ElementsAre(wanted ? kOn : kOff)) << rssi << " " << freq;
            } else {
                EXPECT_THAT(commands, IsEmpty()) << rssi << " " << freq;
            }
            isOn = wanted;
        }
    }
}

TEST_F(PowerJumpDetectManagerTest, TheFirstSampleAlwaysSends) {
    for (const auto& [rssi, freq, command] : std::vector<std::tuple<int, int, const char*>>{
             {-70, 5180, kOn}, {-56, 2437, kOff}, {-55, 2437, kOn}, {-90, 3000, kOn}}) {
        start();
        sample(rssi, freq);
        sample(rssi, freq);
        EXPECT_THAT(staCommands(), ElementsAre(command)) << rssi << " " << freq;
    }
}

TEST_F(PowerJumpDetectManagerTest, TheEndOfTheLinkTurnsItOffOnce) {
    disconnect();  // before the first sample, as at every connection
    disconnect();
    sample(-70, 5180);
    disconnect();
    EXPECT_THAT(staCommands(), ElementsAre(kOff, kOn, kOff));
}

TEST_F(PowerJumpDetectManagerTest, LogsChangesAndTheCommandWithItsReply) {
    log_.clear();
    sample(-70, 5180);
    sample(-71, 5180);
    EXPECT_THAT(
        infos(),
        ElementsAre("PowerJumpDetectManager: StaManager event(CONNECTED) rssi:-70 freq:5180",
                    std::string("PowerJumpDetectManager: cmd:") + kOn + " reply:OK\n"));
    log_.clear();
    disconnect();
    disconnect();
    EXPECT_THAT(infos(),
                ElementsAre("PowerJumpDetectManager: StaManager event(DISCONNECTED)",
                            std::string("PowerJumpDetectManager: cmd:") + kOff + " reply:OK\n",
                            "PowerJumpDetectManager: StaManager event(DISCONNECTED)"));
}

TEST_F(PowerJumpDetectManagerTest, AFailedCommandIsTriedAgainAtTheNextSample) {
    sta_.failAll(true);
    log_.clear();
    sample(-70, 5180);
    sample(-70, 5180);
    EXPECT_THAT(staCommands(), ElementsAre(kOn, kOn));
    EXPECT_EQ(log_.count(ANDROID_LOG_INFO, std::string("PowerJumpDetectManager: cmd:") + kOn +
                                               " reply:ERROR: SEND-RECV"),
              2U);
    sta_.failAll(false);
    sample(-70, 5180);
    sample(-70, 5180);
    EXPECT_THAT(staCommands(), ElementsAre(kOn));
}

TEST_F(PowerJumpDetectManagerTest, AFailedDisconnectLeavesItOn) {
    sample(-70, 5180);
    sta_.failAll(true);
    disconnect();
    sta_.failAll(false);
    staCommands();
    sample(-70, 5180);
    EXPECT_THAT(staCommands(), IsEmpty()) << "on is what was set last";
    disconnect();
    EXPECT_THAT(staCommands(), ElementsAre(kOff));
}

TEST_F(PowerJumpDetectManagerTest, TheTextOfAReplyChangesNothing) {
    for (const std::string reply : {"FAIL\n", "UNKNOWN COMMAND\n", ""}) {
        start();
        sta_.answer(kOn, reply);
        sample(-70, 5180);
        sample(-70, 5180);
        EXPECT_THAT(staCommands(), ElementsAre(kOn)) << reply;
    }
}

TEST_F(PowerJumpDetectManagerTest, TheThresholdIsReadAtItsFirstUseAndKept) {
    const auto play = [&](int threshold) {
        start();
        sample(threshold - 1, 2437);
        sample(threshold, 2437);
        EXPECT_THAT(staCommands(), ElementsAre(kOff, kOn)) << threshold;
    };
    set("powerjump.detect.rssi.threshold", "-40");
    start();
    disconnect();  // does not use it
    staCommands();
    set("powerjump.detect.rssi.threshold", "-62");
    play(-62);
    set("powerjump.detect.rssi.threshold", "-30");
    play(-62);
}

TEST_F(PowerJumpDetectManagerTest, ByDefaultEveryManagerSharesTheThresholdOfTheProcess) {
    manager_.reset();
    set("powerjump.detect.rssi.threshold", "-62");
    {
        const PowerJumpDetectManager first(client_);
        sample(-63, 2437);
        sample(-62, 2437);
        EXPECT_THAT(staCommands(), ElementsAre(kOff, kOn));
    }
    set("powerjump.detect.rssi.threshold", "-30");
    const PowerJumpDetectManager second(client_);
    sample(-62, 2437);
    EXPECT_THAT(staCommands(), ElementsAre(kOn));
}

TEST_F(PowerJumpDetectManagerTest, EveryHandlerNotesItsTask) {
    sample(-70, 5180);
    EXPECT_TRUE(composition_->ran("PowerJumpDetectManager.onStaConnected"));
    disconnect();
    EXPECT_TRUE(composition_->ran("PowerJumpDetectManager.onStaDisconnected"));
}

TEST_F(PowerJumpDetectManagerTest, FullResultMapsAreLogged) {
    manager_.reset();
    StaManager* const sta = composition_->sta.get();
    std::vector<std::function<void(const StaResult&)>> crowd(128, [](const StaResult&) {});
    for (size_t i = 0; i < crowd.size(); ++i) {
        (i % 2 == 0 ? sta->staConnectedCallbacks : sta->staDisconnectedCallbacks)
            ->registerCallback(crowd[i]);
    }
    start();
    EXPECT_THAT(errors(), ElementsAre(testing::EndsWith(": register CallbackMap failed"),
                                      testing::EndsWith(": register CallbackMap failed")));
    manager_.reset();
    composition_->sta.reset();  // before the crowd
}

TEST_F(PowerJumpDetectManagerTest, WithoutAStaManagerItHasNothingToDo) {
    manager_.reset();
    const auto sta = std::exchange(composition_->sta, nullptr);
    start();
    sta->staConnectedCallbacks->trigger({"StaManager event(CONNECTED)", 5180, -70});
    EXPECT_THAT(staCommands(), IsEmpty());
    std::string text;
    EXPECT_FALSE(manager_->dumpInfo(text)) << "writes nothing into the dump either";
    EXPECT_EQ(text, "");
}

}  // namespace Ursa::OS::Wifi
