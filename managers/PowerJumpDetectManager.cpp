#include "managers/PowerJumpDetectManager.h"

#include <string>
#include <utility>

#include "client/CorvidWifiClient.h"
#include "config/CorvidWifiProperties.h"
#include "managers/support/WifiBand.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

PowerJumpDetectManager::PowerJumpDetectManager(std::shared_ptr<CorvidWifiClient> client,
                                               const ReadOnce<int>& rssiThreshold)
    : client_(std::move(client)), rssiThreshold_(rssiThreshold) {
    setCallback_();
}

PowerJumpDetectManager::~PowerJumpDetectManager() = default;

const ReadOnce<int>& PowerJumpDetectManager::rssiThresholdOfProcess() {
    static const ReadOnce<int> threshold{Sysprop::corvid_wifi_power_jump_detect_rssi_threshold,
                                         -55};
    return threshold;
}

void PowerJumpDetectManager::setCallback_() {
    const auto staManager = client_->compositionRoot()->staManager();
    if (staManager == nullptr) {
        return;
    }
    staConnected_ = std::make_unique<CallbackMapRegister<const StaResult&>>(
        staManager->staConnectedCallbacks, client_, "PowerJumpDetectManager.onStaConnected",
        [this](const StaResult& result) { onStaConnected_(result); });
    staDisconnected_ = std::make_unique<CallbackMapRegister<const StaResult&>>(
        staManager->staDisconnectedCallbacks, client_, "PowerJumpDetectManager.onStaDisconnected",
        [this](const StaResult& result) { onStaDisconnected_(result); });
}

void PowerJumpDetectManager::onStaConnected_(const StaResult& result) {
    MutexLock lock(handlerMutex_);
    const bool weak2Ghz = result.rssi < rssiThreshold_() && result.frequency < kFirst5GhzFrequency;
    const State wanted = weak2Ghz ? State::OFF : State::ON;
    if (wanted != state_) {
        WIFI_LOGI("%s rssi:%d freq:%d", result.event.c_str(), result.rssi, result.frequency);
    }
    setPowerJumpDetect_(wanted);
}

void PowerJumpDetectManager::onStaDisconnected_(const StaResult& result) {
    MutexLock lock(handlerMutex_);
    WIFI_LOGI("%s", result.event.c_str());
    setPowerJumpDetect_(State::OFF);
}

StateTree PowerJumpDetectManager::describe() const {
    const State detection = state_;
    StateTree state = StateTree::parts();
    state.set("detection", detection == State::UNSET ? "unset"
                           : detection == State::ON  ? "on"
                                                     : "off");
    return state;
}

void PowerJumpDetectManager::setPowerJumpDetect_(State state) {
    if (state == state_) {
        return;
    }
    const std::string command =
        state == State::ON ? "DRIVER SET_POWER_SURGE_CONFIG 1 ADC_SATURATION 1 RSSI_DELTA 1"
                           : "DRIVER SET_POWER_SURGE_CONFIG 1 ADC_SATURATION 0 RSSI_DELTA 0";
    std::string reply;
    if (client_->sendWpaCtrlCmd(command, reply, NetInterfaceType::STA)) {
        state_ = state;
    }
    WIFI_LOGI("cmd:%s reply:%s", command.c_str(), reply.c_str());
}

}  // namespace Ursa::OS::Wifi
