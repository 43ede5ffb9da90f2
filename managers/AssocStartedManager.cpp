#include "managers/AssocStartedManager.h"

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "client/CorvidWifiClient.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

AssocStartedManager::AssocStartedManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    const auto lock = listener_.lock();
    const std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_STA_ASSOC_STARTED, NetInterfaceType::STA,
         "AssocStartedManager.onAssocStarted",
         [this](const std::string& event) { onAssocStarted(event); }},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

AssocStartedManager::~AssocStartedManager() = default;

bool AssocStartedManager::linkAssocStartedCallback(Listener& listener) {
    if (!listener_.link(listener)) {
        WIFI_LOGE("callback exists => cannot link new one");
        return false;
    }
    return true;
}

void AssocStartedManager::unlinkAssocStartedCallback() { listener_.unlink(); }

void AssocStartedManager::onAssocStarted(const std::string& event) {
    WIFI_LOGD("onAssocStarted(%s)", event.c_str());
    const auto listener = listener_.lock();
    if (*listener == nullptr) {
        WIFI_LOGE("no callback for assoc started event");
        return;
    }
    char ifname[16] = "";  // IFNAMSIZ; "%15s" leaves room for the NUL
    if (sscanf(event.c_str(), "ifname=%15s", ifname) != 1 || strncmp(ifname, "p2p", 3) != 0) {
        WIFI_LOGI("'%s' is not a p2p interface => ignore the event", ifname);
        return;
    }
    WIFI_LOGD("Notify p2p assoc started event");
    const Listener notify = *listener;  // it may unlink itself
    notify();
}

}  // namespace Ursa::OS::Wifi
