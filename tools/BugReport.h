#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tools/CommandLine.h"

namespace Ursa::OS::Wifi::Tools {

/** One file of a bug report: what a command prints. */
struct BugReportItem {
    std::string name;
    std::vector<std::string> command;
    size_t size;                      ///< bytes at most
    std::chrono::milliseconds limit;  ///< how long it may take
    /** Run in its place where there is no such program, as on a host. */
    std::vector<std::string> otherwise = {};
};

/** Every file, in the order in which they are made; one for each of the supplicant's sockets now.
 */
std::vector<BugReportItem> bugReportItems();

/**
 * Makes a tar.gz of them, and of a table of contents which says why an item is not all there. It
 * takes no longer than all their limits together, and holds no more than their sizes.
 */
int runBugReport(const CommandLine& line);

}  // namespace Ursa::OS::Wifi::Tools
