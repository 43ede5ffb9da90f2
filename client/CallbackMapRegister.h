#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "client/CallbackMap.h"
#include "client/TaskHandler.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

/**
 * One subscription of a manager to a CallbackMap, held for this object's lifetime. When the
 * destructor has returned, the handler is not running and never runs again.
 */
template <typename T>
class CallbackMapRegister {
  public:
    /**
     * Registers `handler`. Each call is noted as `task` in the task map before it begins. A full
     * map is logged as an error; handle() is then -1 and the handler never runs.
     */
    CallbackMapRegister(std::shared_ptr<CallbackMap<T>> map,
                        std::shared_ptr<CorvidWifiClient> client, const std::string& task,
                        std::function<void(T)> handler)
        : map_(std::move(map)),
          function_(taskHandler<T>(std::move(client), task, Task::Kind::Other, std::move(handler))),
          handle_(map_->registerCallback(function_)) {
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
    std::function<void(T)> function_;
    const int handle_;
};

}  // namespace Ursa::OS::Wifi
