#pragma once

#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android::hardware {

/** This process's part in calls between processes. */
class ProcessState : public virtual RefBase {
  public:
    static sp<ProcessState> self();

    /** Starts the thread that serves calls, unless there is one or the program is to join. */
    void startThreadPool();
};

}  // namespace android::hardware
