#include "config/FeatureSwitches.h"

#include "config/FeatureList.h"

namespace Ursa::OS::Wifi {

bool IsFeatureEnabled(unsigned long feature) {
    if (feature >= kFeatureTable.size()) {
        return true;
    }
    const auto& [first, second] = kFeatureTable[feature].switches;
    return first == nullptr || first->read(false) || (second != nullptr && second->read(false));
}

}  // namespace Ursa::OS::Wifi
