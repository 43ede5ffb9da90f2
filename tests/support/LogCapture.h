#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Patience.h"

namespace test {

/**
 * While it lives, collects everything that the process logs through liblog, at every level, instead
 * of printing it. At most one at a time. Thread-safe.
 */
class LogCapture {
  public:
    struct Line {
        int priority;  ///< ANDROID_LOG_*
        std::string tag;
        std::string message;
    };

    LogCapture();

    /** Lines go to standard error again, at the level that was set before. */
    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** Everything logged so far, in order. */
    std::vector<Line> lines() const;

    /** The messages of the lines with this priority, in order. */
    std::vector<std::string> messages(int priority) const;

    /** How many lines are exactly this one. */
    size_t count(int priority, std::string_view message) const;

    /** Waits until a line of exactly this message was logged. Returns false after `timeout`. */
    bool waitFor(std::string_view message, std::chrono::milliseconds timeout = kPatience) const;

    /** Forgets what was logged so far. */
    void clear();
};

}  // namespace test
