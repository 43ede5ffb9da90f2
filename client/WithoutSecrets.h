#pragma once

#include <algorithm>
#include <string_view>

namespace Ursa::OS::Wifi {

/** The part of an event or a command before a network's passphrase or key. */
inline std::string_view withoutSecrets(std::string_view text) {
    return text.substr(0, std::min(text.find(" psk="), text.find(" passphrase=")));
}

}  // namespace Ursa::OS::Wifi
