#pragma once

// Typed access to the daemon's system properties. Each call reads the property again, so when a
// change takes effect depends on the caller (docs/architecture.md, "When a property takes effect").
// A value that does not parse counts as not set. Any thread.

#include <optional>

// All properties: P(type, accessor, name after "persist.vendor.wifi."), and F for a number whose
// default is passed as a bool. docs/properties.md and device/sepolicy/property_contexts are
// generated from this list and its comments: meaning | default that the daemon falls back to | when
// a change takes effect: "restart", "at once" (at the next use), or "both": a restart switches the
// feature on, and from then on each use reads the property again.
#define CORVID_WIFI_PROPERTIES(P, F)                                                          \
    /* P2P channel switch by the vendor netlink command; wins over the next | off | both */   \
    P(bool, cmd_cs_p2p_ecsa, "cmd.cs.p2p.ecsa")                                               \
    /* P2P channel switch by the supplicant's private command | off | both */                 \
    P(bool, cmd_cs_p2p_corvid, "cmd.cs.p2p.corvid")                                           \
    /* external-LNA bypass command | off | both */                                            \
    P(bool, cmd_elna_bypass_mode, "cmd.elna.bypass.mode")                                     \
    /* P2P notice-of-absence command | off | both */                                          \
    P(bool, cmd_noa_p2p, "cmd.noa.p2p")                                                       \
    /* airtime by the quota command | off | both */                                           \
    P(bool, cmd_mcc_quota, "cmd.mcc.quota")                                                   \
    /* airtime by the P2P bandwidth command; wins over the quota | off | both */              \
    P(bool, cmd_mcc_p2p_increase_bw, "cmd.mcc.p2p.increase.bw")                               \
    /* driver parameters at each station connection | off | restart */                        \
    P(bool, devparams_enable, "devparams.enable")                                             \
    /* which of them: 0 = access categories and UL MU, 1 = UL MU only | 0 | restart */        \
    F(int, devparams_default_config, "devparams.default_config")                              \
    /* PPDU duration offset, microseconds; no command carries it yet | 0 | restart */         \
    P(int, devparams_ppdu_dur_offset_us, "devparams.ppdu_dur_offset_us")                      \
    /* PPDU duration, microseconds | 5484 | restart */                                        \
    P(int, devparams_ppdu_dur_us, "devparams.ppdu_dur_us")                                    \
    /* RTS on (1) or off (0); no command carries it yet | 1 | restart */                      \
    P(int, devparams_rts_enable, "devparams.rts_enable")                                      \
    /* SIFS burst duration, microseconds; no command carries it yet | 13000 | restart */      \
    P(int, devparams_sifs_burst_dur_us, "devparams.sifs_burst_dur_us")                        \
    /* frames in an A-MPDU | 64 | restart */                                                  \
    P(int, devparams_tx_ampdu_limit, "devparams.tx_ampdu_limit")                              \
    /* frames in an A-MSDU | 4 | restart */                                                   \
    P(int, devparams_tx_amsdu_limit, "devparams.tx_amsdu_limit")                              \
    /* transmit retries | 7 | restart */                                                      \
    P(int, devparams_tx_retry_limit, "devparams.tx_retry_limit")                              \
    /* uplink multi-user configuration; only 0 is ever sent | 0 | restart */                  \
    P(int, devparams_ul_mu_config, "devparams.ul_mu_config")                                  \
    /* controllers keep off the Wi-Fi channel | off | restart */                              \
    P(bool, frequency_block_enable, "frequency.block.enable")                                 \
    /* camera MIPI clock follows the station's channel | off | restart */                     \
    P(bool, mipiclock_enable, "mipiclock.enable")                                             \
    /* stream classification requests | off | restart */                                      \
    P(bool, scs_enable, "scs.enable")                                                         \
    /* one transmit chain from the start of a P2P group on | off | restart */                 \
    P(bool, txchain_enable_p2p, "txchain.enable.p2p")                                         \
    /* the driver family whose transmit-chain command is known | off | at once */             \
    P(bool, txchain_qualcomm, "txchain.qualcomm")                                             \
    /* lower station power step, dBm (half dBm, see unit.half.dbm) | 5 | restart */           \
    P(unsigned, txpower_dbm_lower, "txpower.dbm.lower")                                       \
    /* middle station power step, same unit | 9 | restart */                                  \
    P(unsigned, txpower_dbm_middle, "txpower.dbm.middle")                                     \
    /* upper station power step, same unit | 20 | restart */                                  \
    P(unsigned, txpower_dbm_upper, "txpower.dbm.upper")                                       \
    /* P2P power on 2.4 GHz, same unit | 12 | restart */                                      \
    P(unsigned, txpower_dbm_p2p, "txpower.dbm.p2p")                                           \
    /* station power control | off | restart */                                               \
    P(bool, txpower_enable_sta, "txpower.enable.sta")                                         \
    /* P2P power control | off | restart */                                                   \
    P(bool, txpower_enable_p2p, "txpower.enable.p2p")                                         \
    /* station power by per-chain limits instead of steps | off | restart */                  \
    P(bool, txpower_enable_sta_per_chain, "txpower.enable.sta.per_chain")                     \
    /* hand tracking may forbid the steps | off | at once */                                  \
    P(bool, txpower_enable_handtracking, "txpower.enable.handtracking")                       \
    /* below it (dBm) the station goes back to the upper step | -70 | restart */              \
    P(int, txpower_rssi_lower, "txpower.rssi.lower")                                          \
    /* above it (dBm) the upper step is followed by the middle one | -65 | restart */         \
    P(int, txpower_rssi_middle_lower, "txpower.rssi.middle.lower")                            \
    /* below it (dBm) the lower step is followed by the middle one | -60 | restart */         \
    P(int, txpower_rssi_middle_upper, "txpower.rssi.middle.upper")                            \
    /* above it (dBm) the lower step follows | -55 | restart */                               \
    P(int, txpower_rssi_upper, "txpower.rssi.upper")                                          \
    /* the power steps above are in half dBm | off | restart */                               \
    P(bool, txpower_unit_half_dbm, "txpower.unit.half.dbm")                                   \
    /* per-chain control's low signal range begins above it, dBm | -85 | restart */           \
    P(int, txpower_perchain_low_rssi_lower, "txpower.perchain.low_rssi_lower")                \
    /* and ends below it, dBm | -75 | restart */                                              \
    P(int, txpower_perchain_low_rssi_upper, "txpower.perchain.low_rssi_upper")                \
    /* limit of chain 0, dBm | 20 | restart */                                                \
    P(unsigned, txpower_perchain_limit_default_dbm0, "txpower.perchain.limit_default_dbm0")   \
    /* limit of chain 1, dBm | 20 | restart */                                                \
    P(unsigned, txpower_perchain_limit_default_dbm1, "txpower.perchain.limit_default_dbm1")   \
    /* limit of chain 0 in the low range, dBm | 13 | restart */                               \
    P(unsigned, txpower_perchain_limit_low_dbm0, "txpower.perchain.limit_low_dbm0")           \
    /* limit of chain 1 in the low range, dBm | 20 | restart */                               \
    P(unsigned, txpower_perchain_limit_low_dbm1, "txpower.perchain.limit_low_dbm1")           \
    /* log of station connections and channel switches | off | restart */                     \
    P(bool, telemetry_enable, "telemetry.enable")                                             \
    /* driver's power-surge detection follows the link | off | restart */                     \
    P(bool, power_jump_detect_enable, "powerjump.detect.enable")                              \
    /* its threshold, dBm | -55 | restart */                                                  \
    P(int, power_jump_detect_rssi_threshold, "powerjump.detect.rssi.threshold")               \
    /* block third-order intermodulation ranges of the 2.4 GHz channel too | off | restart */ \
    P(bool, im3_mitigation_band2g, "im3.mitigation.band2g")

/** One accessor per property: its value, or std::nullopt if it is unset or does not parse. */
namespace android::sysprop::CorvidWifiProperties {

#define CORVID_WIFI_DECLARE_(type, accessor, name) std::optional<type> accessor();
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DECLARE_, CORVID_WIFI_DECLARE_)
#undef CORVID_WIFI_DECLARE_

}  // namespace android::sysprop::CorvidWifiProperties

/** One wrapper per property, corvid_wifi_<accessor>(default): the value, or else the default. */
namespace Ursa::OS::Wifi::Sysprop {

#define CORVID_WIFI_DECLARE_(type, accessor, name) type corvid_wifi_##accessor(type defaultValue);
#define CORVID_WIFI_DECLARE_FLAG_(type, accessor, name) \
    type corvid_wifi_##accessor(bool defaultValue);
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DECLARE_, CORVID_WIFI_DECLARE_FLAG_)
#undef CORVID_WIFI_DECLARE_
#undef CORVID_WIFI_DECLARE_FLAG_

}  // namespace Ursa::OS::Wifi::Sysprop

namespace Ursa::OS::Wifi {

/** A property as a table entry: its full name and the wrapper that reads it. */
template <typename Type, typename Default = Type>
struct Property {
    const char* name;
    Type (*read)(Default defaultValue);
};

/** Every property as a table entry, named like its accessor. */
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
