#include "os/DevicePath.h"

namespace Ursa::OS {

std::string devicePath(const std::string& path) { return path; }

}  // namespace Ursa::OS
