#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>

#include "config/CorvidWifiProperties.h"

namespace Ursa::OS::Wifi {

/** The bare name of a class, as in its log lines and in the dump: "StaManager". */
template <typename Type>
constexpr auto typeName() {
    // clang ends the signature with "= Ursa::OS::Wifi::StaManager]"; gcc omits this function's own
    // namespace: "= StaManager]".
    std::string_view name = __PRETTY_FUNCTION__;
    name.remove_suffix(name.size() - name.rfind(']'));
    name.remove_prefix(name.find_last_of(": ") + 1);
    return name;
}

/** One entry of the list below, without its manager's type. */
struct FeatureInfo {
    using Switch = const Property<bool>*;

    std::string_view managerName;      ///< class name, as in the log
    std::string_view dumpLabel;        ///< its line in the dump
    std::array<Switch, 2> switches;    ///< either one switches it on; both null: always on
    bool tellsClients = false;         ///< its events are relayed to the registered clients
    std::string_view section = "sta";  ///< section of the debug report that shows it
};

/** One entry of the list below, with its manager's type. */
template <typename ManagerType>
struct Feature : FeatureInfo {
    using Manager = ManagerType;

    /** On when one of `properties` is true (unset counts as false); without any, always. */
    template <typename... Properties>
    constexpr explicit Feature(const Properties&... properties)
        : FeatureInfo{typeName<Manager>(), typeName<Manager>(), {&properties...}} {}

    /** Sets a dump label that differs from the class name. */
    constexpr Feature labelled(std::string_view label) const {
        Feature changed = *this;
        changed.dumpLabel = label;
        return changed;
    }

    /** Sets the section of the debug report: "sta" (default), "p2p", "power" or "coex". */
    constexpr Feature shownUnder(std::string_view name) const {
        Feature changed = *this;
        changed.section = name;
        return changed;
    }

    /** Marks a feature whose events are relayed to clients. */
    constexpr Feature tellingClients() const {
        Feature changed = *this;
        changed.tellsClients = true;
        return changed;
    }
};

/**
 * The features; the index is the feature's number. Managers are created in this order and destroyed
 * in reverse, and a manager may look up those above it. Add a new one at the end. ("class"
 * forward-declares the manager, because config/ must not include managers/.)
 */
// clang-format off
inline constexpr std::tuple kFeatures{
    /*  0 */ Feature<class StaManager>(),
    /*  1 */ Feature<class P2pManager>().shownUnder("p2p"),
    /*  2 */ Feature<class AssocStartedManager>().shownUnder("p2p").tellingClients(),
    /*  3 */
    Feature<class ChannelSwitchManager>(property::cmd_cs_p2p_corvid, property::cmd_cs_p2p_ecsa)
        .shownUnder("p2p").tellingClients(),
    /*  4 */ Feature<class NoaManager>(property::cmd_noa_p2p).shownUnder("p2p"),
    /*  5 */
    Feature<class MccTimeManager>(property::cmd_mcc_p2p_increase_bw, property::cmd_mcc_quota)
        .shownUnder("p2p"),
    /*  6 */
    Feature<class ElnaBypassManager>(property::cmd_elna_bypass_mode).labelled("ElnaManager"),
    /*  7 */ Feature<class RegdomManager>().tellingClients(),
    /*  8 */ Feature<class ScsManager>(property::scs_enable),
    /*  9 */ Feature<class TxChainManager>(property::txchain_enable_p2p).shownUnder("p2p"),
    /* 10 */
    Feature<class TxPowerManager>(property::txpower_enable_sta, property::txpower_enable_p2p)
        .shownUnder("power"),
    /* 11 */ Feature<class DevParamsManager>(property::devparams_enable),
    /* 12 */
    Feature<class PowerJumpDetectManager>(property::power_jump_detect_enable).shownUnder("power"),
    /* 13 */ Feature<class TelemetryManager>(property::telemetry_enable),
    /* 14 */
    Feature<class CoexManager>(property::frequency_block_enable, property::mipiclock_enable)
        .shownUnder("coex"),
    /* 15 */ Feature<class MipiClockManager>(property::mipiclock_enable).shownUnder("coex"),
    /* 16 */
    Feature<class FrequencyBlockManager>(property::frequency_block_enable).shownUnder("coex"),
};
// clang-format on

/** The same entries without the managers' types. */
inline constexpr auto kFeatureTable = std::apply(
    [](const auto&... feature) { return std::array{static_cast<const FeatureInfo&>(feature)...}; },
    kFeatures);

}  // namespace Ursa::OS::Wifi
