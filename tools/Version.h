#pragma once

namespace Ursa::OS::Wifi::Tools {

inline constexpr char kVersion[] = "1.0.0";

}  // namespace Ursa::OS::Wifi::Tools
