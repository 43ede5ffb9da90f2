#pragma once

#include <cstdio>
#include <string>

namespace Ursa::OS::Wifi::Tools {

/** To standard output; main() notices at the end if it can't be written. */
inline void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

}  // namespace Ursa::OS::Wifi::Tools
