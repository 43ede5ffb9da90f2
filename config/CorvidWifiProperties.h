#pragma once

// Typed access to the daemon's system properties. Each call reads the property again, so when a
// change takes effect depends on the caller (docs/architecture.md, "When a property takes effect").
// A value that does not parse counts as not set. Any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// All properties: P(type, accessor, name after "persist.vendor.wifi.", default that the daemon
// falls back to, one of PropertyRanges without its k, PropertyEffect, meaning), and F for a number
// whose default is passed as a bool. docs/properties.md and device/sepolicy/property_contexts are
// generated from this list.
#define CORVID_WIFI_PROPERTIES(P, F)                                                             \
    P(bool, cmd_cs_p2p_ecsa, "cmd.cs.p2p.ecsa", false, Flag, Both,                               \
      "P2P channel switch by the vendor netlink command; wins over the next")                    \
    P(bool, cmd_cs_p2p_corvid, "cmd.cs.p2p.corvid", false, Flag, Both,                           \
      "P2P channel switch by the supplicant's private command")                                  \
    P(bool, cmd_elna_bypass_mode, "cmd.elna.bypass.mode", false, Flag, Both,                     \
      "external-LNA bypass command")                                                             \
    P(bool, cmd_noa_p2p, "cmd.noa.p2p", false, Flag, Both, "P2P notice-of-absence command")      \
    P(bool, cmd_mcc_quota, "cmd.mcc.quota", false, Flag, Both, "airtime by the quota command")   \
    P(bool, cmd_mcc_p2p_increase_bw, "cmd.mcc.p2p.increase.bw", false, Flag, Both,               \
      "airtime by the P2P bandwidth command; wins over the quota")                               \
    P(bool, devparams_enable, "devparams.enable", false, Flag, Restart,                          \
      "driver parameters at each station connection")                                            \
    F(int, devparams_default_config, "devparams.default_config", 0, Config, Restart,             \
      "which of them: 0 = access categories and UL MU, 1 = UL MU only")                          \
    P(int, devparams_ppdu_dur_offset_us, "devparams.ppdu_dur_offset_us", 0, Count, Restart,      \
      "PPDU duration offset, microseconds; no command carries it yet")                           \
    P(int, devparams_ppdu_dur_us, "devparams.ppdu_dur_us", 5484, Count, Restart,                 \
      "PPDU duration, microseconds")                                                             \
    P(int, devparams_rts_enable, "devparams.rts_enable", 1, Switch, Restart,                     \
      "RTS on (1) or off (0); no command carries it yet")                                        \
    P(int, devparams_sifs_burst_dur_us, "devparams.sifs_burst_dur_us", 13000, Count, Restart,    \
      "SIFS burst duration, microseconds; no command carries it yet")                            \
    P(int, devparams_tx_ampdu_limit, "devparams.tx_ampdu_limit", 64, Count, Restart,             \
      "frames in an A-MPDU")                                                                     \
    P(int, devparams_tx_amsdu_limit, "devparams.tx_amsdu_limit", 4, Count, Restart,              \
      "frames in an A-MSDU")                                                                     \
    P(int, devparams_tx_retry_limit, "devparams.tx_retry_limit", 7, Count, Restart,              \
      "transmit retries")                                                                        \
    P(int, devparams_ul_mu_config, "devparams.ul_mu_config", 0, UlMu, Restart,                   \
      "uplink multi-user configuration; only 0 is ever sent")                                    \
    P(bool, frequency_block_enable, "frequency.block.enable", false, Flag, Restart,              \
      "controllers keep off the Wi-Fi channel")                                                  \
    P(bool, mipiclock_enable, "mipiclock.enable", false, Flag, Restart,                          \
      "camera MIPI clock follows the station's channel")                                         \
    P(bool, scs_enable, "scs.enable", false, Flag, Restart, "stream classification requests")    \
    P(bool, txchain_enable_p2p, "txchain.enable.p2p", false, Flag, Restart,                      \
      "one transmit chain from the start of a P2P group on")                                     \
    P(bool, txchain_qualcomm, "txchain.qualcomm", false, Flag, AtOnce,                           \
      "the driver family whose transmit-chain command is known")                                 \
    P(unsigned, txpower_dbm_lower, "txpower.dbm.lower", 5, Step, FirstUse,                       \
      "lower station power step, dBm (half dBm, see unit.half.dbm)")                             \
    P(unsigned, txpower_dbm_middle, "txpower.dbm.middle", 9, Step, FirstUse,                     \
      "middle station power step, same unit")                                                    \
    P(unsigned, txpower_dbm_upper, "txpower.dbm.upper", 20, Step, FirstUse,                      \
      "upper station power step, same unit")                                                     \
    P(unsigned, txpower_dbm_p2p, "txpower.dbm.p2p", 12, Step, FirstUse,                          \
      "P2P power on 2.4 GHz, same unit")                                                         \
    P(bool, txpower_enable_sta, "txpower.enable.sta", false, Flag, Restart,                      \
      "station power control")                                                                   \
    P(bool, txpower_enable_p2p, "txpower.enable.p2p", false, Flag, Restart, "P2P power control") \
    P(bool, txpower_enable_sta_per_chain, "txpower.enable.sta.per_chain", false, Flag, Restart,  \
      "station power by per-chain limits instead of steps")                                      \
    P(bool, txpower_enable_handtracking, "txpower.enable.handtracking", false, Flag, AtOnce,     \
      "hand tracking may forbid the steps")                                                      \
    P(int, txpower_rssi_lower, "txpower.rssi.lower", -70, Signal, FirstUse,                      \
      "below it (dBm) the station goes back to the upper step")                                  \
    P(int, txpower_rssi_middle_lower, "txpower.rssi.middle.lower", -65, Signal, FirstUse,        \
      "above it (dBm) the upper step is followed by the middle one")                             \
    P(int, txpower_rssi_middle_upper, "txpower.rssi.middle.upper", -60, Signal, FirstUse,        \
      "below it (dBm) the lower step is followed by the middle one")                             \
    P(int, txpower_rssi_upper, "txpower.rssi.upper", -55, Signal, FirstUse,                      \
      "above it (dBm) the lower step follows")                                                   \
    P(bool, txpower_unit_half_dbm, "txpower.unit.half.dbm", false, Flag, FirstUse,               \
      "the power steps above are in half dBm")                                                   \
    P(int, txpower_perchain_low_rssi_lower, "txpower.perchain.low_rssi_lower", -85, Signal,      \
      Restart, "per-chain control's low signal range begins above it, dBm")                      \
    P(int, txpower_perchain_low_rssi_upper, "txpower.perchain.low_rssi_upper", -75, Signal,      \
      Restart, "and ends below it, dBm")                                                         \
    P(unsigned, txpower_perchain_limit_default_dbm0, "txpower.perchain.limit_default_dbm0", 20,  \
      ChainLimit, Restart, "limit of chain 0, dBm")                                              \
    P(unsigned, txpower_perchain_limit_default_dbm1, "txpower.perchain.limit_default_dbm1", 20,  \
      ChainLimit, Restart, "limit of chain 1, dBm")                                              \
    P(unsigned, txpower_perchain_limit_low_dbm0, "txpower.perchain.limit_low_dbm0", 13,          \
      ChainLimit, Restart, "limit of chain 0 in the low range, dBm")                             \
    P(unsigned, txpower_perchain_limit_low_dbm1, "txpower.perchain.limit_low_dbm1", 20,          \
      ChainLimit, Restart, "limit of chain 1 in the low range, dBm")                             \
    P(bool, telemetry_enable, "telemetry.enable", false, Flag, Restart,                          \
      "log of station connections and channel switches")                                         \
    P(bool, power_jump_detect_enable, "powerjump.detect.enable", false, Flag, Restart,           \
      "driver's power-surge detection follows the link")                                         \
    P(int, power_jump_detect_rssi_threshold, "powerjump.detect.rssi.threshold", -55, Signal,     \
      FirstUse, "its threshold, dBm")                                                            \
    P(bool, im3_mitigation_band2g, "im3.mitigation.band2g", false, Flag, Restart,                \
      "block third-order intermodulation ranges of the 2.4 GHz channel too")

/** One accessor per property: its value, or std::nullopt if it is unset or does not parse. */
namespace android::sysprop::CorvidWifiProperties {

#define CORVID_WIFI_DECLARE_(type, accessor, ...) std::optional<type> accessor();
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DECLARE_, CORVID_WIFI_DECLARE_)
#undef CORVID_WIFI_DECLARE_

}  // namespace android::sysprop::CorvidWifiProperties

namespace Ursa::OS::Wifi {

/** When a change of a property takes effect. */
enum class PropertyEffect {
    Restart,   ///< at the daemon's next start
    FirstUse,  ///< if it comes before the daemon's first use of the property, else as Restart
    AtOnce,    ///< at the next use
    Both,      ///< at the next use, if the feature was on at the daemon's start
};

enum class PropertyType { Bool, Int, Unsigned };

/** The values that make sense. Only corvid-wifi refuses others; the daemon checks just the type. */
struct PropertyRange {
    int64_t lowest;
    int64_t highest;
    const char* otherwise;  ///< what the daemon does with a value outside
};

namespace PropertyRanges {

inline constexpr PropertyRange kFlag{0, 1, "it takes the default"};
// No band allows more than 30 dBm; a step can be in half dBm.
inline constexpr PropertyRange kStep{0, 60, "it sends it to the driver"};
inline constexpr PropertyRange kChainLimit{0, 30, "it sends it to the driver"};
inline constexpr PropertyRange kSignal{-127, 0, "it compares the signal with it"};
inline constexpr PropertyRange kCount{0, 2147483647, "it takes it for 4294967296 more"};
inline constexpr PropertyRange kConfig{0, 1, "it logs that, and sends the driver nothing"};
inline constexpr PropertyRange kUlMu{0, 0, "it does not send it"};
inline constexpr PropertyRange kSwitch{0, 1, "it does not send it"};

}  // namespace PropertyRanges

/** A property as it is set, and as the daemon goes by it. */
struct PropertyState {
    const char* name = nullptr;
    PropertyType type = PropertyType::Bool;
    PropertyEffect effect = PropertyEffect::Restart;
    const char* meaning = nullptr;
    PropertyRange range = PropertyRanges::kFlag;
    int64_t fallback = 0;                 ///< the default
    std::optional<std::string> set = {};  ///< its text; nothing when it is not set
    std::optional<int64_t> parsed = {};   ///< nothing also for a text that does not parse
    std::optional<int64_t> inForce = {};  ///< nothing before the daemon has read it

    bool isMalformed() const { return set && !parsed; }
    /** What a read gives now. */
    int64_t value() const { return parsed.value_or(fallback); }
};

}  // namespace Ursa::OS::Wifi

/** One wrapper per property, corvid_wifi_<accessor>(default). The caller owns the default. */
namespace Ursa::OS::Wifi::Sysprop {

#define CORVID_WIFI_DECLARE_(type, accessor, ...) type corvid_wifi_##accessor(type defaultValue);
#define CORVID_WIFI_DECLARE_FLAG_(type, accessor, ...) \
    type corvid_wifi_##accessor(bool defaultValue);
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DECLARE_, CORVID_WIFI_DECLARE_FLAG_)
#undef CORVID_WIFI_DECLARE_
#undef CORVID_WIFI_DECLARE_FLAG_

/**
 * Every property, in the list's order. In force is what a wrapper above returned last, for those
 * that the daemon reads once. This read itself counts for nothing.
 */
std::vector<PropertyState> readStates();

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

#define CORVID_WIFI_DEFINE_(type, accessor, name, ...)                       \
    inline constexpr Property<type> accessor = {"persist.vendor.wifi." name, \
                                                &Sysprop::corvid_wifi_##accessor};
#define CORVID_WIFI_DEFINE_FLAG_(type, accessor, name, ...)                        \
    inline constexpr Property<type, bool> accessor = {"persist.vendor.wifi." name, \
                                                      &Sysprop::corvid_wifi_##accessor};
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DEFINE_, CORVID_WIFI_DEFINE_FLAG_)
#undef CORVID_WIFI_DEFINE_
#undef CORVID_WIFI_DEFINE_FLAG_

}  // namespace property

}  // namespace Ursa::OS::Wifi
