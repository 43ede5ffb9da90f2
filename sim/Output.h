#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <utility>

namespace sim {

/**
 * A stream that lines are written to, each flushed. At the first one that can't be written,
 * `onLost` is called, once; what comes later is dropped.
 */
class Output {
  public:
    /** Does not close `stream`. `name` is for the message about it. */
    Output(std::FILE* stream, std::string name, std::function<void()> onLost)
        : stream_(stream), name_(std::move(name)), onLost_(std::move(onLost)) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(const std::string& text);
    /** The errno of the line that could not be written, or 0. */
    int error() const { return error_; }
    /** "cannot write NAME: why" */
    std::string complaint() const;

  private:
    std::FILE* const stream_;
    const std::string name_;
    const std::function<void()> onLost_;
    int error_ = 0;
};

}  // namespace sim
