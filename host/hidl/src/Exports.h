#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include <hwbinder/IBinder.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

namespace host::hidl {

/**
 * The objects of this process that others may call. An object is kept alive while another process
 * holds it, while a message carries it to one, or while it is a service. Only collect() drops an
 * unused one, because an Acquire for it may still be in a socket's queue. Thread-safe.
 */
class Exports {
  public:
    /** Keeps an object here, for the pin's lifetime. */
    class Pin {
      public:
        Pin() = default;
        Pin(Exports* exports, uint64_t object) : exports_(exports), object_(object) {}
        Pin(Pin&& other) noexcept : exports_(other.exports_), object_(other.object_) {
            other.exports_ = nullptr;
        }
        Pin& operator=(Pin&& other) noexcept;
        ~Pin();

        /** The object's number, which other processes know it by. */
        uint64_t object() const { return object_; }

      private:
        Exports* exports_ = nullptr;
        uint64_t object_ = 0;
    };

    Pin pin(const android::sp<android::hardware::BHwBinder>& binder);

    /** Null for an unknown number. */
    android::sp<android::hardware::BHwBinder> find(uint64_t object);

    /** Counts one more use. Returns false for an unknown number. */
    bool acquire(uint64_t object);

    /** Takes back uses that were counted. */
    void release(uint64_t object, uint32_t uses);

    /** The last moment at which an object became unused; 0 when collect() has nothing to do. */
    uint64_t lastUnused();

    /** Drops the objects unused since `moment`. Call it when all links are read up to then. */
    void collect(uint64_t moment);

  private:
    struct Entry {
        android::sp<android::hardware::BHwBinder> binder;
        uint64_t uses;
        uint64_t unusedSince;  // when uses became 0; counts such moments
    };

    android::Mutex mutex_;
    std::map<uint64_t, Entry> entries_ GUARDED_BY(mutex_);
    std::map<android::hardware::BHwBinder*, uint64_t> numbers_ GUARDED_BY(mutex_);
    std::vector<uint64_t> unused_ GUARDED_BY(mutex_);
    uint64_t lastNumber_ GUARDED_BY(mutex_) = 0;
    uint64_t moments_ GUARDED_BY(mutex_) = 0;
};

}  // namespace host::hidl
