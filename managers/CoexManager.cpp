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

CoexRegistration CoexManager::registerCoexActionCallback(const CoexActionPackage& package) {
    auto map = findCallbackMap_(package.type);
    if (map == nullptr) {
        return nullptr;
    }
    return std::make_unique<CallbackMapRegister<const CoexAction&>>(std::move(map), client_,
                                                                    package.task, package.action);
}

void CoexManager::signalEvent(CoexEventType type, const std::string& data) {
    {
        MutexLock lock(queueMutex_);
        queue_.push_back({type, data});
    }
    eventFd_.post([this] { processEvent(); });
}

StateTree CoexManager::describe() const {
    StateTree state = StateTree::parts();
    MutexLock lock(queueMutex_);
    state.set("queued", queue_.size());
    return state;
}

void CoexManager::processEvent() {
    std::vector<CoexAction> events;
    {
        MutexLock lock(queueMutex_);
        events.swap(queue_);
    }
    for (const CoexAction& event : events) {
        WIFI_LOGD("Process event %s (%d)", toString(event.type), static_cast<int>(event.type));
        const auto map = findCallbackMap_(event.type);
        if (map == nullptr) {
            continue;
        }
        try {
            map->trigger(event);
        } catch (const std::exception& error) {
            // One subscriber's exception must not end the thread that serves all of them.
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
        try {
            poll_->poll(kDispatcherTimeoutMs);
        } catch (const std::exception& error) {
            WIFI_LOGE("Dispatcher failed and goes on: %s", error.what());
        }
    }
}

void CoexManager::setWifiCallback_() {
    struct Source {
        WifiClientCallbackType type;
        NetInterfaceType interfaceType;
        const char* task;
        CoexEventType event;
    };
    using Wpa = WifiClientCallbackType;
    using Event = CoexEventType;
    constexpr auto kSta = NetInterfaceType::STA;
    constexpr auto kP2p = NetInterfaceType::P2P;
    // The supplicant reports every channel switch, the P2P group's included, on the station's
    // socket. Subscribers tell the interfaces apart by the name in the text.
    static constexpr Source kSources[] = {
        {Wpa::WPA_STA_CHANNEL_SWITCH, kSta, "CoexManager.onWifiStaChannelSwitch",
         Event::WIFI_STA_CHANNEL_SWITCH},
        {Wpa::WPA_STA_CONNECTED, kSta, "CoexManager.onWifiStaConnected", Event::WIFI_STA_CONNECTED},
        {Wpa::WPA_STA_DISCONNECTED, kSta, "CoexManager.onWifiStaDisconnected",
         Event::WIFI_STA_DISCONNECTED},
        {Wpa::WPA_SOCKET_DISCONNECTED, kSta, "CoexManager.onWifiStaDisconnected",
         Event::WIFI_STA_DISCONNECTED},
        {Wpa::WPA_STA_CHANNEL_SWITCH, kSta, "CoexManager.onWifiP2pChannelSwitch",
         Event::WIFI_P2P_CHANNEL_SWITCH},
        {Wpa::WPA_P2P_GROUP_STARTED, kP2p, "CoexManager.onWifiP2pConnected",
         Event::WIFI_P2P_CONNECTED},
        {Wpa::WPA_P2P_GROUP_REMOVED, kP2p, "CoexManager.onWifiP2pDisconnected",
         Event::WIFI_P2P_DISCONNECTED},
        {Wpa::WPA_SOCKET_DISCONNECTED, kP2p, "CoexManager.onWifiP2pDisconnected",
         Event::WIFI_P2P_DISCONNECTED},
    };
    std::vector<WifiClientCallbackItem> items;
    for (const Source& source : kSources) {
        items.push_back(
            {source.type, source.interfaceType, source.task,
             [this, event = source.event](const std::string& text) { signalEvent(event, text); }});
    }
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

std::vector<CoexRegistration> registerCoexActions(CorvidWifiClient& client,
                                                  const std::vector<CoexActionPackage>& packages) {
    std::vector<CoexRegistration> registrations;
    if (const auto coexManager = client.compositionRoot()->coexManager()) {
        for (const CoexActionPackage& package : packages) {
            registrations.push_back(coexManager->registerCoexActionCallback(package));
        }
    }
    return registrations;
}

}  // namespace Ursa::OS::Wifi
