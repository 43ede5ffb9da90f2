#pragma once

#include <functional>
#include <map>
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

    /** Stores a copy of `listener`. Returns false if one is linked already (logged). */
    bool linkChannelSwitchCallback(Listener& listener);
    void unlinkChannelSwitchCallback();

    /**
     * `channel` is an IEEE 802.11 channel number, `bandwidth` in MHz. Which of the two commands is
     * sent depends on properties read at each call. Returns whether the driver accepted it.
     */
    bool startCsa(unsigned channel, unsigned bandwidth) EXCLUDES(csaMutex_);

  private:
    friend class ChannelSwitchManagerTestPeer;

    bool sendCommandCsP2pEcsa_(unsigned channel, unsigned bandwidth) REQUIRES(csaMutex_);
    bool sendCommandCsP2pCorvid_(unsigned channel, unsigned bandwidth) REQUIRES(csaMutex_);
    void channelSwitchEventHandler_(const std::string& event) REQUIRES(eventMutex_);

    const std::shared_ptr<CorvidWifiClient> client_;
    /** Held until the command is answered, so that requests are sent one by one. */
    RecursiveMutex csaMutex_;
    RelayListener<const ChannelSwitchResult&> listener_;
    /** Held while an event and its listener run, so that the listener gets one at a time. */
    Mutex eventMutex_;
    /** What the last event of each interface told, MHz; 0 for none and for a negative one. */
    std::map<NetInterfaceType, int> frequencies_ GUARDED_BY(eventMutex_);
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
