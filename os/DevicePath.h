#pragma once

#include <string>

namespace Ursa::OS {

/**
 * Where an absolute path of the device is found. On the device (os/DevicePath.cpp) that is the path
 * itself; a host links host/root/DevicePath.cpp instead, where the environment variable
 * CORVID_WIFI_ROOT may name a folder that stands for "/". Any thread.
 */
std::string devicePath(const std::string& path);

}  // namespace Ursa::OS
