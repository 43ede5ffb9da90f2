#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <utils/StrongPointer.h>

#include "tools/Methods.h"

namespace Ursa::OS::Wifi::Tools {

/**
 * What the service's debug call writes for `options` ("--json", names of sections). Throws
 * ServiceError when the service goes away, or does not answer within `limit`: it serves one call
 * at a time, and the one before may be waiting.
 */
std::string askDebug(const ::android::sp<IWifi>& service, const std::vector<std::string>& options,
                     std::chrono::milliseconds limit);

}  // namespace Ursa::OS::Wifi::Tools
