#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace Ursa::OS::Wifi::Tools {

/** Fields keep the order in which they were set. */
using Json = nlohmann::ordered_json;

/** One line without spaces. Bytes that are not UTF-8 become U+FFFD, so it does not throw. */
inline std::string toLine(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Ursa::OS::Wifi::Tools
