#pragma once

#include <string>

namespace Ursa::OS {

/**
 * Maps an absolute path of the device to the running system. On the device (os/DevicePath.cpp) that
 * is the path itself; a host links host/root/DevicePath.cpp, which prepends the folder named by the
 * environment variable CORVID_WIFI_ROOT, if it is set. Any thread.
 */
std::string devicePath(const std::string& path);

}  // namespace Ursa::OS
