#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <ursa/os/EventFd.h>

#include "client/CallbackMap.h"
#include "client/CallbackMapRegister.h"
#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "os/Mutex.h"
#include "os/Poll.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

enum class CoexEventType : int32_t {
    WIFI_STA_CONNECTED = 0,
    WIFI_STA_DISCONNECTED = 1,
    WIFI_STA_CHANNEL_SWITCH = 2,
    WIFI_P2P_CONNECTED = 3,
    WIFI_P2P_DISCONNECTED = 4,
    WIFI_P2P_CHANNEL_SWITCH = 5,
};

/** An event as a coexistence subscriber receives it. */
struct CoexAction {
    CoexEventType type;
    /** The supplicant's event text, unparsed. */
    std::string data;
};

/** One subscription to a coexistence event. */
struct CoexActionPackage {
    CoexEventType type;
    /** The action's name in the task map, for example "MipiClockManager.onWifiStaConnected". */
    std::string task;
    /** Runs on the dispatcher thread. */
    std::function<void(const CoexAction&)> action;
};

/** A subscription for this object's lifetime; after destruction the action never runs again. */
using CoexRegistration = std::unique_ptr<CallbackMapRegister<const CoexAction&>>;

/**
 * Turns supplicant events into six coexistence events and passes them to its subscribers, one at a
 * time in the order of arrival, on the dispatcher thread. That thread exists because subscribers
 * wait seconds for other services, which would block the listener thread. The destructor joins it.
 */
class CoexManager : public FeatureManager {
  public:
    explicit CoexManager(std::shared_ptr<CorvidWifiClient> client);
    ~CoexManager() override;

    /** Returns null, with a warning, for a type outside the enumeration. Any thread. */
    CoexRegistration registerCoexActionCallback(const CoexActionPackage& package);

    /** Queues an event and wakes the dispatcher. Any thread. */
    void signalEvent(CoexEventType type, const std::string& data) EXCLUDES(queueMutex_);

    /** Runs the subscribers of all queued events. On the dispatcher thread only. */
    void processEvent() EXCLUDES(queueMutex_);

    StateTree describe() const override EXCLUDES(queueMutex_);

  private:
    void startDispatcher_();
    void stopDispatcher_();
    void dispatcherThread_();
    void setWifiCallback_();
    /** Null, with a warning, for a type outside the enumeration. */
    std::shared_ptr<CallbackMap<const CoexAction&>> findCallbackMap_(CoexEventType type) const;

    const std::shared_ptr<CorvidWifiClient> client_;
    const std::shared_ptr<Poll> poll_;
    EventFd eventFd_;
    std::thread dispatcher_;
    std::atomic<bool> running_{false};
    /** One per type, all made in the constructor; the map itself never changes. */
    const std::map<CoexEventType, std::shared_ptr<CallbackMap<const CoexAction&>>> callbacks_;

    mutable Mutex queueMutex_;
    std::vector<CoexAction> queue_ GUARDED_BY(queueMutex_);

    std::unique_ptr<WifiClientCallback> subscription_;
};

/**
 * Subscribes each package with the CoexManager. If that is switched off, returns no registrations;
 * the composition root logs a warning.
 */
std::vector<CoexRegistration> registerCoexActions(CorvidWifiClient& client,
                                                  const std::vector<CoexActionPackage>& packages);

}  // namespace Ursa::OS::Wifi
