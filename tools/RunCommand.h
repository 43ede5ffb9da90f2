#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Ursa::OS::Wifi::Tools {

/** How a command went. */
struct CommandResult {
    std::string output;   ///< of both outputs, up to the size that was allowed
    std::string failure;  ///< why it is not all there; empty if it is
};

/**
 * Runs the program (looked for in PATH) with the words behind it, without input. It is killed after
 * `limit`, and when it writes more than `size` bytes. Blocks until then.
 */
CommandResult runCommand(const std::vector<std::string>& words, size_t size,
                         std::chrono::milliseconds limit);

}  // namespace Ursa::OS::Wifi::Tools
