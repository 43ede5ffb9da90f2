#pragma once

#include <mutex>

#include <android-base/thread_annotations.h>

namespace host {
namespace hidl {

/** std::mutex, known to clang's thread-safety analysis. */
class CAPABILITY("mutex") Mutex {
  public:
    void lock() ACQUIRE() { mMutex.lock(); }
    void unlock() RELEASE() { mMutex.unlock(); }

  private:
    std::mutex mMutex;
};

/** Holds a Mutex for a scope. */
class SCOPED_CAPABILITY Lock {
  public:
    explicit Lock(Mutex& mutex) ACQUIRE(mutex) : mMutex(mutex) { mMutex.lock(); }
    ~Lock() RELEASE() { mMutex.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    Mutex& mMutex;
};

}  // namespace hidl
}  // namespace host
