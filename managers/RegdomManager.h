#pragma once

#include <functional>
#include <memory>
#include <string>

#include "client/SupplicantParser.h"
#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/support/RelayListener.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Relays regulatory-domain changes, seen on either socket, to one listener. Events are handled on
 * the listener thread.
 */
class RegdomManager : public FeatureManager {
  public:
    using Listener = std::function<void(const RegdomUpdatedResult&)>;

    explicit RegdomManager(std::shared_ptr<CorvidWifiClient> client);
    ~RegdomManager() override;

    /** Stores a copy of `listener`. Returns false if one is linked already (logged). */
    bool linkRegdomUpdatedCallback(Listener& listener);
    void unlinkRegdomUpdatedCallback();

  private:
    void onRegdomUpdated(const std::string& event);

    const std::shared_ptr<CorvidWifiClient> client_;
    RelayListener<const RegdomUpdatedResult&> listener_;
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
