#pragma once

#include <array>
#include <chrono>
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
 * ServiceError when the service goes away, or does not answer within `limit` (0: none): it serves
 * one call at a time, and the one before may be waiting.
 */
std::string askDebug(const ::android::sp<IWifi>& service, const std::vector<std::string>& options,
                     std::chrono::milliseconds limit);

}  // namespace Ursa::OS::Wifi::Tools
