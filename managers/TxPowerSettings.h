#pragma once

#include "config/CorvidWifiProperties.h"
#include "config/ReadOnce.h"

namespace Ursa::OS::Wifi {

/**
 * The configured values of station and P2P power control, each with its property and default. Each
 * is read at its first use and kept. Any thread.
 */
struct TxPowerSettings {
    /** The process's settings: a value that one manager has read applies to all of them. */
    static const TxPowerSettings& ofProcess() {
        static const TxPowerSettings settings{};
        return settings;
    }

    ReadOnce<bool> staEnabled{Sysprop::corvid_wifi_txpower_enable_sta, false};
    ReadOnce<bool> p2pEnabled{Sysprop::corvid_wifi_txpower_enable_p2p, false};
    /** Whether the station's power is limited per chain instead of set in steps. */
    ReadOnce<bool> perChain{Sysprop::corvid_wifi_txpower_enable_sta_per_chain, false};

    // Power steps in dBm; in half dBm if unitIsHalfDbm.
    ReadOnce<unsigned> upper{Sysprop::corvid_wifi_txpower_dbm_upper, 20};
    ReadOnce<unsigned> middle{Sysprop::corvid_wifi_txpower_dbm_middle, 9};
    ReadOnce<unsigned> lower{Sysprop::corvid_wifi_txpower_dbm_lower, 5};
    /** P2P power on 2.4 GHz. */
    ReadOnce<unsigned> p2p{Sysprop::corvid_wifi_txpower_dbm_p2p, 12};
    ReadOnce<bool> unitIsHalfDbm{Sysprop::corvid_wifi_txpower_unit_half_dbm, false};

    // Signal thresholds of the station's steps, dBm.
    ReadOnce<int> rssiUpper{Sysprop::corvid_wifi_txpower_rssi_upper, -55};
    ReadOnce<int> rssiMiddleUpper{Sysprop::corvid_wifi_txpower_rssi_middle_upper, -60};
    ReadOnce<int> rssiMiddleLower{Sysprop::corvid_wifi_txpower_rssi_middle_lower, -65};
    ReadOnce<int> rssiLower{Sysprop::corvid_wifi_txpower_rssi_lower, -70};

    // Per-chain control: the low-signal range (exclusive bounds) and the limits of chains 0 and 1
    // outside and inside it, all dBm.
    ReadOnce<int> perChainLowRssiLower{Sysprop::corvid_wifi_txpower_perchain_low_rssi_lower, -85};
    ReadOnce<int> perChainLowRssiUpper{Sysprop::corvid_wifi_txpower_perchain_low_rssi_upper, -75};
    ReadOnce<unsigned> perChainDefaultDbm0{Sysprop::corvid_wifi_txpower_perchain_limit_default_dbm0,
                                           20};
    ReadOnce<unsigned> perChainDefaultDbm1{Sysprop::corvid_wifi_txpower_perchain_limit_default_dbm1,
                                           20};
    ReadOnce<unsigned> perChainLowDbm0{Sysprop::corvid_wifi_txpower_perchain_limit_low_dbm0, 13};
    ReadOnce<unsigned> perChainLowDbm1{Sysprop::corvid_wifi_txpower_perchain_limit_low_dbm1, 20};
};

}  // namespace Ursa::OS::Wifi
