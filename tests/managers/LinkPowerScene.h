#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "managers/P2pManager.h"
#include "managers/StaManager.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

using testing::ElementsAre;
using testing::IsEmpty;

/**
 * For the managers of link power. StaManager and P2pManager are there; the station's signal is
 * played by the test, past the supplicant.
 */
class LinkPowerScene : public ManagerTest {
  protected:
    using Properties = std::vector<std::pair<std::string, std::string>>;

    /** `second` is StaManager's. */
    explicit LinkPowerScene(std::chrono::milliseconds second = std::chrono::minutes(10)) {
        startP2p();
        composition_->sta = std::make_shared<StaManager>(client_, second);
        composition_->p2p = std::make_shared<P2pManager>(client_);
    }

    // The properties are named without "persist.vendor.wifi.".
    void set(const std::string& property, std::string_view value) const {
        root_.setProperty("persist.vendor.wifi." + property, value);
    }
    void set(const Properties& properties) const {
        for (const auto& [name, value] : properties) {
            set(name, value);
        }
    }

    /** A signal sample, as StaManager's worker brings it. The handlers have run at return. */
    void sample(int rssi, int freq) const {
        composition_->sta->staConnectedCallbacks->trigger(
            {"StaManager event(CONNECTED)", freq, rssi});
    }
    /** The end of the link, as StaManager tells it. The handlers have run at return. */
    void disconnect() const {
        composition_->sta->staDisconnectedCallbacks->trigger(
            {"StaManager event(DISCONNECTED)", -1, -1});
    }

    // Events of the P2P group. Their handlers have run at return.
    void p2pStarted(int freq) {
        deliver(NetInterfaceType::P2P, "P2P-GROUP-STARTED p2p-wlan0-0 GO ssid=\"DIRECT-xy\" freq=" +
                                           std::to_string(freq) + " go_dev_addr=02:00:00:00:00:01");
    }
    void p2pSwitched(int freq) {
        deliver(NetInterfaceType::P2P, "AP-CSA-FINISHED freq=" + std::to_string(freq) + " dfs=0");
    }
    void p2pRemoved() {
        deliver(NetInterfaceType::P2P, "P2P-GROUP-REMOVED p2p-wlan0-0 GO reason=REQUESTED");
    }

    /** The driver commands since the last call, in order, sent in vain or not. */
    std::vector<std::string> staCommands() { return fresh_(sta_, staSeen_); }
    std::vector<std::string> p2pCommands() { return fresh_(*p2p_, p2pSeen_); }

  private:
    static std::vector<std::string> fresh_(const test::ScriptedSupplicant& supplicant,
                                           size_t& seen) {
        const std::vector<std::string> all = supplicant.commands("DRIVER ");
        std::vector<std::string> fresh(all.begin() + static_cast<ptrdiff_t>(seen), all.end());
        seen = all.size();
        return fresh;
    }

    size_t staSeen_ = 0;
    size_t p2pSeen_ = 0;
};

}  // namespace Ursa::OS::Wifi
