#pragma once

#include <cstdio>

#include "tools/Methods.h"
#include "tools/Service.h"

namespace Ursa::OS::Wifi::Tools {

/** What the lines hold beside the events. */
struct MonitorOptions {
    bool timestamps = false;  ///< "time" in each line: of the day, in UTC
    bool history = false;     ///< the entries of the service's history, asked twice a second
};

/** How `monitor` ended. */
enum class MonitorEnd {
    Stopped,      ///< by SIGINT or SIGTERM; the callback is unregistered
    Failed,       ///< refused by the service, or the output can't be written; standard error says
    ServiceDied,  ///< after the registration
};

/**
 * Registers a callback and writes {"event":"registered"}, then each event as a flushed line of
 * JSON, to `out`, until SIGINT, SIGTERM or the service's death. A second signal of the same kind
 * ends the process at once; so does `deadline`, which runs during each call. If the reader closes
 * `out`, SIGPIPE ends the process after unregistering. Main thread, once; events arrive on a thread
 * of the HIDL runtime. Throws ServiceError if the service dies before the registration.
 */
MonitorEnd monitor(const ::android::sp<IWifi>& service, std::FILE* out, const Deadline& deadline,
                   const MonitorOptions& options = {});

}  // namespace Ursa::OS::Wifi::Tools
