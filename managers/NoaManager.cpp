#include "managers/NoaManager.h"

#include <utility>
#include <vector>

#include "client/CorvidWifiClient.h"
#include "config/CorvidWifiProperties.h"
#include "managers/support/PrivateCommand.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr unsigned kEndSchedule = 0;
constexpr unsigned kRepeatForEver = 255;

}  // namespace

NoaManager::NoaManager(std::shared_ptr<CorvidWifiClient> client) : client_(std::move(client)) {
    RecursiveMutexLock lock(mutex_);
    const std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_STA_SCAN_RESULTS, NetInterfaceType::STA,
         "NoaManager.onStaScanEnded", [this](const std::string& event) { onStaScanEnded_(event); }},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

NoaManager::~NoaManager() = default;

bool NoaManager::setP2pNoa(unsigned count, unsigned noaValue1, unsigned noaValue2) {
    WIFI_LOGD("setP2pNoa(%u, %u, %u)", count, noaValue1, noaValue2);
    if (count != kEndSchedule && count != kRepeatForEver) {
        WIFI_LOGE("fixed count %u not supported yet.", count);
        return false;
    }
    RecursiveMutexLock lock(mutex_);
    *schedule_.lock() = Schedule{count, noaValue1, noaValue2};
    if (!Sysprop::corvid_wifi_cmd_noa_p2p(false)) {
        WIFI_LOGE("setP2pNoa is not supported.");
        return false;
    }
    const std::string command = "P2P_SET_NOA " + std::to_string(count) + " " +
                                std::to_string(noaValue1) + " " + std::to_string(noaValue2);
    auto info = makePrivateCommand(NetInterfaceType::P2P, command);
    return client_->sendVendorNlCmd(info);
}

void NoaManager::onStaScanEnded_(const std::string& event) {
    WIFI_LOGD("onScanEnded(%s)", event.c_str());
    RecursiveMutexLock lock(mutex_);
    if (const std::optional<Schedule> schedule = *schedule_.lock()) {
        setP2pNoa(schedule->count, schedule->value1, schedule->value2);
    }
}

StateTree NoaManager::describe() const {
    const std::optional<Schedule> schedule = *schedule_.lock();
    StateTree state = StateTree::parts();
    state.set("set", schedule.has_value());
    if (schedule) {
        state.set("count", schedule->count);
        state.set("value1", schedule->value1);
        state.set("value2", schedule->value2);
    }
    return state;
}

}  // namespace Ursa::OS::Wifi
