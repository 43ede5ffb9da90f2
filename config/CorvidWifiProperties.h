#pragma once

// Typed access to the daemon's system properties. Nothing is cached: each call reads the property
// again, so when a change takes effect depends on the caller (docs/architecture.md, "When a
// property takes effect"). A value that does not parse counts as one that is not set. Any thread.

#include <optional>

// The one list of properties: P(type, accessor, name behind "persist.vendor.wifi."), and F for a
// number whose default is a flag. The comments give the default that the daemon falls back to.
#define CORVID_WIFI_PROPERTIES(P, F)                                                        \
    /* P2P channel switch by the vendor netlink command; wins over the next: off */         \
    P(bool, cmd_cs_p2p_ecsa, "cmd.cs.p2p.ecsa")                                             \
    /* P2P channel switch by the supplicant's private command: off */                       \
    P(bool, cmd_cs_p2p_corvid, "cmd.cs.p2p.corvid")                                         \
    /* external-LNA bypass command: off */                                                  \
    P(bool, cmd_elna_bypass_mode, "cmd.elna.bypass.mode")                                   \
    /* P2P notice-of-absence command: off */                                                \
    P(bool, cmd_noa_p2p, "cmd.noa.p2p")                                                     \
    /* airtime by the quota command: off */                                                 \
    P(bool, cmd_mcc_quota, "cmd.mcc.quota")                                                 \
    /* airtime by the P2P bandwidth command; wins over the quota: off */                    \
    P(bool, cmd_mcc_p2p_increase_bw, "cmd.mcc.p2p.increase.bw")                             \
    /* driver parameters at each station connection: off */                                 \
    P(bool, devparams_enable, "devparams.enable")                                           \
    /* which of them: 0 = access categories and UL MU, 1 = UL MU only: 0 */                 \
    F(int, devparams_default_config, "devparams.default_config")                            \
    /* PPDU duration offset, microseconds: 0 */                                             \
    P(int, devparams_ppdu_dur_offset_us, "devparams.ppdu_dur_offset_us")                    \
    /* PPDU duration, microseconds: 5484 */                                                 \
    P(int, devparams_ppdu_dur_us, "devparams.ppdu_dur_us")                                  \
    /* RTS on (1) or off (0): 1 */                                                          \
    P(int, devparams_rts_enable, "devparams.rts_enable")                                    \
    /* SIFS burst duration, microseconds: 13000 */                                          \
    P(int, devparams_sifs_burst_dur_us, "devparams.sifs_burst_dur_us")                      \
    /* frames in an A-MPDU: 64 */                                                           \
    P(int, devparams_tx_ampdu_limit, "devparams.tx_ampdu_limit")                            \
    /* frames in an A-MSDU: 4 */                                                            \
    P(int, devparams_tx_amsdu_limit, "devparams.tx_amsdu_limit")                            \
    /* transmit retries: 7 */                                                               \
    P(int, devparams_tx_retry_limit, "devparams.tx_retry_limit")                            \
    /* uplink multi-user configuration; only 0 is ever sent: 0 */                           \
    P(int, devparams_ul_mu_config, "devparams.ul_mu_config")                                \
    /* controllers keep off the Wi-Fi channel: off */                                       \
    P(bool, frequency_block_enable, "frequency.block.enable")                               \
    /* camera MIPI clock follows the station's channel: off */                              \
    P(bool, mipiclock_enable, "mipiclock.enable")                                           \
    /* stream classification requests: off */                                               \
    P(bool, scs_enable, "scs.enable")                                                       \
    /* one transmit chain from the start of a P2P group on: off */                          \
    P(bool, txchain_enable_p2p, "txchain.enable.p2p")                                       \
    /* the driver family whose transmit-chain command is known: off */                      \
    P(bool, txchain_qualcomm, "txchain.qualcomm")                                           \
    /* station power steps, dBm (or half dBm, see unit.half.dbm): 5, 9, 20 */               \
    P(unsigned, txpower_dbm_lower, "txpower.dbm.lower")                                     \
    P(unsigned, txpower_dbm_middle, "txpower.dbm.middle")                                   \
    P(unsigned, txpower_dbm_upper, "txpower.dbm.upper")                                     \
    /* P2P power on 2.4 GHz, same unit: 12 */                                               \
    P(unsigned, txpower_dbm_p2p, "txpower.dbm.p2p")                                         \
    /* station and P2P power control: off */                                                \
    P(bool, txpower_enable_sta, "txpower.enable.sta")                                       \
    P(bool, txpower_enable_p2p, "txpower.enable.p2p")                                       \
    /* station power by per-chain limits instead of steps: off */                           \
    P(bool, txpower_enable_sta_per_chain, "txpower.enable.sta.per_chain")                   \
    /* hand tracking may forbid the steps: off */                                           \
    P(bool, txpower_enable_handtracking, "txpower.enable.handtracking")                     \
    /* signal thresholds of the steps, dBm: -70, -65, -60, -55 */                           \
    P(int, txpower_rssi_lower, "txpower.rssi.lower")                                        \
    P(int, txpower_rssi_middle_lower, "txpower.rssi.middle.lower")                          \
    P(int, txpower_rssi_middle_upper, "txpower.rssi.middle.upper")                          \
    P(int, txpower_rssi_upper, "txpower.rssi.upper")                                        \
    /* the power steps above are in half dBm: off */                                        \
    P(bool, txpower_unit_half_dbm, "txpower.unit.half.dbm")                                 \
    /* bounds of the low signal range of per-chain control, dBm, exclusive: -85, -75 */     \
    P(int, txpower_perchain_low_rssi_lower, "txpower.perchain.low_rssi_lower")              \
    P(int, txpower_perchain_low_rssi_upper, "txpower.perchain.low_rssi_upper")              \
    /* limits of chains 0 and 1, dBm: 20, 20; in the low range: 13, 20 */                   \
    P(unsigned, txpower_perchain_limit_default_dbm0, "txpower.perchain.limit_default_dbm0") \
    P(unsigned, txpower_perchain_limit_default_dbm1, "txpower.perchain.limit_default_dbm1") \
    P(unsigned, txpower_perchain_limit_low_dbm0, "txpower.perchain.limit_low_dbm0")         \
    P(unsigned, txpower_perchain_limit_low_dbm1, "txpower.perchain.limit_low_dbm1")         \
    /* log of station connections and channel switches: off */                              \
    P(bool, telemetry_enable, "telemetry.enable")                                           \
    /* driver's power-surge detection follows the link: off; its threshold, dBm: -55 */     \
    P(bool, power_jump_detect_enable, "powerjump.detect.enable")                            \
    P(int, power_jump_detect_rssi_threshold, "powerjump.detect.rssi.threshold")             \
    /* block third-order intermodulation ranges of the 2.4 GHz channel too: off */          \
    P(bool, im3_mitigation_band2g, "im3.mitigation.band2g")

/** One accessor per property: its value, or nothing when it is unset or does not parse. */
namespace android::sysprop::CorvidWifiProperties {

#define CORVID_WIFI_DECLARE_(type, accessor, name) std::optional<type> accessor();
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DECLARE_, CORVID_WIFI_DECLARE_)
#undef CORVID_WIFI_DECLARE_

}  // namespace android::sysprop::CorvidWifiProperties

/** One wrapper per property, corvid_wifi_<accessor>(default). The caller owns the default. */
namespace Ursa::OS::Wifi::Sysprop {

#define CORVID_WIFI_DECLARE_(type, accessor, name) type corvid_wifi_##accessor(type defaultValue);
#define CORVID_WIFI_DECLARE_FLAG_(type, accessor, name) \
    type corvid_wifi_##accessor(bool defaultValue);
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DECLARE_, CORVID_WIFI_DECLARE_FLAG_)
#undef CORVID_WIFI_DECLARE_
#undef CORVID_WIFI_DECLARE_FLAG_

}  // namespace Ursa::OS::Wifi::Sysprop

namespace Ursa::OS::Wifi {

/** A property as an entry of a table: its whole name, and the wrapper that reads it. */
template <typename Type, typename Default = Type>
struct Property {
    const char* name;
    Type (*read)(Default defaultValue);
};

/** Every property, under its accessor's name. */
namespace property {

#define CORVID_WIFI_DEFINE_(type, accessor, name)                            \
    inline constexpr Property<type> accessor = {"persist.vendor.wifi." name, \
                                                &Sysprop::corvid_wifi_##accessor};
#define CORVID_WIFI_DEFINE_FLAG_(type, accessor, name)                             \
    inline constexpr Property<type, bool> accessor = {"persist.vendor.wifi." name, \
                                                      &Sysprop::corvid_wifi_##accessor};
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DEFINE_, CORVID_WIFI_DEFINE_FLAG_)
#undef CORVID_WIFI_DEFINE_
#undef CORVID_WIFI_DEFINE_FLAG_

}  // namespace property

}  // namespace Ursa::OS::Wifi
