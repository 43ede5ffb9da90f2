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

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** A 2.4 GHz channel and the range that the controllers keep off for its sake, all MHz. */
struct FrequencyMap {
    uint16_t centerFreq;
    uint16_t startFreq;
    uint16_t endFreq;
};

/**
 * The frequency that the controllers must avoid: the station's on 2.4 GHz, otherwise the P2P
 * group's, whatever its band. MHz, -1 for none.
 */
int32_t chooseBlockedFrequency(int32_t staFreq, int32_t p2pFreq);

/** The channel table's row of a frequency: 0 to 12; -1 for none, -2 for one without a row. */
int channelIndex(int32_t freq);

/**
 * Keeps the hand controllers' own 2.4 GHz link off the Wi-Fi channel, through the sensor service.
 * Its actions run on the coexistence dispatcher; each call of the service on a worker with a time
 * limit.
 */
class FrequencyBlockManager : public FeatureManager {
  public:
    /** `limit` is the longest that the sensor service is waited for; tests shorten it. */
    explicit FrequencyBlockManager(std::shared_ptr<CorvidWifiClient> client,
                                   std::chrono::milliseconds limit = std::chrono::seconds(1));
    ~FrequencyBlockManager() override;

    /** Asks the sensor service on the calling thread, without a time limit. */
    bool dumpInfo(std::string& out) override;

  private:
    /** What a worker shares with the manager, which it may outlive. */
    struct Shared {
        explicit Shared(bool im3) : im3MitigationBand2g(im3) {}

        const bool im3MitigationBand2g;
        /** From our last successful set until our next successful clear. */
        std::atomic<bool> blockedByUs{false};
    };

    void setCoexActionCallback_();

    void onWifiStaConnected_();
    void onWifiStaDisconnected_(const std::string& event);
    void onWifiP2pConnected_(const std::string& event);
    void onWifiP2pDisconnected_(const std::string& event);
    void onWifiP2pChannelSwitch_(const std::string& event);

    /** Returns true when the sensor service was told of a change. */
    bool updateFrequencyBlock_();
    static bool setFrequencyBlockByChannel_(Shared& shared, int channelIndex);
    /** Clears the whole list, if some of it is ours. */
    static bool clearBlock_(Sensors::ControllerProvider& provider, Shared& shared);
    /** Adds a channel behind what is in the list, by us or by others: only a clear removes. */
    static bool addBlock_(Sensors::ControllerProvider& provider, Shared& shared,
                          Sensors::ControllerWirelessFreqBlocklists& list, int channelIndex);
    bool getFrequencyBlock_(Sensors::ControllerWirelessFreqBlocklists& list);

    const std::shared_ptr<CorvidWifiClient> client_;
    const std::chrono::milliseconds limit_;
    const std::shared_ptr<Shared> shared_;

    // MHz, -1 for none. Dispatcher thread only.
    int32_t blockedFreq_ = -1;  ///< the frequency that was last applied, whatever the result
    int32_t staFreq_ = -1;
    int32_t p2pFreq_ = -1;

    std::vector<CoexRegistration> registrations_;  ///< last: no action runs once it has gone
};

}  // namespace Ursa::OS::Wifi
