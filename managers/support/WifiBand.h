#pragma once

namespace Ursa::OS::Wifi {

/** From here on, MHz, a frequency counts as 5 GHz or above; below it, as 2.4 GHz. */
constexpr int kFirst5GhzFrequency = 3000;

}  // namespace Ursa::OS::Wifi
