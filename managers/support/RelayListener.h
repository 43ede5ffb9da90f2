#pragma once

#include <atomic>
#include <functional>
#include <mutex>

#include "os/ValueMutex.h"

namespace Ursa::OS::Wifi {

/**
 * The one listener of a manager that relays events. The manager calls it while holding lock(), so
 * once unlink() has returned, it is not running on another thread. The mutex is recursive: a
 * listener may unlink itself from inside its call. Thread-safe.
 */
template <typename... Args>
class RelayListener {
  public:
    using Function = std::function<void(Args...)>;

    /**
     * Stores a copy. Returns false if one is stored already, without waiting for a running
     * listener. An empty function counts as none.
     */
    bool link(const Function& function) {
        if (linked_) {
            return false;
        }
        const auto stored = function_.lock();
        if (*stored != nullptr) {  // another thread linked one since the check above
            return false;
        }
        *stored = function;
        linked_ = function != nullptr;
        return true;
    }

    /** Waits until the listener is not running on another thread. */
    void unlink() {
        const auto stored = function_.lock();
        *stored = nullptr;
        linked_ = false;
    }

    /**
     * Locks the mutex and gives the listener, which may be empty. Call a copy of it: from inside
     * the call it may unlink, and so destroy, the stored one.
     */
    ValueMutator<Function, std::recursive_mutex> lock() { return function_.lock(); }

  private:
    std::atomic<bool> linked_{false};  ///< whether function_ is set; written under its mutex
    ValueMutexBase<Function, std::recursive_mutex> function_;
};

}  // namespace Ursa::OS::Wifi
