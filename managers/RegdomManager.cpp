#include "managers/RegdomManager.h"

#include <utility>
#include <vector>

#include "client/CorvidWifiClient.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

RegdomManager::RegdomManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    const auto lock = listener_.lock();
    constexpr char kTask[] = "RegdomManager.onRegdomUpdated";
    const auto handler = [this](const std::string& event) { onRegdomUpdated(event); };
    const std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_REGDOM_CHANGE, NetInterfaceType::STA, kTask, handler},
        {WifiClientCallbackType::WPA_REGDOM_CHANGE, NetInterfaceType::P2P, kTask, handler},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

RegdomManager::~RegdomManager() = default;

bool RegdomManager::linkRegdomUpdatedCallback(Listener& listener) {
    if (!listener_.link(listener)) {
        WIFI_LOGE("callback exists => cannot link new one");
        return false;
    }
    return true;
}

void RegdomManager::unlinkRegdomUpdatedCallback() { listener_.unlink(); }

StateTree RegdomManager::describe() const {
    const Last last = *last_.lock();
    StateTree state = StateTree::parts();
    StateTree& domain = state.set("last", {});
    if (last.at) {
        domain = StateTree::parts();
        domain.set("init", last.result.init);
        domain.set("type", last.result.type);
        domain.set("alpha2", last.result.alpha2);
    }
    state.set("at", last.at);
    return state;
}

void RegdomManager::onRegdomUpdated(const std::string& event) {
    WIFI_LOGD("onRegdomUpdated(%s)", event.c_str());
    const auto listener = listener_.lock();
    RegdomUpdatedResult result;
    if (!getRegdomUpdatedResult(event, result)) {
        WIFI_LOGE("invalid regdom updated event");
        return;
    }
    if (result.alpha2.size() != 2) {
        // "XZ" is the world domain, "00" any other domain without a country.
        result.alpha2 = result.type == "WORLD" ? "XZ" : "00";
    }
    *last_.lock() = {result, Moment::now()};
    if (*listener == nullptr) {
        WIFI_LOGE("no callback for regdom updated event");
        return;
    }
    WIFI_LOGD("Notify regdom updated event");
    const Listener notify = *listener;  // it may unlink itself
    notify(result);
}

}  // namespace Ursa::OS::Wifi
