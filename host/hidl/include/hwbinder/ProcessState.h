#pragma once

#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

/** This process's part in calls between processes. */
class ProcessState : public virtual RefBase {
  public:
    static sp<ProcessState> self();

    /**
     * Sees to it that this process serves calls. Unless configureRpcThreadpool has promised a
     * thread that joins, one thread is started at the first call; it ends with the process.
     */
    void startThreadPool();
};

}  // namespace hardware
}  // namespace android
