#pragma once

namespace Ursa::OS::Wifi {

/** MHz: a frequency counts as 5 GHz or above from here on, as 2.4 GHz below. */
constexpr int kFirst5GhzFrequency = 3000;

}  // namespace Ursa::OS::Wifi
