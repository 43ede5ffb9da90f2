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
     * Sets the parameters of every instance: the exclusive bounds of the low-signal range (dBm) and
     * the limits (dBm) of chain 0 and 1 outside and inside of it. Called once, before any update,
     * with the values of TxPowerSettings: a change of their properties needs a restart.
     */
    static void setParameters(int lowRssiLower, int lowRssiUpper, unsigned defaultDbm0,
                              unsigned defaultDbm1, unsigned lowDbm0, unsigned lowDbm1);

    /** The limits for a signal (dBm) on a frequency (MHz); -1, -1 for no link. */
    static const ChainLimits& chooseLimits(int rssi, int freq);

    /**
     * Sends the command of each chain whose limit for this signal (dBm) on this frequency (MHz)
     * changes. The command carries the limit that was current until now, one change behind what is
     * stored: that is how the driver is served, and it stays so. A chain whose command can't be
     * sent keeps its old limit.
     */
    void update(int rssi, int freq);

    /** The state as text, `prefix` before each line. */
    std::string dump(const std::string& prefix) const;

  private:
    bool setSingleChainLimit_(unsigned dbm, int chain);

    static int kLowRssiBoundLower;
    static int kLowRssiBoundUpper;
    static ChainLimits kPowerLimitDefaultDbmArray;
    static ChainLimits kPowerLimitLowRssiDbmArray;

    const std::shared_ptr<CorvidWifiClient> client_;
    ChainLimits currentDbmArray_ = kPowerLimitDefaultDbmArray;
};

}  // namespace Ursa::OS::Wifi
