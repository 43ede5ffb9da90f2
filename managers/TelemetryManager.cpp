#include "managers/TelemetryManager.h"

#include <utility>
#include <vector>

#include "client/CorvidWifiClient.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

TelemetryManager::TelemetryManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    handler_ = [this](const std::string& event) {
        client_->recordTask("TelemetryManager.onStaEvent");
        WIFI_LOGI("STA event(CONNECTED)/(CHANNEL_SWITCH) %s", event.c_str());
    };
    std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_STA_CONNECTED, handler_, NetInterfaceType::STA},
        {WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH, handler_, NetInterfaceType::STA},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

TelemetryManager::~TelemetryManager() = default;

}  // namespace Ursa::OS::Wifi
