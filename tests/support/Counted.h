#pragma once

#include <atomic>

namespace test {

/** Counts how many of them there are. */
class Counted {
  public:
    explicit Counted(std::atomic<int>& count) : count_(count) { ++count_; }
    ~Counted() { --count_; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

  private:
    std::atomic<int>& count_;
};

}  // namespace test
