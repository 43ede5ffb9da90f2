#pragma once

#include <chrono>
#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * Writes a text into a caller's descriptor, whatever that is: a pipe that nobody reads is given up
 * after `patience` without progress, a closed one and a full disk at once. Raises no SIGPIPE.
 * Returns whether all of it was written. Any thread.
 */
bool writeReport(int descriptor, std::string_view text, std::chrono::milliseconds patience);

}  // namespace Ursa::OS::Wifi
