#pragma once

#include <functional>

namespace android::hardware::details {

/** Runs the oneway calls of an object that lives in the caller's process. */
class TaskRunner {
  public:
    void start(size_t /*limit*/) {}

    /** Runs `task` on this thread. */
    bool push(const std::function<void()>& task) {
        task();
        return true;
    }
};

}  // namespace android::hardware::details
