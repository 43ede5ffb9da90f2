#pragma once

#include <functional>
#include <memory>
#include <string>

#include "client/SupplicantParser.h"
#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/support/RelayListener.h"
#include "os/Moment.h"
#include "os/ValueMutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** Relays regulatory-domain changes from either socket to one listener, on the listener thread. */
class RegdomManager : public FeatureManager {
  public:
    using Listener = std::function<void(const RegdomUpdatedResult&)>;

    explicit RegdomManager(std::shared_ptr<CorvidWifiClient> client);
    ~RegdomManager() override;

    /** Stores a copy of `listener`. Returns false if one is linked already (logged). Any thread. */
    bool linkRegdomUpdatedCallback(Listener& listener);
    /** Waits until the listener is not running on another thread. Any thread. */
    void unlinkRegdomUpdatedCallback();

    StateTree describe() const override;

  private:
    void onRegdomUpdated(const std::string& event);

    /** The last regulatory change that parsed. */
    struct Last {
        RegdomUpdatedResult result;
        Moment at;
    };

    const std::shared_ptr<CorvidWifiClient> client_;
    mutable ValueMutexBase<Last, std::mutex> last_;
    RelayListener<const RegdomUpdatedResult&> listener_;
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
