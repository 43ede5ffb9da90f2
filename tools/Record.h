#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "tools/CommandLine.h"
#include "tools/Service.h"
#include "tools/TraceFile.h"

namespace Ursa::OS::Wifi::Tools {

/** What `record` is asked for. */
struct RecordOptions {
    std::string path;   ///< "-" is standard output
    std::string label;  ///< what people call it
    std::chrono::milliseconds interval = std::chrono::seconds(1);
    std::optional<std::chrono::milliseconds> until;  ///< how long; without it, until a signal
    Existing existing = Existing::Refuse;
};

/** Throws UsageError. */
RecordOptions readRecordOptions(const CommandLine& line);

/** How `record` ended. */
enum class RecordEnd {
    Done,       ///< by SIGINT, SIGTERM or the end of the time
    Failed,     ///< the file can't be written; standard error says why
    NoService,  ///< there was no service all the time
};

/**
 * Writes a trace of the link: a sample at each interval, the service's events, its start and its
 * end. It waits for a service that is not there, also for one that comes back. Each sample costs
 * the daemon a SIGNAL_POLL and a netlink dump. A service that hangs is waited for; after a signal
 * only as long as `deadline` allows. Call it on the main thread, once. Throws std::runtime_error.
 */
RecordEnd record(const RecordOptions& options, const Deadline& deadline);

}  // namespace Ursa::OS::Wifi::Tools
