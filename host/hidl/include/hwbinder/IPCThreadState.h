#pragma once

#include <sys/types.h>

namespace android::hardware {

/** What the calling thread serves. */
class IPCThreadState {
  public:
    /** The calling thread's. */
    static IPCThreadState* self();

    /** The process that makes the call which this thread serves; 0 outside of a call. */
    pid_t getCallingPid() const;
};

}  // namespace android::hardware
