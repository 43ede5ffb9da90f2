#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <utils/Mutex.h>

namespace android::hardware::details {

// The kind of a generated class, as its nested type `_hidl_tag`.
struct i_tag {};     // an interface
struct bnhw_tag {};  // the stub that receives calls from other processes
struct bphw_tag {};  // the proxy of another process's object
struct bs_tag {};    // the wrapper of an object of the same process

/** Logs at FATAL and aborts. */
[[noreturn]] void logAlwaysFatal(const char* message);

/** The pid in IBase.getDebugInfo. */
int32_t getPidIfSharable();

/** Whether IBase.getDebugInfo gives an object's address. */
inline bool debuggable() { return false; }

/** A pointer that takes 8 bytes in every process, so that structures have one layout. */
template <typename T>
struct alignas(8) hidl_pointer {
    hidl_pointer() = default;
    hidl_pointer(T* pointer) : pointer_(pointer) {}  // NOLINT(google-explicit-constructor)
    hidl_pointer& operator=(T* pointer) {
        pointer_ = pointer;
        return *this;
    }
    operator T*() const { return pointer_; }  // NOLINT(google-explicit-constructor)
    T* get() const { return pointer_; }

  private:
    T* pointer_ = nullptr;
#if UINTPTR_MAX == UINT32_MAX
    [[maybe_unused]] uint32_t otherHalf_ = 0;
#endif
};

/** A thread-safe map. */
template <typename Key, typename Value>
class ConcurrentMap {
  public:
    void set(const Key& key, Value value) {
        const Mutex::Autolock lock(mutex_);
        map_[key] = std::move(value);
    }

    /** The value of `key`, or `otherwise` when there is none. */
    Value get(const Key& key, const Value& otherwise) const {
        const Mutex::Autolock lock(mutex_);
        const auto entry = map_.find(key);
        return entry == map_.end() ? otherwise : entry->second;
    }

    void erase(const Key& key) {
        const Mutex::Autolock lock(mutex_);
        map_.erase(key);
    }

  private:
    mutable Mutex mutex_;
    std::map<Key, Value> map_ GUARDED_BY(mutex_);
};

/**
 * A process-wide object that is made at its first use and never destroyed: generated code uses it
 * during static initialisation and at the process's exit.
 */
template <typename T>
struct NeverDestroyed {
    T* operator->() const {
        static T* const object = new T;
        return object;
    }
};

/** Base of generated interfaces. On the device it records calls. */
struct HidlInstrumentor {
    HidlInstrumentor(const std::string& /*package*/, const std::string& /*interface*/) {}
    virtual ~HidlInstrumentor() = default;
    void configureInstrumentation(bool /*log*/ = true) {}
};

}  // namespace android::hardware::details
