#pragma once

#include <cstdio>
#include <string>

namespace Ursa::OS::Wifi::Tools {

/** Writes to standard output. main() checks for write errors at the end. */
inline void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

}  // namespace Ursa::OS::Wifi::Tools
