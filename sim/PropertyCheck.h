#pragma once

#include <string>
#include <string_view>

namespace sim {

/**
 * A warning about a setting that the daemon would silently ignore: a `name` that is almost one of
 * its properties, or a `value` that does not parse. Empty if there is none.
 */
std::string propertyWarning(std::string_view name, const std::string& value);

}  // namespace sim
