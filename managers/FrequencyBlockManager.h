#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <vrsensors/Sensors.h>

#include "managers/CoexManager.h"
#include "managers/FeatureManager.h"
#include "managers/support/LastCall.h"
#include "os/Moment.h"
#include "os/ValueMutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** A 2.4 GHz channel's centre and the range that is blocked for the controllers, all MHz. */
struct FrequencyMap {
    uint16_t centerFreq;
    uint16_t startFreq;
    uint16_t endFreq;
};

/**
 * Returns the frequency that the controllers must avoid: the station's if it is on 2.4 GHz, else
 * the P2P group's in any band. MHz, -1 for none.
 */
int32_t chooseBlockedFrequency(int32_t staFreq, int32_t p2pFreq);

/** Channel number minus 1 (0 to 12) of a frequency in MHz; -1 if negative, -2 if no channel's. */
int channelIndex(int32_t freq);

/**
 * Keeps the hand controllers' own 2.4 GHz link off the Wi-Fi channel: tells the sensor service
 * which range to block. Its actions run on the coexistence dispatcher; each update of the service's
 * list runs on a worker with a time limit. docs/architecture.md ("From an event to the blocklist").
 */
class FrequencyBlockManager : public FeatureManager {
  public:
    /** `limit` is the longest wait for one update of the sensor service; tests shorten it. */
    explicit FrequencyBlockManager(std::shared_ptr<CorvidWifiClient> client,
                                   std::chrono::milliseconds limit = std::chrono::seconds(1));
    ~FrequencyBlockManager() override;

    /** Queries the sensor service on the calling thread, without a time limit. */
    bool dumpInfo(std::string& out) override;
    StateTree describe() const override;

  private:
    /** State that the manager shares with a worker, which may outlive it. */
    struct Shared {
        explicit Shared(bool im3) : im3MitigationBand2g(im3) {}

        const bool im3MitigationBand2g;
        /** From our last successful set until our next successful clear. */
        std::atomic<bool> blockedByUs{false};
        /** Why the last update failed; a string literal. */
        std::atomic<const char*> failure{""};
        /** The controllers' blocklist after our last change of it. */
        ValueMutexBase<Sensors::ControllerWirelessFreqBlocklists, std::mutex> ranges;
    };

    void setCoexActionCallback_();

    void onWifiStaConnected_();
    void onWifiStaDisconnected_(const std::string& event);
    void onWifiP2pConnected_(const std::string& event);
    void onWifiP2pDisconnected_(const std::string& event);
    void onWifiP2pChannelSwitch_(const std::string& event);

    /** If the frequency to block changed, has a worker update the list. */
    void updateFrequencyBlock_();
    /** Runs on a worker. A negative index clears the list. */
    static bool setFrequencyBlockByChannel_(Shared& shared, int channelIndex);
    /** Clears the whole list, other clients' ranges too, if we have set any of it. */
    static bool clearBlock_(Sensors::ControllerProvider& provider, Shared& shared);
    /** Appends a channel's range to the list; earlier ranges stay until the list is cleared. */
    static bool addBlock_(Sensors::ControllerProvider& provider, Shared& shared,
                          Sensors::ControllerWirelessFreqBlocklists& list, int channelIndex);
    bool getFrequencyBlock_(Sensors::ControllerWirelessFreqBlocklists& list);

    const std::shared_ptr<CorvidWifiClient> client_;
    const std::chrono::milliseconds limit_;
    const std::shared_ptr<Shared> shared_;

    /** How the last update ended. */
    struct Update {
        const char* result = nullptr;  ///< a string literal; null: no update yet
        Moment at;
    };

    // MHz, -1 for none. Written on the dispatcher thread only.
    std::atomic<int32_t> blockedFreq_{-1};  ///< applied last, accepted by the service or not
    std::atomic<int32_t> staFreq_{-1};
    std::atomic<int32_t> p2pFreq_{-1};
    mutable ValueMutexBase<Update, std::mutex> lastUpdate_;
    LastCall lastAttempt_;

    std::vector<CoexRegistration> registrations_;  ///< last: no action runs once it has gone
};

}  // namespace Ursa::OS::Wifi
