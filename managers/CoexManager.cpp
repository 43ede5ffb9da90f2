#include "managers/CoexManager.h"

#include <exception>
#include <utility>

#include "client/CorvidWifiClient.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

/** How long the dispatcher sleeps when nothing happens. */
constexpr int kDispatcherTimeoutMs = 60'000;

constexpr std::array kEventTypes = {
    CoexEventType::WIFI_STA_CONNECTED,      CoexEventType::WIFI_STA_DISCONNECTED,
    CoexEventType::WIFI_STA_CHANNEL_SWITCH, CoexEventType::WIFI_P2P_CONNECTED,
    CoexEventType::WIFI_P2P_DISCONNECTED,   CoexEventType::WIFI_P2P_CHANNEL_SWITCH,
};

const char* toString(CoexEventType type) {
    switch (type) {
        case CoexEventType::WIFI_STA_CONNECTED:
            return "WIFI_STA_CONNECTED";
        case CoexEventType::WIFI_STA_DISCONNECTED:
            return "WIFI_STA_DISCONNECTED";
        case CoexEventType::WIFI_STA_CHANNEL_SWITCH:
            return "WIFI_STA_CHANNEL_SWITCH";
        case CoexEventType::WIFI_P2P_CONNECTED:
            return "WIFI_P2P_CONNECTED";
        case CoexEventType::WIFI_P2P_DISCONNECTED:
            return "WIFI_P2P_DISCONNECTED";
        case CoexEventType::WIFI_P2P_CHANNEL_SWITCH:
            return "WIFI_P2P_CHANNEL_SWITCH";
    }
    return "UNKNOWN";
}

auto makeCallbackMaps() {
    std::map<CoexEventType, std::shared_ptr<CallbackMap<const CoexAction&>>> maps;
    for (const CoexEventType type : kEventTypes) {
        maps[type] = std::make_shared<CallbackMap<const CoexAction&>>();
    }
    return maps;
}

}  // namespace

CoexManager::CoexManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)),
      poll_(std::make_shared<Poll>()),
      eventFd_(poll_),
      callbacks_(makeCallbackMaps()) {
    eventFd_.open();
    startDispatcher_();
    setWifiCallback_();
}

CoexManager::~CoexManager() {
    subscription_.reset();
    stopDispatcher_();
}

CoexRegistration CoexManager::registerCoexActionCallback(
    CoexEventType type, std::function<void(const CoexAction&)>& action) {
    auto map = findCallbackMap_(type);
    if (map == nullptr) {
        return nullptr;
    }
    return std::make_unique<CallbackMapRegister<const CoexAction&>>(std::move(map), action);
}

void CoexManager::signalEvent(CoexEventType type, const std::string& data) {
    {
        MutexLock lock(queueMutex_);
        queue_.push_back({type, data});
    }
    eventFd_.post([this] { processEvent(); });
}

void CoexManager::processEvent() {
    std::vector<CoexEvent> events;
    {
        MutexLock lock(queueMutex_);
        events.swap(queue_);
    }
    for (const CoexEvent& event : events) {
        WIFI_LOGD("Process event %s (%d)", toString(event.type), static_cast<int>(event.type));
        const auto map = findCallbackMap_(event.type);
        if (map == nullptr) {
            continue;
        }
        try {
            map->trigger(event);
        } catch (const std::exception& error) {
            // A subscriber's defect must not end the thread that every other one lives on.
            WIFI_LOGE("A subscriber of type %d failed: %s", static_cast<int>(event.type),
                      error.what());
        }
    }
}

std::shared_ptr<CallbackMap<const CoexAction&>> CoexManager::findCallbackMap_(
    CoexEventType type) const {
    const auto found = callbacks_.find(type);
    if (found == callbacks_.end()) {
        WIFI_LOGW("Failed to find a callback map with type %d", static_cast<int>(type));
        return nullptr;
    }
    return found->second;
}

void CoexManager::startDispatcher_() {
    stopDispatcher_();
    running_ = true;
    dispatcher_ = std::thread([this] { dispatcherThread_(); });
}

void CoexManager::stopDispatcher_() {
    running_ = false;
    if (dispatcher_.joinable()) {
        eventFd_.post([] {});  // wakes the loop
        dispatcher_.join();
    }
}

void CoexManager::dispatcherThread_() {
    client_->recordTask("CoexManager.dispatcher");
    WIFI_LOGI("Start event dispatcher thread.");
    while (running_) {
        poll_->poll(kDispatcherTimeoutMs);
    }
}

void CoexManager::setWifiCallback_() {
    std::vector<WifiClientCallbackItem> items;
    setWifiStaCallback_(items);
    setWifiP2pCallback_(items);
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

void CoexManager::setWifiStaCallback_(std::vector<WifiClientCallbackItem>& items) {
    staConnectedHandler_ = makeHandler_("onWifiStaConnected", CoexEventType::WIFI_STA_CONNECTED);
    staDisconnectedHandler_ =
        makeHandler_("onWifiStaDisconnected", CoexEventType::WIFI_STA_DISCONNECTED);
    staChannelSwitchHandler_ =
        makeHandler_("onWifiStaChannelSwitch", CoexEventType::WIFI_STA_CHANNEL_SWITCH);
    items.push_back({WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH, staChannelSwitchHandler_,
                     NetInterfaceType::STA});
    items.push_back(
        {WifiClientCallbackType::WPA_STA_CONNECTED, staConnectedHandler_, NetInterfaceType::STA});
    items.push_back({WifiClientCallbackType::WPA_STA_DISCONNECTED, staDisconnectedHandler_,
                     NetInterfaceType::STA});
    items.push_back({WifiClientCallbackType::WPA_SOCKET_DISCONNECTED, staDisconnectedHandler_,
                     NetInterfaceType::STA});
}

void CoexManager::setWifiP2pCallback_(std::vector<WifiClientCallbackItem>& items) {
    p2pConnectedHandler_ = makeHandler_("onWifiP2pConnected", CoexEventType::WIFI_P2P_CONNECTED);
    p2pDisconnectedHandler_ =
        makeHandler_("onWifiP2pDisconnected", CoexEventType::WIFI_P2P_DISCONNECTED);
    p2pChannelSwitchHandler_ =
        makeHandler_("onWifiP2pChannelSwitch", CoexEventType::WIFI_P2P_CHANNEL_SWITCH);
    // On the station's socket, deliberately: that is where the supplicant reports every channel
    // switch. Subscribers tell the interfaces apart by the name in the text.
    items.push_back({WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH, p2pChannelSwitchHandler_,
                     NetInterfaceType::STA});
    items.push_back({WifiClientCallbackType::WPA_P2P_GROUP_STARTED, p2pConnectedHandler_,
                     NetInterfaceType::P2P});
    items.push_back({WifiClientCallbackType::WPA_P2P_GROUP_REMOVED, p2pDisconnectedHandler_,
                     NetInterfaceType::P2P});
    items.push_back({WifiClientCallbackType::WPA_SOCKET_DISCONNECTED, p2pDisconnectedHandler_,
                     NetInterfaceType::P2P});
}

std::function<void(const std::string&)> CoexManager::makeHandler_(const char* handler,
                                                                  CoexEventType type) {
    return [this, task = std::string("CoexManager.") + handler, type](const std::string& event) {
        client_->recordTask(task);
        signalEvent(type, event);
    };
}

void registerCoexActions(CorvidWifiClient& client, std::vector<CoexActionPackage>& packages) {
    const auto coexManager = client.compositionRoot()->coexManager();
    if (coexManager == nullptr) {
        return;
    }
    for (CoexActionPackage& package : packages) {
        package.registration =
            coexManager->registerCoexActionCallback(package.type, package.action);
    }
}

}  // namespace Ursa::OS::Wifi
