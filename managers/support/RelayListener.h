#pragma once

#include <atomic>
#include <functional>
#include <mutex>

#include "os/ValueMutex.h"

namespace Ursa::OS::Wifi {

/**
 * The one listener of a manager that relays events. The manager holds its recursive mutex while the
 * listener runs, so that once unlink() has returned it is not running on another thread. From
 * inside its own call the listener may unlink itself.
 */
template <typename... Args>
class RelayListener {
  public:
    using Function = std::function<void(Args...)>;

    /**
     * Stores a copy. Returns false if one is stored already; does not wait for the mutex if it was
     * there before the call. An empty function counts as none.
     */
    bool link(const Function& function) {
        if (linked_) {
            return false;
        }
        const auto stored = function_.lock();
        if (*stored != nullptr) {  // another thread was faster
            return false;
        }
        *stored = function;
        linked_ = function != nullptr;
        return true;
    }

    void unlink() {
        const auto stored = function_.lock();
        *stored = nullptr;
        linked_ = false;
    }

    /**
     * The listener, which may be empty; no other thread changes it until the result is destroyed.
     * Call a copy of it: from inside the call it may unlink, and so destroy, what is stored here.
     */
    ValueMutator<Function, std::recursive_mutex> lock() { return function_.lock(); }

  private:
    std::atomic<bool> linked_{false};  ///< whether function_ is; written under its mutex
    ValueMutexBase<Function, std::recursive_mutex> function_;
};

}  // namespace Ursa::OS::Wifi
