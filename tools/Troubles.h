#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/Json.h"

namespace Ursa::OS::Wifi::Tools {

/** The features of the report: object by the feature's name, of all its sections. */
std::map<std::string, Json> featuresOf(const Json& report);

/** The interface that a socket's path ends with, or its role ("STA") while it has none. */
std::string nameOf(const Json& socket);

/**
 * What is wrong with the headset, as far as the service's report and the properties that are set
 * (by name) tell: a sentence each, the most likely cause first. Empty if nothing is.
 */
std::vector<std::string> troublesOf(const Json& report,
                                    const std::map<std::string, std::string>& setProperties);

/**
 * Why the service may have refused a call of `method` that was made at `calledAtMs` (monotonic
 * clock) and told no reason: a sentence, or nothing.
 */
std::string whyRefused(const Json& report, const std::string& method, int64_t calledAtMs);

}  // namespace Ursa::OS::Wifi::Tools
