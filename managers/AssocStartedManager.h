#pragma once

#include <functional>
#include <memory>
#include <string>

#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/support/RelayListener.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Tells one listener that a P2P interface has started to associate. The supplicant reports that on
 * the station's socket, with the interface's name. Runs on the listener thread.
 */
class AssocStartedManager : public FeatureManager {
  public:
    using Listener = std::function<void()>;

    explicit AssocStartedManager(std::shared_ptr<CorvidWifiClient> client);
    ~AssocStartedManager() override;

    /** Stores a copy of `listener`. Returns false if one is linked already (logged). Any thread. */
    bool linkAssocStartedCallback(Listener& listener);
    /** Waits until the listener is not running on another thread. Any thread. */
    void unlinkAssocStartedCallback();

  private:
    void onAssocStarted(const std::string& event);

    const std::shared_ptr<CorvidWifiClient> client_;
    RelayListener<> listener_;
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
