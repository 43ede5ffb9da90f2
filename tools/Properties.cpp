#include "tools/Properties.h"

#include <cstdint>
#include <string_view>

#include <sys/system_properties.h>

namespace Ursa::OS::Wifi::Tools {

namespace {

/** What the names of the daemon's properties begin with: its own, its log level, its sensors. */
constexpr std::string_view kPrefixes[] = {"persist.vendor.wifi.", "log.tag.CorvidWifi",
                                          "debug.sensors."};

bool isDaemons(std::string_view name) {
    for (const std::string_view prefix : kPrefixes) {
        if (name.substr(0, prefix.size()) == prefix) {
            return true;
        }
    }
    return false;
}

void take(void* cookie, const char* name, const char* value, uint32_t /*serial*/) {
    if (isDaemons(name)) {
        static_cast<std::map<std::string, std::string>*>(cookie)->emplace(name, value);
    }
}

}  // namespace

std::map<std::string, std::string> daemonProperties() {
    std::map<std::string, std::string> properties;
    // It fails when no property can be read: then none is known to be set.
    static_cast<void>(__system_property_foreach(
        [](const prop_info* property, void* cookie) {
            __system_property_read_callback(property, take, cookie);
        },
        &properties));
    return properties;
}

}  // namespace Ursa::OS::Wifi::Tools
