#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "managers/PowerJumpDetectManager.h"
#include "tests/managers/LinkPowerScene.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr char kOn[] = "DRIVER SET_POWER_SURGE_CONFIG 1 ADC_SATURATION 1 RSSI_DELTA 1";
constexpr char kOff[] = "DRIVER SET_POWER_SURGE_CONFIG 1 ADC_SATURATION 0 RSSI_DELTA 0";

}  // namespace

TEST(PowerJumpDetectManager, DetectionIsOffOnlyOnAWeak2GhzLink) {
    inOwnProcess([] {
        LinkPowerScene scene;
        const PowerJumpDetectManager manager(scene.client_);
        bool isOn = false;
        for (const int freq : {-1, 0, 2412, 2484, 2999, 3000, 4999, 5000, 5180, 5955}) {
            for (int rssi = -100; rssi <= 0; ++rssi) {
                const bool wanted = rssi >= -55 || freq >= 3000;
                scene.sample(rssi, freq);
                const std::vector<std::string> commands = scene.staCommands();
                const bool first = freq == -1 && rssi == -100;
                if (wanted != isOn || first) {
                    EXPECT_THAT(commands, ElementsAre(wanted ? kOn : kOff)) << rssi << " " << freq;
                } else {
                    EXPECT_THAT(commands, IsEmpty()) << rssi << " " << freq;
                }
                isOn = wanted;
            }
        }
    });
}

TEST(PowerJumpDetectManager, TheFirstSampleAlwaysSends) {
    for (const auto& [rssi, freq, command] : std::vector<std::tuple<int, int, const char*>>{
             {-70, 5180, kOn}, {-56, 2437, kOff}, {-55, 2437, kOn}, {-90, 3000, kOn}}) {
        inOwnProcess([rssi = rssi, freq = freq, command = command] {
            LinkPowerScene scene;
            const PowerJumpDetectManager manager(scene.client_);
            scene.sample(rssi, freq);
            scene.sample(rssi, freq);
            EXPECT_THAT(scene.staCommands(), ElementsAre(command));
        });
    }
}

TEST(PowerJumpDetectManager, TheEndOfTheLinkTurnsItOffOnce) {
    inOwnProcess([] {
        LinkPowerScene scene;
        const PowerJumpDetectManager manager(scene.client_);
        scene.disconnect();  // before the first sample, as at every connection
        scene.disconnect();
        scene.sample(-70, 5180);
        scene.disconnect();
        EXPECT_THAT(scene.staCommands(), ElementsAre(kOff, kOn, kOff));
    });
}

TEST(PowerJumpDetectManager, LogsChangesAndTheCommandWithItsReply) {
    inOwnProcess([] {
        LinkPowerScene scene;
        const PowerJumpDetectManager manager(scene.client_);
        scene.log_.clear();
        scene.sample(-70, 5180);
        scene.sample(-71, 5180);
        EXPECT_THAT(
            scene.infos(),
            ElementsAre("PowerJumpDetectManager: StaManager event(CONNECTED) rssi:-70 freq:5180",
                        std::string("PowerJumpDetectManager: cmd:") + kOn + " reply:OK\n"));
        scene.log_.clear();
        scene.disconnect();
        scene.disconnect();
        EXPECT_THAT(scene.infos(),
                    ElementsAre("PowerJumpDetectManager: StaManager event(DISCONNECTED)",
                                std::string("PowerJumpDetectManager: cmd:") + kOff + " reply:OK\n",
                                "PowerJumpDetectManager: StaManager event(DISCONNECTED)"));
    });
}

TEST(PowerJumpDetectManager, AFailedCommandIsTriedAgainAtTheNextSample) {
    inOwnProcess([] {
        LinkPowerScene scene;
        const PowerJumpDetectManager manager(scene.client_);
        scene.sta_.failAll(true);
        scene.log_.clear();
        scene.sample(-70, 5180);
        scene.sample(-70, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre(kOn, kOn));
        EXPECT_EQ(scene.log_.count(ANDROID_LOG_INFO, std::string("PowerJumpDetectManager: cmd:") +
                                                         kOn + " reply:ERROR: SEND-RECV"),
                  2U);
        scene.sta_.failAll(false);
        scene.sample(-70, 5180);
        scene.sample(-70, 5180);
        EXPECT_THAT(scene.staCommands(), ElementsAre(kOn));
    });
}

TEST(PowerJumpDetectManager, AFailedDisconnectLeavesItOn) {
    inOwnProcess([] {
        LinkPowerScene scene;
        const PowerJumpDetectManager manager(scene.client_);
        scene.sample(-70, 5180);
        scene.sta_.failAll(true);
        scene.disconnect();
        scene.sta_.failAll(false);
        scene.staCommands();
        scene.sample(-70, 5180);
        EXPECT_THAT(scene.staCommands(), IsEmpty()) << "on is what was set last";
        scene.disconnect();
        EXPECT_THAT(scene.staCommands(), ElementsAre(kOff));
    });
}

TEST(PowerJumpDetectManager, TheTextOfAReplyChangesNothing) {
    for (const std::string reply : {"FAIL\n", "UNKNOWN COMMAND\n", ""}) {
        inOwnProcess([&] {
            LinkPowerScene scene;
            const PowerJumpDetectManager manager(scene.client_);
            scene.sta_.answer(kOn, reply);
            scene.sample(-70, 5180);
            scene.sample(-70, 5180);
            EXPECT_THAT(scene.staCommands(), ElementsAre(kOn));
        });
    }
}

TEST(PowerJumpDetectManager, TheThresholdIsReadAtItsFirstUseAndKept) {
    inOwnProcess([] {
        LinkPowerScene scene;
        const auto play = [&](int threshold) {
            const PowerJumpDetectManager manager(scene.client_);
            scene.sample(threshold - 1, 2437);
            scene.sample(threshold, 2437);
            EXPECT_THAT(scene.staCommands(), ElementsAre(kOff, kOn)) << threshold;
        };
        scene.set("powerjump.detect.rssi.threshold", "-40");
        {
            const PowerJumpDetectManager manager(scene.client_);
            scene.disconnect();  // does not use it
            scene.staCommands();
            scene.set("powerjump.detect.rssi.threshold", "-62");
        }
        play(-62);
        scene.set("powerjump.detect.rssi.threshold", "-30");
        play(-62);
    });
}

TEST(PowerJumpDetectManager, EveryHandlerNotesItsTask) {
    inOwnProcess([] {
        LinkPowerScene scene;
        const PowerJumpDetectManager manager(scene.client_);
        scene.sample(-70, 5180);
        EXPECT_TRUE(scene.composition_->ran("PowerJumpDetectManager.onStaConnected"));
        scene.disconnect();
        EXPECT_TRUE(scene.composition_->ran("PowerJumpDetectManager.onStaDisconnected"));
    });
}

TEST(PowerJumpDetectManager, FullResultMapsAreLogged) {
    inOwnProcess([] {
        LinkPowerScene scene;
        std::vector<std::function<void(const StaResult&)>> crowd(128, [](const StaResult&) {});
        for (size_t i = 0; i < crowd.size(); ++i) {
            const StaManager& sta = *scene.composition_->sta;
            (i % 2 == 0 ? sta.staConnectedCallbacks : sta.staDisconnectedCallbacks)
                ->registerCallback(crowd[i]);
        }
        {
            const PowerJumpDetectManager manager(scene.client_);
            ASSERT_EQ(scene.errors().size(), 2U);
            for (const std::string& line : scene.errors()) {
                EXPECT_THAT(line, testing::EndsWith(": register CallbackMap failed"));
            }
        }
        scene.composition_->sta.reset();  // before the crowd
    });
}

TEST(PowerJumpDetectManager, WithoutAStaManagerItHasNothingToDo) {
    inOwnProcess([] {
        LinkPowerScene scene;
        const auto sta = std::exchange(scene.composition_->sta, nullptr);
        PowerJumpDetectManager manager(scene.client_);
        sta->staConnectedCallbacks->trigger({"StaManager event(CONNECTED)", 5180, -70});
        EXPECT_THAT(scene.staCommands(), IsEmpty());
        std::string text;
        EXPECT_FALSE(manager.dumpInfo(text)) << "writes nothing into the dump either";
        EXPECT_EQ(text, "");
    });
}

}  // namespace Ursa::OS::Wifi
