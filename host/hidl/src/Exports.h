#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include <hwbinder/IBinder.h>
#include <utils/StrongPointer.h>

#include "Mutex.h"

namespace host {
namespace hidl {

/**
 * The objects of this process that others may call. An object is kept alive here while another
 * process holds it, while it is on its way to one, or while it is registered as a service.
 *
 * An object that nobody uses any more is not dropped at once but by collect(): the word that
 * somebody has begun to hold it may be waiting in a socket. All methods may be called from any
 * thread.
 */
class Exports {
  public:
    /** Keeps an object here, for the pin's lifetime. */
    class Pin {
      public:
        Pin() = default;
        Pin(Exports* exports, uint64_t object) : mExports(exports), mObject(object) {}
        Pin(Pin&& other) noexcept : mExports(other.mExports), mObject(other.mObject) {
            other.mExports = nullptr;
        }
        Pin& operator=(Pin&& other) noexcept;
        ~Pin();

        /** The object's number, which other processes know it by. */
        uint64_t object() const { return mObject; }

      private:
        Exports* mExports = nullptr;
        uint64_t mObject = 0;
    };

    Pin pin(const android::sp<android::hardware::BHwBinder>& binder);

    /** Null for an unknown number. */
    android::sp<android::hardware::BHwBinder> find(uint64_t object);

    /** Counts one more use. False, and nothing done, for an unknown number. */
    bool acquire(uint64_t object);

    /** Takes back `uses` uses of an object that have been counted. */
    void release(uint64_t object, uint32_t uses);

    /** The last moment at which an object became unused; 0 when collect() has nothing to do. */
    uint64_t lastUnused();

    /**
     * Drops the objects that have been unused since `moment` or longer. Only when no message of
     * any link has been left unread since then.
     */
    void collect(uint64_t moment);

    /** Objects kept here; for tests. */
    size_t size();

  private:
    struct Entry {
        android::sp<android::hardware::BHwBinder> binder;
        uint64_t uses;
        uint64_t unusedSince;  // when uses became 0; counts such moments
    };

    Mutex mMutex;
    std::map<uint64_t, Entry> mEntries GUARDED_BY(mMutex);
    std::map<android::hardware::BHwBinder*, uint64_t> mNumbers GUARDED_BY(mMutex);
    std::vector<uint64_t> mUnused GUARDED_BY(mMutex);
    uint64_t mLastNumber GUARDED_BY(mMutex) = 0;
    uint64_t mMoments GUARDED_BY(mMutex) = 0;
};

}  // namespace hidl
}  // namespace host
