#pragma once

#include <mutex>

#include <android-base/thread_annotations.h>

namespace Ursa::OS::Wifi::Tools {

/** std::mutex, known to clang's thread-safety analysis. */
class CAPABILITY("mutex") Mutex : public std::mutex {
  public:
    void lock() ACQUIRE() { std::mutex::lock(); }
    void unlock() RELEASE() { std::mutex::unlock(); }
};

class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() RELEASE() { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& mutex_;
};

}  // namespace Ursa::OS::Wifi::Tools
