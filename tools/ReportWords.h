#pragma once

#include <string>
#include <vector>

#include "tools/CommandLine.h"
#include "tools/Json.h"

// The words that show the service's report on itself.

namespace Ursa::OS::Wifi::Tools {

int runStatus(const CommandLine& line);
int runWatch(const CommandLine& line);
int runHistory(const CommandLine& line);
int runProps(const CommandLine& line);

/** One screen: link, power, group, features, sockets, clients, and the troubles. */
std::string statusText(const Json& report, const std::vector<std::string>& troubles, bool colour);

/** One line for an entry of the history. */
std::string historyLine(const Json& entry);

/** Those of the report's properties whose name has the pattern (or fits it, with * or ?) in it. */
std::vector<Json> propertiesLike(const Json& report, const std::string& pattern);
std::string propertyTable(const std::vector<Json>& properties);

/** Which values make sense for the property. */
std::string valuesOf(const Json& property);
bool isInRange(const Json& property, int64_t value);

/** What the daemon does with a value out of range. */
std::string otherwiseOf(const Json& property);

/** What is allowed in place of `value`, and what the daemon does with that; empty if it is fine. */
std::string wrongWithValue(const Json& property, const std::string& value);

}  // namespace Ursa::OS::Wifi::Tools
