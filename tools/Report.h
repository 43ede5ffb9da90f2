#pragma once

#include <string>
#include <vector>

#include "tools/CommandLine.h"
#include "tools/Json.h"
#include "tools/Methods.h"

namespace Ursa::OS::Wifi::Tools {

/**
 * The service's report on itself, all of it or the named sections. Throws ServiceError when the
 * service goes away or writes something else.
 */
Json askReport(const ::android::sp<IWifi>& service, const std::vector<std::string>& sections = {});

/** "0.3 s", "12 s", "4 min", "2 h", "3 days" */
std::string durationText(int64_t milliseconds);
/** A moment of the report: "12 s ago", or "never". */
std::string agoText(const Json& moment);
/** How long ago a moment of the report was, in milliseconds; -1 for never. */
int64_t agoMs(const Json& moment);

}  // namespace Ursa::OS::Wifi::Tools
