#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/support/ResourceAllocator.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** A downlink stream to prioritise, from the remote host to the headset. */
struct ScsProfile {
    uint32_t ipVersion = 0;   ///< 0 = IPv4, 1 = IPv6
    std::string localIp;      ///< headset's address, dotted decimal
    uint32_t localPort = 0;   ///< above 65535 is sent as 0
    std::string remoteIp;     ///< remote host's address, dotted decimal
    uint32_t remotePort = 0;  ///< above 65535 is sent as 0
    uint32_t reserved = 0;
    uint8_t dscp = 0;
    uint8_t protocol = 0;  ///< IP protocol number
};

/** An SCS Request action frame. */
struct requestFrame {
    static constexpr size_t kMaxSize = 55;

    uint64_t size = 0;  ///< bytes in use
    std::array<uint8_t, kMaxSize> bytes = {};
};

/**
 * Asks the access point to prioritise streams (IEEE 802.11 Stream Classification Service). Every
 * request uses the same SCSID; the access point's response is not read. set() and clear() run on
 * the HIDL thread. A disconnection (listener thread) removes all profiles, including one whose
 * set() is still running.
 */
class ScsManager : public FeatureManager {
  public:
    explicit ScsManager(std::shared_ptr<CorvidWifiClient> client);
    ~ScsManager() override;

    /**
     * Returns the profile's id, 0 or more; -1 for anything but IPv4 or if no id is left; -2 if the
     * frame could not be built or sent. `profile.localIp` becomes the station's address.
     */
    int set(ScsProfile& profile);

    /** Returns false for an unknown id, or if the frame could not be sent. */
    bool clear(int id);

    /** Sends a request that adds `profile`, or a remove request for null. */
    bool constructAndSendRequestFrame(ScsProfile* profile);

    /** Fills in the fields of the link and the profile. Returns false if not associated. */
    bool constructRequestFrameV4(ScsProfile* profile, requestFrame& frame);

    /**
     * Has the kernel transmit the first `frame.size` bytes. Returns false if it rejects them, or
     * for more than requestFrame::kMaxSize. Aborts for UINT64_MAX, as gsl::span does when its size
     * precondition fails.
     */
    bool sendRequestFrameToDriver(const requestFrame& frame);

    StateTree describe() const override;

  private:
    void registerCallbacks();

    const std::shared_ptr<CorvidWifiClient> client_;
    ResourceAllocator<ScsProfile> profiles_;
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
