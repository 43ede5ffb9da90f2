#pragma once

#include <string>
#include <string_view>

namespace sim {

/**
 * What the daemon would pass over in silence when the property `name` is set to `value`: a name
 * that is none of its own but nearly one, or a value that it can't parse. Empty if all is well.
 */
std::string propertyWarning(std::string_view name, const std::string& value);

}  // namespace sim
