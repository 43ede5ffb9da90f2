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
 * Registers a callback and writes {"event":"registered"}, then each event as a line of JSON, to
 * `out`, until SIGINT, SIGTERM or the service's death. Each line is flushed. A second signal of the
 * same kind ends the process at once, even if the service hangs; so does `deadline`, which runs
 * during each call of the service. If the reader of `out` closes it, SIGPIPE ends the process after
 * the callback is unregistered.
 *
 * Call it on the main thread, once. Events arrive on a thread of the HIDL runtime. Throws
 * ServiceError if the service dies before the callback is registered.
 */
MonitorEnd monitor(const ::android::sp<IWifi>& service, std::FILE* out, const Deadline& deadline,
                   const MonitorOptions& options = {});

}  // namespace Ursa::OS::Wifi::Tools
