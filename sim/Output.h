#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <utility>

namespace sim {

/**
 * Writes lines to a stream and flushes each. The first failure calls `onLost`, once; later lines
 * are dropped.
 */
class Output {
  public:
    /** Does not own `stream`. `name` is its name in complaint(). */
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
