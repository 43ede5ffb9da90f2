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

}  // namespace Ursa::OS::Wifi::TxPowerSettings
