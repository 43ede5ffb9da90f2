#pragma once

namespace Ursa::OS::Wifi {

/**
 * Returns whether the feature with this number (config/FeatureList.h) is switched on, as the system
 * properties say now. True for a feature without a switch and for an unknown number. Any thread.
 */
bool IsFeatureEnabled(unsigned long feature);

}  // namespace Ursa::OS::Wifi
