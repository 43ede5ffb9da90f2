#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Ursa::OS::Wifi::Tools {

/** How a command went. */
struct CommandResult {
    std::string output;      ///< of both outputs, up to the size that was allowed
    std::string failure;     ///< why it is not all there; empty if it is
    bool isMissing = false;  ///< there is no such program
};

/**
 * Runs the program (looked for in PATH) with the words behind it, without input. It is killed after
 * `limit`, when it writes more than `size` bytes, and when `stopFd`, if it is one, has input.
 * Blocks until then, and a second longer for one that can't be killed, which is left.
 */
CommandResult runCommand(const std::vector<std::string>& words, size_t size,
                         std::chrono::milliseconds limit, int stopFd = -1);

}  // namespace Ursa::OS::Wifi::Tools
