#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <string>

#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** Power limits of the two transmit chains, dBm. */
using ChainLimits = std::array<unsigned, 2>;

/**
 * Limits the station's power per transmit chain: one pair of limits on a weak 2.4 GHz link, another
 * everywhere else. Not thread-safe: the owner calls it under its own mutex.
 */
class PerChainTxPower {
  public:
    /** With a null client nothing is sent and every command counts as sent, for tests. */
    explicit PerChainTxPower(std::shared_ptr<CorvidWifiClient> client);

    /**
     * Sets the low-signal range (exclusive bounds, dBm) and the limits (dBm) of chains 0 and 1
     * outside and inside it. Sends nothing and leaves the current limits unchanged.
     */
    void setParameters(int lowRssiLower, int lowRssiUpper, unsigned defaultDbm0,
                       unsigned defaultDbm1, unsigned lowDbm0, unsigned lowDbm1);

    /** The limits for a signal (dBm) on a frequency (MHz); pass -1 and -1 for no link. */
    const ChainLimits& chooseLimits(int rssi, int freq) const;

    /**
     * Sends a command for each chain whose limit for this signal (dBm) and frequency (MHz) changes.
     * The command carries the previous limit, not the new one: the driver applies limits one change
     * late and deployed firmware relies on it. If it cannot be sent, the current limit stays.
     */
    void update(int rssi, int freq);

    /** The state for the dump, `prefix` before each line. */
    std::string dump(const std::string& prefix) const;
    /** For reports. Any thread, without the owner's mutex: the parameters no longer change then. */
    StateTree describe() const;

  private:
    bool setSingleChainLimit_(unsigned dbm, int chain);
    ChainLimits current_() const { return {currentDbm_[0], currentDbm_[1]}; }

    const std::shared_ptr<CorvidWifiClient> client_;
    int lowRssiBoundLower_ = -85;
    int lowRssiBoundUpper_ = -75;
    ChainLimits defaultDbm_ = {20, 20};
    ChainLimits lowRssiDbm_ = {13, 20};
    std::array<std::atomic<unsigned>, 2> currentDbm_{20U, 20U};  ///< one by one, like the commands
};

}  // namespace Ursa::OS::Wifi
