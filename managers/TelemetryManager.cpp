#include "managers/TelemetryManager.h"

#include <utility>
#include <vector>

#include "client/CorvidWifiClient.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

TelemetryManager::TelemetryManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    constexpr char kTask[] = "TelemetryManager.onStaEvent";
    const auto handler = [](const std::string& event) {
        WIFI_LOGI("STA event(CONNECTED)/(CHANNEL_SWITCH) %s", event.c_str());
    };
    const std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_STA_CONNECTED, NetInterfaceType::STA, kTask, handler},
        {WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH, NetInterfaceType::STA, kTask, handler},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

TelemetryManager::~TelemetryManager() = default;

}  // namespace Ursa::OS::Wifi
