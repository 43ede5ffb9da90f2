#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "client/NetInterfaceType.h"
#include "client/SupplicantParser.h"
#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/support/RelayListener.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Moves the P2P group to another channel on request (HIDL thread), and relays every reported
 * channel switch to one listener (listener thread). A request and an event may run at the same
 * time.
 */
class ChannelSwitchManager : public FeatureManager {
  public:
    using Listener = std::function<void(const ChannelSwitchResult&)>;

    explicit ChannelSwitchManager(std::shared_ptr<CorvidWifiClient> client);
    ~ChannelSwitchManager() override;

    /** Stores a copy of `listener`. Returns false if one is linked already (logged). Any thread. */
    bool linkChannelSwitchCallback(Listener& listener);
    /** Waits until the listener is not running on another thread. Any thread. */
    void unlinkChannelSwitchCallback();

    /**
     * `channel` is an IEEE 802.11 channel number, `bandwidth` is in MHz. Two properties, read at
     * each call, choose the command: a vendor command or one on the supplicant's socket. Returns
     * whether the driver accepted it.
     */
    bool startCsa(unsigned channel, unsigned bandwidth) EXCLUDES(csaMutex_);

    StateTree describe() const override;

  private:
    friend class ChannelSwitchManagerTestPeer;

    bool sendCommandCsP2pEcsa_(unsigned channel, unsigned bandwidth) REQUIRES(csaMutex_);
    bool sendCommandCsP2pCorvid_(unsigned channel, unsigned bandwidth) REQUIRES(csaMutex_);
    void channelSwitchEventHandler_(const std::string& event) REQUIRES(eventMutex_);

    const std::shared_ptr<CorvidWifiClient> client_;
    /** Held until the command is answered: one request at a time. */
    RecursiveMutex csaMutex_;
    RelayListener<const ChannelSwitchResult&> listener_;
    /** Held while an event's listener runs: one event at a time. */
    Mutex eventMutex_;
    /** Each interface's frequency in its last event, MHz; 0 for none or a negative one. */
    std::array<std::atomic<int>, 2> frequencies_ = {};
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
