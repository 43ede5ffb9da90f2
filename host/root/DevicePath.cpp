#include "os/DevicePath.h"

#include "HostRoot.h"

namespace Ursa::OS {

std::string devicePath(const std::string& path) { return host::rootedPath(path); }

}  // namespace Ursa::OS
