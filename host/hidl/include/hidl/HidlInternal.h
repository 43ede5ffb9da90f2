#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace android {
namespace hardware {
namespace details {

// What a generated class is, told by its nested type `_hidl_tag`.
struct i_tag {};     // an interface
struct bnhw_tag {};  // the stub that receives calls from other processes
struct bphw_tag {};  // the proxy of another process's object
struct bs_tag {};    // the wrapper of an object of the same process

/** Logs at FATAL and aborts. */
[[noreturn]] void logAlwaysFatal(const char* message);

/** The pid that IBase.getDebugInfo tells. */
int32_t getPidIfSharable();

/** Whether IBase.getDebugInfo tells an object's address: never on a host. */
inline bool debuggable() { return false; }

/** A pointer that takes 8 bytes in every process, so that structures have one layout. */
template <typename T>
struct alignas(8) hidl_pointer {
    hidl_pointer() = default;
    hidl_pointer(T* pointer) : mPointer(pointer) {}  // NOLINT(google-explicit-constructor)
    hidl_pointer& operator=(T* pointer) {
        mPointer = pointer;
        return *this;
    }
    operator T*() const { return mPointer; }  // NOLINT(google-explicit-constructor)
    T* get() const { return mPointer; }

  private:
    T* mPointer = nullptr;
    static_assert(sizeof(void*) == 8, "hosts are 64-bit machines");
};

/** A map that any thread may use. */
template <typename Key, typename Value>
class ConcurrentMap {
  public:
    void set(const Key& key, Value value) {
        std::lock_guard<std::mutex> lock(mMutex);
        mMap[key] = std::move(value);
    }

    /** The value of `key`, or `otherwise` when there is none. */
    Value get(const Key& key, const Value& otherwise) const {
        std::lock_guard<std::mutex> lock(mMutex);
        const auto entry = mMap.find(key);
        return entry == mMap.end() ? otherwise : entry->second;
    }

    void erase(const Key& key) {
        std::lock_guard<std::mutex> lock(mMutex);
        mMap.erase(key);
    }

  private:
    mutable std::mutex mMutex;
    std::map<Key, Value> mMap;
};

/**
 * A process-wide object that is made at its first use and never destroyed, because generated code
 * uses it while static objects are still made or already destroyed.
 */
template <typename T>
struct Lasting {
    T* operator->() const {
        static T* const object = new T;
        return object;
    }
};

/** What generated interfaces derive from for recording calls; nothing is recorded on a host. */
struct HidlInstrumentor {
    HidlInstrumentor(const std::string& /*package*/, const std::string& /*interface*/) {}
    virtual ~HidlInstrumentor() = default;
    void configureInstrumentation(bool /*log*/ = true) {}
};

}  // namespace details
}  // namespace hardware
}  // namespace android
