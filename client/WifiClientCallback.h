#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/NetInterfaceType.h"
#include "client/WifiClientCallbackType.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** One subscription to a supplicant event. */
struct WifiClientCallbackItem {
    WifiClientCallbackType type;
    /** The socket that delivers the event. */
    NetInterfaceType interfaceType;
    /** The handler's name in the task map, for example "TxPowerManager.onP2pStarted". */
    std::string task;
    /** Receives the event's text after its prefix, on the listener thread. */
    std::function<void(const std::string&)> handler;
};

/**
 * A manager's subscriptions to supplicant events, held for this object's lifetime. When the
 * destructor has returned, none of the handlers is running and none runs again.
 */
class WifiClientCallback {
  public:
    /** Registers the items in order. A refused one is logged as an error and left out. */
    WifiClientCallback(std::shared_ptr<CorvidWifiClient> client,
                       const std::vector<WifiClientCallbackItem>& items);

    /** Unregisters in the order of registration. Must not run inside one of the handlers. */
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
        /** On the heap, because a registered function must not move. */
        std::unique_ptr<std::function<void(const std::string&)>> function;
    };

    const std::shared_ptr<CorvidWifiClient> client_;
    std::vector<Registration> registrations_;
};

}  // namespace Ursa::OS::Wifi
