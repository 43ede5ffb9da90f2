#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/CallbackMap.h"
#include "client/Task.h"
#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/support/StationSignal.h"
#include "os/Moment.h"
#include "os/Mutex.h"
#include "os/ValueMutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** What happened to the station link. */
struct StaResult {
    std::string event;  ///< for the log: "StaManager event(CONNECTED)" or "...(DISCONNECTED)"
    int32_t frequency;  ///< MHz; -1 when disconnected
    int32_t rssi;       ///< dBm; -1 when disconnected
};

/** The station link as the supplicant and the driver report it now. */
struct StaInfo {
    int32_t frequency;  ///< MHz, -1 when unknown
    int32_t rssi;       ///< dBm, -1 when unknown
    int32_t bandwidth;  ///< a code: 0 = unknown, 1 = 20, 2 = 40, 3 = 80, 4 = 80+80, 5 = 160 MHz
};

/**
 * Follows the station link: while it is up, a worker thread polls the signal and passes it to
 * subscribers. Reports the link's events as telemetry atoms. Its handlers run on the listener
 * thread. docs/architecture.md ("From CONNECTED to a power command") has the sequence.
 */
class StaManager : public FeatureManager {
  public:
    /** `second` is how long the worker's second lasts; tests shorten it. */
    explicit StaManager(std::shared_ptr<CorvidWifiClient> client,
                        std::chrono::milliseconds second = std::chrono::seconds(1));

    /** Joins the worker and triggers staDisconnectedCallbacks once more. */
    ~StaManager() override;

    /**
     * Triggered on the worker after each successful poll: first 5 s after the connection, then
     * every 5 s, but 30 s after a failed poll. Four polls in a row that cannot be sent end the
     * sampling until the next connection. Subscribers must unregister before this manager is
     * destroyed, and must not wait for the listener thread, which joins the worker.
     */
    const std::shared_ptr<CallbackMap<const StaResult&>> staConnectedCallbacks;

    /**
     * Triggered on the listener thread when the link ends, at every WPA_SOCKET_DISCONNECTED, and
     * at a new connection before its worker starts, so that subscribers begin from their defaults;
     * and once by the destructor. handlerMutex_ is held meanwhile: subscribers must not wait for
     * the next link event.
     */
    const std::shared_ptr<CallbackMap<const StaResult&>> staDisconnectedCallbacks;

    /** Queries the supplicant and the driver now. Fields that fail are unknown. Any thread. */
    void getStaInfo(StaInfo& info);

    bool dumpInfo(std::string& out) override;
    StateTree describe() const override;

  private:
    void setStaCallback_();

    void onStaConnected_();
    void onStaDisconnected_(const std::string& event);
    void onStaChannelSwitch_(const std::string& event);

    void startWorker_() REQUIRES(handlerMutex_);
    void stopWorker_() REQUIRES(handlerMutex_);
    void workerThread_();
    /**
     * Polls once; on success writes `result`, which the worker reuses, and passes it to the
     * subscribers. Returns the seconds until the next poll.
     */
    int sample_(StaResult& result);
    /** Sleeps; returns false as soon as the worker is to stop. */
    bool sleep_(int seconds);
    void notifyDisconnected_();
    /** Calls the subscribers; logs what one throws. */
    static void notify_(CallbackMap<const StaResult&>& subscribers, const StaResult& result);

    /** Polls the signal and counts the polls that cannot be sent. */
    StationSignal pollSignal_();

    const std::shared_ptr<CorvidWifiClient> client_;
    const std::chrono::milliseconds second_;
    /** Looked up here: the worker's thread must not fail for want of memory. */
    const Task& workerTask_ = Task::named("StaManager.worker", Task::Kind::Other);

    /** Held by the connected and disconnected handlers: they start, stop and join the worker. */
    Mutex handlerMutex_;
    std::thread worker_ GUARDED_BY(handlerMutex_);
    /** The last signal samples of a link, the newest last. */
    struct Samples {
        static constexpr size_t kCapacity = 32;

        bool isLinkUp = false;
        int frequency = -1;  ///< MHz
        Moment at;
        std::vector<int> rssi;  ///< dBm
    };
    mutable ValueMutexBase<Samples, std::mutex> samples_;

    std::atomic<bool> running_{false};  ///< cleared under wakeMutex_ to wake the worker
    std::mutex wakeMutex_;
    std::condition_variable wake_;
    /** Polls in a row that could not be sent; a new worker resets it. */
    std::atomic<uint32_t> failures_{0};

    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
