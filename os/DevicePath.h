#pragma once

#include <cstdlib>
#include <string>

namespace Ursa::OS {

/**
 * Where an absolute path of the device is found. On the device that is the path itself; in a host
 * build the environment variable CORVID_WIFI_ROOT may name a folder that stands for "/".
 */
inline std::string devicePath(const std::string& path) {
#ifdef __ANDROID__
    return path;
#else
    const char* root = std::getenv("CORVID_WIFI_ROOT");
    std::string rooted = root != nullptr ? root : "";
    while (!rooted.empty() && rooted.back() == '/') {
        rooted.pop_back();
    }
    return rooted + path;
#endif
}

}  // namespace Ursa::OS
