#pragma once

#include <string>

namespace Ursa::OS::Wifi {

/** Which daemon this is. */
struct BuildInfo {
    const char* version;   ///< of the interface that it serves, and the daemon's own last part
    std::string commit;    ///< on the device the image's build number; "unknown" without either
    const char* platform;  ///< "device" or "host"

    static BuildInfo ofProcess();
};

}  // namespace Ursa::OS::Wifi
