#pragma once

// The standard mutexes with clang's thread-safety annotations, so that -Wthread-safety checks who
// locks what. A field names its mutex with GUARDED_BY, a function that expects a lock with
// REQUIRES.

#include <mutex>
#include <shared_mutex>

#include <android-base/thread_annotations.h>

namespace Ursa::OS {

class CAPABILITY("mutex") Mutex : public std::mutex {
  public:
    void lock() ACQUIRE() { std::mutex::lock(); }
    void unlock() RELEASE() { std::mutex::unlock(); }
};

class CAPABILITY("mutex") RecursiveMutex : public std::recursive_mutex {
  public:
    void lock() ACQUIRE() { std::recursive_mutex::lock(); }
    void unlock() RELEASE() { std::recursive_mutex::unlock(); }
};

class CAPABILITY("shared_mutex") SharedMutex : public std::shared_mutex {
  public:
    void lock() ACQUIRE() { std::shared_mutex::lock(); }
    void unlock() RELEASE() { std::shared_mutex::unlock(); }
    void lock_shared() ACQUIRE_SHARED() { std::shared_mutex::lock_shared(); }
    void unlock_shared() RELEASE_SHARED() { std::shared_mutex::unlock_shared(); }
};

/** Holds a mutex, exclusively, for a scope. */
template <typename M>
class SCOPED_CAPABILITY Lock {
  public:
    explicit Lock(M& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Lock() RELEASE() { mutex_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    M& mutex_;
};

using MutexLock = Lock<Mutex>;
using RecursiveMutexLock = Lock<RecursiveMutex>;
using ExclusiveLock = Lock<SharedMutex>;

/** Holds a SharedMutex, shared with other readers, for a scope. */
class SCOPED_CAPABILITY SharedLock {
  public:
    explicit SharedLock(SharedMutex& mutex) ACQUIRE_SHARED(mutex) : mutex_(mutex) {
        mutex_.lock_shared();
    }
    ~SharedLock() RELEASE() { mutex_.unlock_shared(); }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

  private:
    SharedMutex& mutex_;
};

}  // namespace Ursa::OS
