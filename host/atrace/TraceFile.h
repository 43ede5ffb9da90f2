#pragma once

#include <cstddef>
#include <ctime>
#include <string>

#include <android-base/unique_fd.h>

#include "TraceEvent.h"

namespace host {

/**
 * A file with a JSON array, complete after each event, so that one is left whenever the program
 * ends. Once it is full it is renamed to the previous file, and a new one begins: the two never
 * hold more than twice the limit. Failures are logged once per file and cost events only. One
 * thread at a time.
 */
class TraceFile {
  public:
    /** `path` is the device's, `limit` is in bytes. Nothing is written yet. */
    TraceFile(std::string path, size_t limit);

    /** Where the file goes when a new one begins. */
    static std::string previousPath(const std::string& path) { return path + ".1"; }

    /**
     * Adds an event. Begins a file first if there is none, if it is full, or if somebody has
     * deleted it; after a failure not before the next second.
     */
    void add(const TraceEvent& event);
    /** Closes the file. The next event begins another one. */
    void close();

  private:
    /** Returns whether there is a file with room for an event. */
    bool prepare_();
    void begin_();
    bool isDeleted_() const;
    void append_(const TraceEvent& event);
    void logFailure_(const char* what);

    const std::string devicePath_;
    const size_t limit_;
    std::string path_;  ///< of the file that was begun last
    android::base::unique_fd fd_;
    size_t end_ = 0;  ///< where the next event goes, over the array's end
    time_t nextTry_ = 0;
    bool failed_ = false;  ///< and logged
};

}  // namespace host
