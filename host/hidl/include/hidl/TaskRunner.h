#pragma once

#include <functional>

namespace android {
namespace hardware {
namespace details {

/** Runs the oneway calls of an object that lives in the caller's process. */
class TaskRunner {
  public:
    void start(size_t /*limit*/) {}

    /** Runs `task` on this thread: what it calls must return at once anyway. */
    bool push(const std::function<void()>& task) {
        task();
        return true;
    }
};

}  // namespace details
}  // namespace hardware
}  // namespace android
