#pragma once

#include <string>
#include <vector>

#include "tests/support/FeatureSwitches.h"

namespace component {

/** The line of a scenario that sets a switch; `name` is without "persist.vendor.wifi.". */
inline std::string switchOn(const std::string& name) {
    return "property persist.vendor.wifi." + name + " true";
}

/** The lines of a scenario that switch every feature on. */
inline std::vector<std::string> everythingOn() {
    std::vector<std::string> lines;
    for (const std::string& name : test::switchesOfEveryFeature()) {
        lines.push_back("property " + name + " true");
    }
    return lines;
}

}  // namespace component
