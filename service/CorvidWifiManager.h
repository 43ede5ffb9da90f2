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
#include "config/FeatureList.h"
#include "os/Log.h"
#include "os/ValueMutex.h"
#include "service/CorvidWifiManagerCallback.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;
class FeatureManager;

/**
 * The composition root: creates every feature manager whose switch is on (config/FeatureList.h),
 * relays events to the registered clients, and keeps the map of tasks to threads for the dump.
 * Created and destroyed on the main thread; a slot does not change in between. Relays run on the
 * thread that raised the event.
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

    /** The manager of a feature by number; null, without a warning, if it is off. Any thread. */
    std::shared_ptr<FeatureManager> feature(size_t number) const;

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

    template <typename... Managers>
    static std::tuple<Slot<Managers>...> slotsOf_(const std::tuple<Feature<Managers>...>&);
    /** One per feature, in the list's order. */
    using Slots = decltype(slotsOf_(kFeatures));

    template <size_t... Number>
    std::shared_ptr<FeatureManager> feature_(size_t number, std::index_sequence<Number...>) const;
    template <size_t... Number>
    void fillSlots_(std::index_sequence<Number...>);
    template <typename T>
    void fillSlot_(Slot<T>& slot, unsigned long feature);
    template <size_t... Number>
    void emptySlots_(std::index_sequence<Number...>);

    void linkCallback_();
    void unlinkCallback_();
    /** Links an enabled manager to the function that relays its events to the clients. */
    template <typename Manager, typename... Args>
    void linkRelay_(const char* what, bool (Manager::*linkManager)(std::function<void(Args...)>&),
                    std::function<void(Args...)>& callback,
                    void (CorvidWifiManager::*tellClients)(Args...));

    void onChannelSwitch_(const ChannelSwitchResult& result);
    void onAssocStarted_();
    void onRegdomUpdated_(const RegdomUpdatedResult& result);

    /** Calls every registered client. An unreachable one is logged and stays registered. */
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
