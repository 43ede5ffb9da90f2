#pragma once

#include <string_view>

namespace Ursa::OS::Wifi {

constexpr bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace Ursa::OS::Wifi
