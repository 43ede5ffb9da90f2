#pragma once

namespace Ursa::OS::Wifi {

/** The daemon's version and origin. */
struct BuildInfo {
    const char* version;
    const char* commit;    ///< of the sources; "unknown" if the build does not set it
    const char* platform;  ///< "device" or "host"

    static BuildInfo ofProcess();
};

}  // namespace Ursa::OS::Wifi
