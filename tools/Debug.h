#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include <utils/StrongPointer.h>

#include "tools/Methods.h"

namespace Ursa::OS::Wifi::Tools {

/** What the service's report may be asked for by name. */
constexpr std::array<std::string_view, 10> kReportSections = {
    "sta",     "p2p",     "power",      "coex",    "sockets",
    "netlink", "clients", "properties", "history", "threads"};

/**
 * What the service's debug call writes for `options` ("--json", names of sections). Throws
 * ServiceDied when the service goes away. The caller's Deadline limits it.
 */
std::string askDebug(const ::android::sp<IWifi>& service, const std::vector<std::string>& options);

}  // namespace Ursa::OS::Wifi::Tools
