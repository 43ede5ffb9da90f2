// The managers of link power with everything running against everything: the supplicant's events,
// the signal worker, service calls, property changes, and managers that come and go. What can be
// wrong here the sanitizers find; besides, nothing may hang, and every command is a known one.

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/CorvidWifiProperties.h"
#include "managers/DevParamsManager.h"
#include "managers/PowerJumpDetectManager.h"
#include "managers/TxChainManager.h"
#include "managers/TxPowerManager.h"
#include "tests/managers/LinkPowerScene.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int kRounds = 60;

/** Runs `step` over and over on a thread of its own until it goes. */
class Repeat {
  public:
    explicit Repeat(const std::function<void(int)>& step)
        : thread_([this, step] {
              for (int round = 0; !end_; ++round) {
                  step(round);
              }
          }) {}
    ~Repeat() {
        end_ = true;
        thread_.join();
    }
    Repeat(const Repeat&) = delete;
    Repeat& operator=(const Repeat&) = delete;

  private:
    std::atomic<bool> end_{false};
    std::thread thread_;
};

/** A SIGNAL_POLL reply that walks through every step. */
std::string signalReply(int round) {
    static constexpr int kSignals[] = {-40, -58, -80, -62, -50, -90};
    const bool is2Ghz = round % 5 == 0;
    return "RSSI=" + std::to_string(kSignals[round % 6]) +
           "\nLINKSPEED=866\nFREQUENCY=" + (is2Ghz ? "2437" : "5180") + "\n";
}

class LinkPowerThreads : public LinkPowerScene {
  protected:
    LinkPowerThreads() : LinkPowerScene(std::chrono::milliseconds(1)) {}

    void playEverything(const Properties& properties) {
        set(properties);
        const TxPowerSettings settings{};
        const ReadOnce<int> rssiThreshold{Sysprop::corvid_wifi_power_jump_detect_rssi_threshold,
                                          -55};
        nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
        auto txPower = std::make_unique<TxPowerManager>(client_, settings);
        auto txChain = std::make_unique<TxChainManager>(client_);
        auto devParams = std::make_unique<DevParamsManager>(client_);
        auto powerJump = std::make_unique<PowerJumpDetectManager>(client_, rssiThreshold);
        {
            const Repeat signal([&](int round) { sta_.answer("SIGNAL_POLL", signalReply(round)); });
            const Repeat service([&](int round) {
                const bool odd = round % 2 != 0;
                txPower->updateTxPowerConfig(odd);
                txPower->toggleFeature(odd, NetInterfaceType::P2P);
                txPower->toggleFeature(round % 7 != 0, NetInterfaceType::STA);
                txChain->toggleFeature(odd);
                std::string text;
                EXPECT_TRUE(txPower->dumpInfo(text));
                set("txpower.enable.handtracking", odd ? "true" : "false");
            });
            for (int round = 0; round < kRounds; ++round) {
                deliver(NetInterfaceType::STA,
                        "CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:00:01 completed");
                p2pStarted(round % 2 == 0 ? 2437 : 5180);
                p2pSwitched(5745);
                EXPECT_TRUE(
                    sta_.waitForCommands("SIGNAL_POLL", sta_.commands("SIGNAL_POLL").size() + 2));
                if (round % 3 == 0) {
                    deliver(NetInterfaceType::STA,
                            "CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:00:01 reason=3");
                }
                p2pRemoved();
            }
        }
        // They go while the worker still brings samples and a group starts.
        deliver(NetInterfaceType::STA,
                "CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:00:01 completed");
        const Repeat group([&](int round) {
            p2p_->sendEvent("P2P-GROUP-STARTED p2p-wlan0-0 GO freq=" +
                            std::to_string(2412 + 5 * (round % 13)) + " ");
            p2p_->sendEvent("P2P-GROUP-REMOVED p2p-wlan0-0 GO ");
        });
        powerJump.reset();
        devParams.reset();
        txPower.reset();
        txChain.reset();
        for (const std::string& command : staCommands()) {
            EXPECT_THAT(command,
                        testing::MatchesRegex("DRIVER (SET_TXPOWER (20|9|5)"
                                              "|SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain [01] power "
                                              "(20|13)"
                                              "|SET_POWER_SURGE_CONFIG 1 ADC_SATURATION [01] "
                                              "RSSI_DELTA [01]"
                                              "|SET_AC_CONFIG [0-3] 1 64 65535  0 4 65535 7 5484 "
                                              "wlan0|SET_UL_MU_CONFIG 0)"));
        }
    }
};

}  // namespace

TEST_F(LinkPowerThreads, EventsCallsAndTheWorkerRunAgainstEachOther) {
    playEverything({{"txpower.enable.sta", "true"},
                    {"txpower.enable.p2p", "true"},
                    {"txchain.enable.p2p", "true"},
                    {"txchain.qualcomm", "true"}});
}

TEST_F(LinkPowerThreads, EventsCallsAndTheWorkerRunAgainstEachOtherInPerChainMode) {
    playEverything({{"txpower.enable.sta", "true"},
                    {"txpower.enable.p2p", "true"},
                    {"txpower.enable.sta.per_chain", "true"}});
}

}  // namespace Ursa::OS::Wifi
