#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "client/CompositionRoot.h"
#include "client/SupplicantParser.h"
#include "os/Log.h"
#include "os/ValueMutex.h"
#include "service/CorvidWifiManagerCallback.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

class StaManager;
class P2pManager;
class AssocStartedManager;
class ChannelSwitchManager;
class NoaManager;
class MccTimeManager;
class ElnaBypassManager;
class RegdomManager;
class ScsManager;
class TxChainManager;
class TxPowerManager;
class DevParamsManager;
class PowerJumpDetectManager;
class TelemetryManager;
class CoexManager;
class MipiClockManager;
class FrequencyBlockManager;

/** The bare name of a class, as in its log lines and in the dump: "StaManager". */
template <typename Type>
constexpr auto typeName() {
    // clang ends the signature with "= Ursa::OS::Wifi::StaManager]", gcc leaves out the namespace
    // that this function is in itself: "= StaManager]".
    std::string_view name = __PRETTY_FUNCTION__;
    name.remove_suffix(name.size() - name.rfind(']'));
    name.remove_prefix(name.find_last_of(": ") + 1);
    return name;
}

/**
 * The composition root: builds every feature manager whose switch is on, in a fixed order, relays
 * events to the registered clients, and keeps the map of tasks to threads for the dump.
 *
 * Built and destroyed on the main thread. Relays run on the thread that raised the event. A
 * manager's slot does not change after construction.
 */
class CorvidWifiManager : public CorvidWifiManagerCallback, public CompositionRoot {
  public:
    explicit CorvidWifiManager(std::shared_ptr<CorvidWifiClient> client);
    ~CorvidWifiManager() override;

    /** The manager, or null with a warning when its feature is switched off. Any thread. */
    template <typename T>
    std::shared_ptr<T> get() const {
        const std::shared_ptr<T>& instance = std::get<Slot<T>>(slots_).instance;
        if (instance == nullptr) {
            constexpr std::string_view kName = typeName<T>();
            WIFI_LOGW("%.*s does not exist.", static_cast<int>(kName.size()), kName.data());
        }
        return instance;
    }

    void mapTaskToPid(const std::string& task, int pid) override;
    /** The task map now: task name to Linux thread id. Any thread. */
    std::map<std::string, int> copyTaskToPidMap() const;

    std::shared_ptr<StaManager> staManager() const override;
    std::shared_ptr<P2pManager> p2pManager() const override;
    std::shared_ptr<CoexManager> coexManager() const override;

  private:
    friend class CorvidWifiManagerTestPeer;

    template <typename T>
    struct Slot {
        std::function<std::shared_ptr<T>()> make;
        std::shared_ptr<T> instance;  ///< null unless enabled
        bool enabled = false;
    };

    /** In slot order: the position is the feature's number, and the order of construction. */
    using Slots =
        std::tuple<Slot<StaManager>, Slot<P2pManager>, Slot<AssocStartedManager>,
                   Slot<ChannelSwitchManager>, Slot<NoaManager>, Slot<MccTimeManager>,
                   Slot<ElnaBypassManager>, Slot<RegdomManager>, Slot<ScsManager>,
                   Slot<TxChainManager>, Slot<TxPowerManager>, Slot<DevParamsManager>,
                   Slot<PowerJumpDetectManager>, Slot<TelemetryManager>, Slot<CoexManager>,
                   Slot<MipiClockManager>, Slot<FrequencyBlockManager>>;

    template <typename T>
    void fillSlot_(unsigned long feature);
    template <size_t... Index>
    void emptySlots_(std::index_sequence<Index...>);

    void linkCallback_();
    void unlinkCallback_();

    void onChannelSwitch_(const ChannelSwitchResult& result);
    void onAssocStarted_();
    void onRegdomUpdated_(const RegdomUpdatedResult& result);

    /** Calls every registered client; one that can't be reached is logged and stays registered. */
    template <typename Call>
    void callClients_(const char* method, Call call);

    std::shared_ptr<CorvidWifiClient> client_;
    Slots slots_;
    std::function<void(const ChannelSwitchResult&)> channelSwitchCallback_;
    std::function<void()> assocStartedCallback_;
    std::function<void(const RegdomUpdatedResult&)> regdomUpdatedCallback_;
    mutable ValueMutexBase<std::map<std::string, int>, std::mutex> taskToPid_;
};

}  // namespace Ursa::OS::Wifi
