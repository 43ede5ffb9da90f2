#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/ResourceAllocator.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** A stream that is to be prioritised, from the far end to the headset. */
struct ScsProfile {
    uint32_t ipVersion = 0;   ///< 0 = IPv4, 1 = IPv6
    std::string localIp;      ///< headset's address, dotted
    uint32_t localPort = 0;   ///< above 65535 counts as 0
    std::string remoteIp;     ///< far end's address, dotted
    uint32_t remotePort = 0;  ///< above 65535 counts as 0
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
 * Asks the access point to prioritise streams (IEEE 802.11 Stream Classification Service): builds
 * the request frame and has the kernel transmit it on the station's interface. Every request uses
 * the same SCSID, and what the access point answers is not read.
 *
 * set() and clear() run on the HIDL thread; a disconnection, on the listener thread, forgets all
 * profiles. A profile that a disconnection meets in the middle of set() may be gone when set()
 * returns its id.
 */
class ScsManager : public FeatureManager {
  public:
    explicit ScsManager(std::shared_ptr<CorvidWifiClient> client);
    ~ScsManager() override;

    /**
     * Returns the profile's id, 0 or more; -1 for anything but IPv4 or when no id is left; -2 when
     * the frame could not be built or sent. `profile.localIp` becomes the station's address.
     */
    int set(ScsProfile& profile);

    /** Returns false for an unknown id, and when the frame could not be sent. */
    bool clear(int id);

    /** Builds and sends the frame that adds `profile`, or for null the one that removes. */
    bool constructAndSendRequestFrame(ScsProfile* profile);

    /** Fills in what depends on the link and the profile. Returns false when not associated. */
    bool constructRequestFrameV4(ScsProfile* profile, requestFrame& frame);

    /**
     * Hands the kernel the first `frame.size` bytes. Returns false when it does not take them, and
     * for more than requestFrame::kMaxSize. The largest 64-bit number there is ends the process,
     * with a message on standard error and in the log.
     */
    bool sendRequestFrameToDriver(const requestFrame& frame);

  private:
    void registerCallbacks();

    const std::shared_ptr<CorvidWifiClient> client_;
    ResourceAllocator<ScsProfile> profiles_;
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
