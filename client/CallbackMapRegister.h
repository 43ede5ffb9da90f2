#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "client/CallbackMap.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

/**
 * One subscription to a CallbackMap, held for this object's lifetime. When the destructor has
 * returned, the callback is not running and never runs again.
 */
template <typename T>
class CallbackMapRegister {
  public:
    /**
     * Registers `callback`, which the subscriber owns and keeps in place. A full map is logged as
     * an error; the object then holds handle -1 and unregisters nothing.
     */
    CallbackMapRegister(std::shared_ptr<CallbackMap<T>> map, std::function<void(T)>& callback)
        : map_(std::move(map)), handle_(map_->registerCallback(callback)) {
        if (handle_ == -1) {
            WIFI_LOGE("register CallbackMap failed");
        }
    }

    ~CallbackMapRegister() { map_->unregisterCallback(handle_); }

    CallbackMapRegister(const CallbackMapRegister&) = delete;
    CallbackMapRegister& operator=(const CallbackMapRegister&) = delete;

    /** -1 when the registration failed. */
    int handle() const { return handle_; }

  private:
    const std::shared_ptr<CallbackMap<T>> map_;
    const int handle_;
};

}  // namespace Ursa::OS::Wifi
