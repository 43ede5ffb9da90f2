#pragma once

#include <map>
#include <string>

namespace Ursa::OS::Wifi::Tools {

/**
 * The properties that are set, of those that the daemon reads, by name. What this process may not
 * read is left away. Any thread.
 */
std::map<std::string, std::string> daemonProperties();

}  // namespace Ursa::OS::Wifi::Tools
