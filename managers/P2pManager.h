#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "managers/FeatureManager.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** The kind of device at the other end of the P2P group. */
enum class P2pDeviceType : uint32_t {
    NONE = 0,
    HALBERD = 1,
    MIRACAST = 2,
    UNKNOWN = 3,
};

/** Aligned to its size, so that std::atomic<P2pInfo> is lock-free with clang too. */
struct alignas(2 * sizeof(int32_t)) P2pInfo {
    int32_t frequency = -1;  ///< MHz, -1 if unknown
    int32_t bandwidth = -1;  ///< always -1, unknown: no event carries it
};

/** Stores the current P2P group and the paired device. Lock-free; any thread. */
class P2pManager : public FeatureManager {
  public:
    explicit P2pManager(std::shared_ptr<CorvidWifiClient> client);

    void getP2pInfo(P2pInfo& info) const;
    void setP2pInfo(P2pInfo info);

    bool isP2pPairedDeviceType(P2pDeviceType type) const;
    /** Returns false, and stores nothing, for a type above UNKNOWN. */
    bool setP2pPairedDeviceType(P2pDeviceType type);

    bool dumpInfo(std::string& out) override;
    StateTree describe() const override;

  private:
    const std::shared_ptr<CorvidWifiClient> client_;
    /** Assumed to be the companion device until a client says otherwise. */
    std::atomic<P2pDeviceType> pairedDeviceType_{P2pDeviceType::HALBERD};
    std::atomic<P2pInfo> info_{P2pInfo{}};
    static_assert(std::atomic<P2pInfo>::is_always_lock_free);
};

}  // namespace Ursa::OS::Wifi
