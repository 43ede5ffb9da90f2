#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace host {

/** One event of a trace, as a JSON object on one line. Allocates nothing. */
class TraceEvent {
  public:
    /** The longest object. */
    static constexpr size_t kMaxSize = 1024;

    static TraceEvent sliceBegin(std::string_view name);
    static TraceEvent sliceEnd();
    static TraceEvent counter(std::string_view name, int64_t value);
    /** What the viewer calls the process. */
    static TraceEvent processName(std::string_view name);

    std::string_view json() const { return {text_.data(), length_}; }

  private:
    /** An event of the calling thread, now, whose object is still open. */
    TraceEvent(char phase, std::string_view name);

    void add_(std::string_view text);
    /** As a JSON string. A byte outside of ASCII becomes the character of that number. */
    void addString_(std::string_view text);

    size_t length_ = 0;
    std::array<char, kMaxSize> text_;
};

}  // namespace host
