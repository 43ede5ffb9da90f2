#include "client/WifiClientCallback.h"

#include <utility>

#include "client/CorvidWifiClient.h"
#include "client/TaskHandler.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

WifiClientCallback::WifiClientCallback(std::shared_ptr<CorvidWifiClient> client,
                                       const std::vector<WifiClientCallbackItem>& items)
    : client_(std::move(client)) {
    for (const WifiClientCallbackItem& item : items) {
        auto function = std::make_unique<std::function<void(const std::string&)>>(
            taskHandler<const std::string&>(client_, item.task, Task::Kind::Subscriber,
                                            item.handler));
        const int handle = client_->registerWpaCallback(item.type, *function, item.interfaceType);
        if (handle == -1) {
            WIFI_LOGE("Failed to register callback type:%d socket type:%d",
                      static_cast<int>(item.type), static_cast<int>(item.interfaceType));
            continue;
        }
        registrations_.push_back({item.type, handle, item.interfaceType, std::move(function)});
    }
}

WifiClientCallback::~WifiClientCallback() {
    for (const Registration& registration : registrations_) {
        client_->unregisterWpaCallback(registration.type, registration.handle,
                                       registration.interfaceType);
    }
}

}  // namespace Ursa::OS::Wifi
