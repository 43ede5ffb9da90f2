#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "client/CorvidWifiClient.h"

namespace Ursa::OS::Wifi {

/**
 * Wraps `handler` so that each call first notes `task` ("TxPowerManager.onP2pStarted") and its
 * thread in the task map.
 */
template <typename T>
std::function<void(T)> taskHandler(std::shared_ptr<CorvidWifiClient> client, std::string task,
                                   std::function<void(T)> handler) {
    return [client = std::move(client), task = std::move(task),
            handler = std::move(handler)](T value) {
        client->recordTask(task);
        handler(value);
    };
}

}  // namespace Ursa::OS::Wifi
