#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/NetInterfaceType.h"
#include "client/WifiClientCallbackType.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** One subscription that a manager asks for. */
struct WifiClientCallbackItem {
    WifiClientCallbackType type;
    /** Whose socket delivers the event. */
    NetInterfaceType interfaceType;
    /** The handler's name in the task map, where each call is noted before it begins. */
    std::string task;
    /** Receives the event's text. */
    std::function<void(const std::string&)> handler;
};

/**
 * A manager's subscriptions to supplicant events, held for this object's lifetime. When the
 * destructor has returned, none of the handlers is running and none runs again.
 */
class WifiClientCallback {
  public:
    /** Registers the items in order. One that is refused is logged as an error and left out. */
    WifiClientCallback(std::shared_ptr<CorvidWifiClient> client,
                       const std::vector<WifiClientCallbackItem>& items);

    /** Unregisters in the order of registration. Not to be called from one of the handlers. */
    ~WifiClientCallback();

    WifiClientCallback(const WifiClientCallback&) = delete;
    WifiClientCallback& operator=(const WifiClientCallback&) = delete;

    /** How many items are registered. */
    size_t size() const { return registrations_.size(); }

  private:
    struct Registration {
        WifiClientCallbackType type;
        int handle;
        NetInterfaceType interfaceType;
        /** On the heap: a registered function stays at its address. */
        std::unique_ptr<std::function<void(const std::string&)>> function;
    };

    const std::shared_ptr<CorvidWifiClient> client_;
    std::vector<Registration> registrations_;
};

}  // namespace Ursa::OS::Wifi
