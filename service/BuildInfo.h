#pragma once

namespace Ursa::OS::Wifi {

/** Which daemon this is. */
struct BuildInfo {
    const char* version;
    const char* commit;    ///< of the sources; "unknown" where the build does not tell
    const char* platform;  ///< "device" or "host"

    static BuildInfo ofProcess();
};

}  // namespace Ursa::OS::Wifi
