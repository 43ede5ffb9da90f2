#include "service/CorvidWifiManager.h"

#include <unistd.h>

#include <vrsensors/Sensors.h>

#include "client/CorvidWifiClient.h"
#include "config/FeatureSwitches.h"
#include "managers/AssocStartedManager.h"
#include "managers/ChannelSwitchManager.h"
#include "managers/CoexManager.h"
#include "managers/DevParamsManager.h"
#include "managers/ElnaBypassManager.h"
#include "managers/FrequencyBlockManager.h"
#include "managers/MccTimeManager.h"
#include "managers/MipiClockManager.h"
#include "managers/NoaManager.h"
#include "managers/P2pManager.h"
#include "managers/PowerJumpDetectManager.h"
#include "managers/RegdomManager.h"
#include "managers/ScsManager.h"
#include "managers/StaManager.h"
#include "managers/TelemetryManager.h"
#include "managers/TxChainManager.h"
#include "managers/TxPowerManager.h"

namespace Ursa::OS::Wifi {

using ::android::sp;
using ::android::hardware::Return;

namespace {

/** What the sensor service's client library is to do when its transport breaks: its own number. */
constexpr auto kTransportErrorAction = static_cast<Sensors::TransportErrorAction>(3);

}  // namespace

template <typename T>
void CorvidWifiManager::fillSlot_(unsigned long feature) {
    auto& slot = std::get<Slot<T>>(slots_);
    slot.make = [&client = client_] { return std::make_shared<T>(client); };
    slot.enabled = IsFeatureEnabled(feature);
    if (slot.enabled) {
        slot.instance = slot.make();
    }
}

template <size_t... Index>
void CorvidWifiManager::emptySlots_(std::index_sequence<Index...>) {
    const auto empty = [](auto& slot) {
        slot.instance = nullptr;
        slot.make = nullptr;
    };
    (empty(std::get<sizeof...(Index) - 1 - Index>(slots_)), ...);
}

CorvidWifiManager::CorvidWifiManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    CorvidWifiManager::mapTaskToPid("CorvidWifiManager", gettid());
    Sensors::setTransportErrorAction(kTransportErrorAction);
    client_->setCompositionRoot(this);

    fillSlot_<StaManager>(kFeatureSta);
    fillSlot_<P2pManager>(kFeatureP2p);
    fillSlot_<AssocStartedManager>(kFeatureAssocStarted);
    fillSlot_<ChannelSwitchManager>(kFeatureChannelSwitch);
    fillSlot_<NoaManager>(kFeatureNoa);
    fillSlot_<MccTimeManager>(kFeatureMccTime);
    fillSlot_<ElnaBypassManager>(kFeatureElnaBypass);
    fillSlot_<RegdomManager>(kFeatureRegdom);
    fillSlot_<ScsManager>(kFeatureScs);
    fillSlot_<TxChainManager>(kFeatureTxChain);
    fillSlot_<TxPowerManager>(kFeatureTxPower);
    fillSlot_<DevParamsManager>(kFeatureDevParams);
    fillSlot_<PowerJumpDetectManager>(kFeaturePowerJumpDetect);
    fillSlot_<TelemetryManager>(kFeatureTelemetry);
    fillSlot_<CoexManager>(kFeatureCoex);
    fillSlot_<MipiClockManager>(kFeatureMipiClock);
    fillSlot_<FrequencyBlockManager>(kFeatureFrequencyBlock);

    linkCallback_();
}

CorvidWifiManager::~CorvidWifiManager() {
    unlinkCallback_();
    // From the last slot to the first, and before the task map goes: handlers that still run note
    // their threads in it.
    emptySlots_(std::make_index_sequence<std::tuple_size_v<Slots>>());
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

void CorvidWifiManager::linkCallback_() {
    if (std::get<Slot<ChannelSwitchManager>>(slots_).enabled) {
        channelSwitchCallback_ = [this](const ChannelSwitchResult& result) {
            onChannelSwitch_(result);
        };
        const auto manager = get<ChannelSwitchManager>();
        if (manager == nullptr || !manager->linkChannelSwitchCallback(channelSwitchCallback_)) {
            WIFI_LOGE("failed to link channel switch callback");
        }
    }
    if (std::get<Slot<AssocStartedManager>>(slots_).enabled) {
        assocStartedCallback_ = [this] { onAssocStarted_(); };
        const auto manager = get<AssocStartedManager>();
        if (manager == nullptr || !manager->linkAssocStartedCallback(assocStartedCallback_)) {
            WIFI_LOGE("failed to link assoc started callback");
        }
    }
    if (std::get<Slot<RegdomManager>>(slots_).enabled) {
        regdomUpdatedCallback_ = [this](const RegdomUpdatedResult& result) {
            onRegdomUpdated_(result);
        };
        const auto manager = get<RegdomManager>();
        if (manager == nullptr || !manager->linkRegdomUpdatedCallback(regdomUpdatedCallback_)) {
            WIFI_LOGE("failed to link regdom updated callback");
        }
    }
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
        const Return<void> result = call(callback);
        if (!result.isOk()) {
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
