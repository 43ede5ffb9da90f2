#pragma once

namespace Ursa::OS::Wifi {

/**
 * Whether the feature with this number (config/FeatureList.h) is switched on, read from the system
 * properties at each call. A switch only ever turns features off: those without one and unknown
 * numbers answer true. Any thread.
 */
bool IsFeatureEnabled(unsigned long feature);

}  // namespace Ursa::OS::Wifi
