#pragma once

#include <chrono>
#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * Writes a text, in pieces, into a caller's descriptor of any kind. Gives up after `patience`
 * without progress (a pipe that nobody reads), after ten times as long in all, or at once on an
 * error (closed pipe, full disk); then nothing more is written. Raises no SIGPIPE. One thread.
 */
class ReportWriter {
  public:
    ReportWriter(int descriptor, std::chrono::milliseconds patience)
        : descriptor_(descriptor),
          patience_(patience),
          end_(std::chrono::steady_clock::now() + 10 * patience) {}

    /** Returns whether this piece and all before it were written. */
    bool write(std::string_view piece);

  private:
    bool writeAll_(std::string_view piece) const;

    const int descriptor_;
    const std::chrono::milliseconds patience_;
    const std::chrono::steady_clock::time_point end_;
    bool isWritten_ = true;
};

}  // namespace Ursa::OS::Wifi
