#pragma once

#include <chrono>
#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * Writes a text into a caller's descriptor of any kind. Gives up after `patience` without progress
 * (a pipe that nobody reads), or at once on an error (closed pipe, full disk). Raises no SIGPIPE.
 * Returns whether everything was written. Any thread.
 */
bool writeReport(int descriptor, std::string_view text, std::chrono::milliseconds patience);

}  // namespace Ursa::OS::Wifi
