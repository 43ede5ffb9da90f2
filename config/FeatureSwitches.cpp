#include "config/FeatureSwitches.h"

#include "config/CorvidWifiProperties.h"

namespace Ursa::OS::Wifi {

using namespace Sysprop;  // NOLINT(google-build-using-namespace): the table below reads better

bool IsFeatureEnabled(unsigned long feature) {
    switch (feature) {
        case kFeatureChannelSwitch:
            return corvid_wifi_cmd_cs_p2p_corvid(false) || corvid_wifi_cmd_cs_p2p_ecsa(false);
        case kFeatureNoa:
            return corvid_wifi_cmd_noa_p2p(false);
        case kFeatureMccTime:
            return corvid_wifi_cmd_mcc_p2p_increase_bw(false) || corvid_wifi_cmd_mcc_quota(false);
        case kFeatureElnaBypass:
            return corvid_wifi_cmd_elna_bypass_mode(false);
        case kFeatureScs:
            return corvid_wifi_scs_enable(false);
        case kFeatureTxChain:
            return corvid_wifi_txchain_enable_p2p(false);
        case kFeatureTxPower:
            return corvid_wifi_txpower_enable_sta(false) || corvid_wifi_txpower_enable_p2p(false);
        case kFeatureDevParams:
            return corvid_wifi_devparams_enable(false);
        case kFeaturePowerJumpDetect:
            return corvid_wifi_power_jump_detect_enable(false);
        case kFeatureTelemetry:
            return corvid_wifi_telemetry_enable(false);
        case kFeatureCoex:
            return corvid_wifi_frequency_block_enable(false) || corvid_wifi_mipiclock_enable(false);
        case kFeatureMipiClock:
            return corvid_wifi_mipiclock_enable(false);
        case kFeatureFrequencyBlock:
            return corvid_wifi_frequency_block_enable(false);
        default:  // always on, or not a feature we know
            return true;
    }
}

}  // namespace Ursa::OS::Wifi
