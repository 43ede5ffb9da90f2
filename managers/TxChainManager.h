#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** Restricts P2P to one transmit chain when a group starts, on the listener thread. */
class TxChainManager : public FeatureManager {
  public:
    explicit TxChainManager(std::shared_ptr<CorvidWifiClient> client);
    ~TxChainManager() override;

    /** Enables or disables the restriction for groups that start later. On at first. Any thread. */
    void toggleFeature(bool enable);

    StateTree describe() const override;

  private:
    void onP2pStarted_();
    void setP2pTxChainQcom_(int nTx);

    const std::shared_ptr<CorvidWifiClient> client_;
    std::atomic<bool> enabled_{true};
    std::atomic<int> chains_{-1};  ///< the number of chains set last; -1: none
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
