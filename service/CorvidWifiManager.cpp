#include "service/CorvidWifiManager.h"

#include <type_traits>

#include <vrsensors/Sensors.h>

#include "client/CorvidWifiClient.h"
#include "client/Task.h"
#include "config/FeatureSwitches.h"
#include "managers/AllManagers.h"

namespace Ursa::OS::Wifi {

using ::android::sp;
using ::android::hardware::Return;

namespace {

/** What the sensor service's client library does if its transport breaks; the library's number. */
constexpr auto kTransportErrorAction = static_cast<Sensors::TransportErrorAction>(3);

/** Whether the class is defined here, and not only declared. */
template <typename T, typename = void>
struct IsDefined : std::false_type {};
template <typename T>
struct IsDefined<T, std::void_t<decltype(sizeof(T))>> : std::true_type {};

constexpr size_t featuresThatTellClients() {
    size_t count = 0;
    for (const FeatureInfo& feature : kFeatureTable) {
        count += feature.tellsClients ? 1 : 0;
    }
    return count;
}

}  // namespace

template <typename T>
void CorvidWifiManager::fillSlot_(Slot<T>& slot, unsigned long feature) {
    static_assert(IsDefined<T>::value, "managers/AllManagers.h lacks a manager of the list");
    slot.make = [&client = client_] { return std::make_shared<T>(client); };
    slot.enabled = IsFeatureEnabled(feature);
    if (slot.enabled) {
        slot.instance = slot.make();
    }
}

template <size_t... Number>
void CorvidWifiManager::fillSlots_(std::index_sequence<Number...> /*numbers*/) {
    (fillSlot_(std::get<Number>(slots_), Number), ...);
}

template <size_t... Number>
void CorvidWifiManager::emptySlots_(std::index_sequence<Number...> /*numbers*/) {
    const auto empty = [](auto& slot) {
        slot.instance = nullptr;
        slot.make = nullptr;
    };
    (empty(std::get<sizeof...(Number) - 1 - Number>(slots_)), ...);
}

template <size_t... Number>
std::shared_ptr<FeatureManager> CorvidWifiManager::feature_(
    size_t number, std::index_sequence<Number...> /*numbers*/) const {
    std::shared_ptr<FeatureManager> manager;
    ((Number == number ? void(manager = std::get<Number>(slots_).instance) : void()), ...);
    return manager;
}

std::shared_ptr<FeatureManager> CorvidWifiManager::feature(size_t number) const {
    return feature_(number, std::make_index_sequence<kFeatureTable.size()>());
}

CorvidWifiManager::CorvidWifiManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    CorvidWifiManager::mapTaskToPid("CorvidWifiManager", currentThread());
    Sensors::setTransportErrorAction(kTransportErrorAction);
    client_->setCompositionRoot(this);

    fillSlots_(std::make_index_sequence<kFeatureTable.size()>());
    linkCallback_();
}

CorvidWifiManager::~CorvidWifiManager() {
    unlinkCallback_();
    // From the last slot to the first, and before the task map is destroyed: handlers that still
    // run note their threads in it.
    emptySlots_(std::make_index_sequence<kFeatureTable.size()>());
    client_->setCompositionRoot(nullptr);
}

void CorvidWifiManager::mapTaskToPid(const std::string& task, int pid) {
    taskToPid_.lock()[task] = pid;
}

std::map<std::string, int> CorvidWifiManager::copyTaskToPidMap() const {
    return *taskToPid_.lock();
}

std::shared_ptr<StaManager> CorvidWifiManager::staManager() const { return get<StaManager>(); }

std::shared_ptr<P2pManager> CorvidWifiManager::p2pManager() const { return get<P2pManager>(); }

std::shared_ptr<CoexManager> CorvidWifiManager::coexManager() const { return get<CoexManager>(); }

template <typename Manager, typename... Args>
void CorvidWifiManager::linkRelay_(const char* what,
                                   bool (Manager::*linkManager)(std::function<void(Args...)>&),
                                   std::function<void(Args...)>& callback,
                                   void (CorvidWifiManager::*tellClients)(Args...)) {
    static_assert(std::get<Feature<Manager>>(kFeatures).tellsClients,
                  "config/FeatureList.h does not say that this feature tells clients");
    if (!std::get<Slot<Manager>>(slots_).enabled) {
        return;
    }
    callback = [this, tellClients](Args... args) { (this->*tellClients)(args...); };
    const auto manager = get<Manager>();
    if (manager == nullptr || !((*manager).*linkManager)(callback)) {
        WIFI_LOGE("failed to link %s callback", what);
    }
}

void CorvidWifiManager::linkCallback_() {
    static_assert(featuresThatTellClients() == 3,
                  "link the new relay here, unlink it below, and count it");
    linkRelay_("channel switch", &ChannelSwitchManager::linkChannelSwitchCallback,
               channelSwitchCallback_, &CorvidWifiManager::onChannelSwitch_);
    linkRelay_("assoc started", &AssocStartedManager::linkAssocStartedCallback,
               assocStartedCallback_, &CorvidWifiManager::onAssocStarted_);
    linkRelay_("regdom updated", &RegdomManager::linkRegdomUpdatedCallback, regdomUpdatedCallback_,
               &CorvidWifiManager::onRegdomUpdated_);
}

void CorvidWifiManager::unlinkCallback_() {
    if (const auto manager = get<ChannelSwitchManager>()) {
        manager->unlinkChannelSwitchCallback();
    }
    if (const auto manager = get<AssocStartedManager>()) {
        manager->unlinkAssocStartedCallback();
    }
    if (const auto manager = get<RegdomManager>()) {
        manager->unlinkRegdomUpdatedCallback();
    }
}

template <typename Call>
void CorvidWifiManager::callClients_(const char* method, Call call) {
    for (const sp<ICallback>& callback : copyCallbacks_()) {
        ClientStats::Call noted(stats_, callback.get(), method);
        const Return<void> result = call(callback);
        if (result.isOk()) {
            noted.succeed();
        } else {
            WIFI_LOGE("Failed to call IWifi %s: %s", method, result.description().c_str());
        }
    }
}

void CorvidWifiManager::onChannelSwitch_(const ChannelSwitchResult& result) {
    callClients_("onChannelSwitch", [&](const sp<ICallback>& callback) {
        return callback->onChannelSwitch(result.frequency, result.width,
                                         result.interfaceType == NetInterfaceType::P2P);
    });
}

void CorvidWifiManager::onAssocStarted_() {
    callClients_("onAssocStarted",
                 [](const sp<ICallback>& callback) { return callback->onAssocStarted(); });
}

void CorvidWifiManager::onRegdomUpdated_(const RegdomUpdatedResult& result) {
    callClients_("onRegdomUpdated", [&](const sp<ICallback>& callback) {
        return callback->onRegdomUpdated(result.init, result.type, result.alpha2);
    });
}

}  // namespace Ursa::OS::Wifi
