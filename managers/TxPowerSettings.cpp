#include "managers/TxPowerSettings.h"

#include "config/CorvidWifiProperties.h"

namespace Ursa::OS::Wifi::TxPowerSettings {

bool staEnabled() {
    static const bool value = Sysprop::corvid_wifi_txpower_enable_sta(false);
    return value;
}

bool p2pEnabled() {
    static const bool value = Sysprop::corvid_wifi_txpower_enable_p2p(false);
    return value;
}

bool perChain() {
    static const bool value = Sysprop::corvid_wifi_txpower_enable_sta_per_chain(false);
    return value;
}

unsigned upper() {
    static const unsigned value = Sysprop::corvid_wifi_txpower_dbm_upper(20);
    return value;
}

unsigned middle() {
    static const unsigned value = Sysprop::corvid_wifi_txpower_dbm_middle(9);
    return value;
}

unsigned lower() {
    static const unsigned value = Sysprop::corvid_wifi_txpower_dbm_lower(5);
    return value;
}

unsigned p2p() {
    static const unsigned value = Sysprop::corvid_wifi_txpower_dbm_p2p(12);
    return value;
}

bool unitIsHalfDbm() {
    static const bool value = Sysprop::corvid_wifi_txpower_unit_half_dbm(false);
    return value;
}

int rssiUpper() {
    static const int value = Sysprop::corvid_wifi_txpower_rssi_upper(-55);
    return value;
}

int rssiMiddleUpper() {
    static const int value = Sysprop::corvid_wifi_txpower_rssi_middle_upper(-60);
    return value;
}

int rssiMiddleLower() {
    static const int value = Sysprop::corvid_wifi_txpower_rssi_middle_lower(-65);
    return value;
}

int rssiLower() {
    static const int value = Sysprop::corvid_wifi_txpower_rssi_lower(-70);
    return value;
}

int perChainLowRssiLower() {
    static const int value = Sysprop::corvid_wifi_txpower_perchain_low_rssi_lower(-85);
    return value;
}

int perChainLowRssiUpper() {
    static const int value = Sysprop::corvid_wifi_txpower_perchain_low_rssi_upper(-75);
    return value;
}

unsigned perChainDefaultDbm0() {
    static const unsigned value = Sysprop::corvid_wifi_txpower_perchain_limit_default_dbm0(20);
    return value;
}

unsigned perChainDefaultDbm1() {
    static const unsigned value = Sysprop::corvid_wifi_txpower_perchain_limit_default_dbm1(20);
    return value;
}

unsigned perChainLowDbm0() {
    static const unsigned value = Sysprop::corvid_wifi_txpower_perchain_limit_low_dbm0(13);
    return value;
}

unsigned perChainLowDbm1() {
    static const unsigned value = Sysprop::corvid_wifi_txpower_perchain_limit_low_dbm1(20);
    return value;
}

}  // namespace Ursa::OS::Wifi::TxPowerSettings
