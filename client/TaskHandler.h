#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "client/CorvidWifiClient.h"
#include "client/Task.h"
#include "os/Trace.h"

namespace Ursa::OS::Wifi {

/**
 * Wraps `handler` so that each call runs in a TaskScope and a trace slice of `task`
 * ("TxPowerManager.onP2pStarted"). If its thread differs from the last call's, it is first noted in
 * the task map.
 */
template <typename T>
std::function<void(T)> taskHandler(std::shared_ptr<CorvidWifiClient> client,
                                   const std::string& task, Task::Kind kind,
                                   std::function<void(T)> handler) {
    return [client = std::move(client), task = &Task::named(task, kind),
            lastThread = std::make_shared<std::atomic<int>>(0),
            handler = std::move(handler)](T value) {
        const int thread = currentThread();
        if (lastThread->load(std::memory_order_relaxed) != thread) {
            client->recordTask(task->name());
            lastThread->store(thread, std::memory_order_relaxed);
        }
        const TraceSlice slice([&]() -> const std::string& { return task->name(); });
        const TaskScope scope(*task);
        handler(value);
    };
}

}  // namespace Ursa::OS::Wifi
