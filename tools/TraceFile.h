#pragma once

#include <string>
#include <string_view>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>
#include <sys/types.h>

#include "tools/Json.h"
#include "tools/Mutex.h"
#include "tools/WakeFd.h"

namespace Ursa::OS::Wifi::Tools {

/** What happens to a file that is there already. */
enum class Existing { Refuse, Overwrite };

/**
 * A trace that grows line by line (docs/trace-format.md). Each line reaches the kernel whole before
 * the call returns; when one can't be written, the file is cut back to its last whole line, and
 * nothing is written any more. Times are taken under the lock, so they never decrease. Thread-safe.
 */
class TraceFile {
  public:
    /** "-" is standard output. Throws std::runtime_error; `failed` wakes when a line is lost. */
    TraceFile(const std::string& path, Existing existing, const WakeFd& failed);

    /** Writes the header, in whose fields the wall time of the start is added. */
    void writeHeader(Json header) EXCLUDES(mutex_);
    /** Writes a record of that type now: the times, then `fields`. */
    void write(std::string_view type, const Json& fields) EXCLUDES(mutex_);

    /** The errno of the line that could not be written, or 0. */
    int error() EXCLUDES(mutex_);

  private:
    void append_(const Json& line) REQUIRES(mutex_);
    /** Cuts the last `size` bytes off, those of a line that is not whole. */
    void takeBack_(off_t size) const REQUIRES(mutex_);

    ::android::base::unique_fd ownFd_;
    const int fd_;
    const WakeFd& failed_;
    Mutex mutex_;
    int error_ GUARDED_BY(mutex_) = 0;
};

}  // namespace Ursa::OS::Wifi::Tools
