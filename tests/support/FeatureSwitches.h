#pragma once

#include <string>
#include <vector>

#include "config/FeatureList.h"

namespace test {

/** The whole names of the properties that switch a feature on, in the order of the list. */
inline std::vector<std::string> switchesOf(const Ursa::OS::Wifi::FeatureInfo& feature) {
    std::vector<std::string> names;
    for (const Ursa::OS::Wifi::FeatureInfo::Switch property : feature.switches) {
        if (property != nullptr) {
            names.emplace_back(property->name);
        }
    }
    return names;
}

/**
 * Properties that switch every feature on, each feature as it is mostly used: without those that
 * choose the less common one of two commands.
 */
inline std::vector<std::string> switchesOfEveryFeature() {
    using namespace Ursa::OS::Wifi;
    std::vector<std::string> names;
    for (const FeatureInfo& feature : kFeatureTable) {
        for (const FeatureInfo::Switch property : feature.switches) {
            if (property != nullptr && property != &property::cmd_cs_p2p_ecsa &&
                property != &property::cmd_mcc_p2p_increase_bw) {
                names.emplace_back(property->name);
            }
        }
    }
    return names;
}

}  // namespace test
