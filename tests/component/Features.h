#pragma once

#include <string>
#include <vector>

namespace component {

/** The switches of the features that are off by default, without "persist.vendor.wifi.". */
inline constexpr const char* kSwitches[] = {
    "cmd.cs.p2p.corvid",       "cmd.elna.bypass.mode",   "cmd.noa.p2p",        "cmd.mcc.quota",
    "devparams.enable",        "frequency.block.enable", "mipiclock.enable",   "scs.enable",
    "txchain.enable.p2p",      "txpower.enable.sta",     "txpower.enable.p2p", "telemetry.enable",
    "powerjump.detect.enable",
};

/** The lines of a scenario that switch a feature on. */
inline std::string switchOn(const std::string& name) {
    return "property persist.vendor.wifi." + name + " true";
}

/** The lines of a scenario that switch everything on. */
inline std::vector<std::string> everythingOn() {
    std::vector<std::string> lines;
    for (const char* name : kSwitches) {
        lines.push_back(switchOn(name));
    }
    return lines;
}

}  // namespace component
