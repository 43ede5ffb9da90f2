#pragma once

#include <array>
#include <memory>
#include <string>

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** Power limits of the two transmit chains, dBm. */
using ChainLimits = std::array<unsigned, 2>;

/**
 * Limits the station's power per transmit chain: one pair of limits on a weak 2.4 GHz link, another
 * everywhere else. Not locked: its owner calls it under its own mutex.
 */
class PerChainTxPower {
  public:
    /** With a null client nothing is sent, and every command counts as sent. */
    explicit PerChainTxPower(std::shared_ptr<CorvidWifiClient> client);

    /**
     * The exclusive bounds of the low-signal range (dBm) and the limits (dBm) of chain 0 and 1
     * outside and inside of it. Sends nothing, and leaves what is current as it is.
     */
    void setParameters(int lowRssiLower, int lowRssiUpper, unsigned defaultDbm0,
                       unsigned defaultDbm1, unsigned lowDbm0, unsigned lowDbm1);

    /** The limits for a signal (dBm) on a frequency (MHz); -1, -1 for no link. */
    const ChainLimits& chooseLimits(int rssi, int freq) const;

    /**
     * Sends the command of each chain whose limit for this signal (dBm) on this frequency (MHz)
     * changes. It carries the previous limit, not the new one: the driver applies limits one change
     * late and deployed firmware relies on it. A chain whose command can't be sent keeps its limit.
     */
    void update(int rssi, int freq);

    /** The state as text, `prefix` before each line. */
    std::string dump(const std::string& prefix) const;

  private:
    bool setSingleChainLimit_(unsigned dbm, int chain);

    const std::shared_ptr<CorvidWifiClient> client_;
    int lowRssiBoundLower_ = -85;
    int lowRssiBoundUpper_ = -75;
    ChainLimits defaultDbm_ = {20, 20};
    ChainLimits lowRssiDbm_ = {13, 20};
    ChainLimits currentDbm_ = defaultDbm_;  ///< not of the parameters that are set later
};

}  // namespace Ursa::OS::Wifi
