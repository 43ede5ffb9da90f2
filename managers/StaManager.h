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
#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/support/StationSignal.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** What happened to the station link. */
struct StaResult {
    std::string event;  ///< for the log: "StaManager event(CONNECTED)" or "...(DISCONNECTED)"
    int32_t frequency;  ///< MHz; -1 when disconnected
    int32_t rssi;       ///< dBm; -1 when disconnected
};

/** The state of the station link. */
struct StaInfo {
    int32_t frequency;  ///< MHz, -1 when unknown
    int32_t rssi;       ///< dBm, -1 when unknown
    int32_t bandwidth;  ///< 0 unknown, 1 = 20, 2 = 40, 3 = 80, 4 = 80+80, 5 = 160 MHz
};

/**
 * Follows the station link: while it is up, a worker thread polls the signal and tells other
 * managers. Reports the link's events as telemetry atoms.
 */
class StaManager : public FeatureManager {
  public:
    /** `second` is the worker's unit of time; tests shorten it. */
    explicit StaManager(std::shared_ptr<CorvidWifiClient> client,
                        std::chrono::milliseconds second = std::chrono::seconds(1));

    /** Ends the worker and tells the subscribers once more that the link is down. */
    ~StaManager() override;

    /**
     * Fed with each successful poll, on the worker's thread: 5 s after the connection, every 5 s
     * from then on, 30 s after a failed poll. Four in a row that can't be sent end it until the
     * next connection. A subscriber unregisters before this manager is destroyed, and must not wait
     * for the listener thread or the link's next event: those wait for the worker.
     */
    const std::shared_ptr<CallbackMap<const StaResult&>> staConnectedCallbacks;

    /**
     * Fed on the listener thread when the link ends, at every notification that the supplicant is
     * away, and before a new link begins, so that subscribers start from their defaults. The
     * handler mutex is held meanwhile, so that no worker starts in between: subscribers must not
     * wait for the link's next event.
     */
    const std::shared_ptr<CallbackMap<const StaResult&>> staDisconnectedCallbacks;

    /** Asks the supplicant and the driver now. What they don't tell is unknown. Any thread. */
    void getStaInfo(StaInfo& info);

    bool dumpInfo(std::string& out) override;

  private:
    void setStaCallback_();

    void onStaConnected_();
    void onStaDisconnected_(const std::string& event);
    void onStaChannelSwitch_(const std::string& event);

    void startWorker_() REQUIRES(handlerMutex_);
    void stopWorker_() REQUIRES(handlerMutex_);
    void workerThread_();
    /** Polls once and tells the subscribers of `result`; returns the pause until the next, s. */
    int sample_(StaResult& result);
    /** Sleeps; returns false as soon as the worker is to stop. */
    bool sleep_(int seconds);
    void notifyDisconnected_();
    /** Calls the subscribers; what one throws is logged and goes no further. */
    static void notify_(CallbackMap<const StaResult&>& subscribers, const StaResult& result);

    /** Asks for the signal and counts what can't be sent. */
    StationSignal pollSignal_();

    const std::shared_ptr<CorvidWifiClient> client_;
    const std::chrono::milliseconds second_;

    Mutex handlerMutex_;  ///< keeps the connected and disconnected handlers apart
    std::thread worker_ GUARDED_BY(handlerMutex_);
    std::atomic<bool> running_{false};  ///< cleared under wakeMutex_ to wake the worker
    std::mutex wakeMutex_;
    std::condition_variable wake_;
    /** Failed sends in a row; a worker begins anew. */
    std::atomic<uint32_t> failures_{0};

    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
