#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <vendor/corvid/hardware/wifi/1.0/IWifi.h>

#include "service/CorvidWifiManager.h"
#include "service/DebugReport.h"

namespace Ursa::OS::Wifi {
class CorvidWifiClient;
}

namespace vendor::corvid::hardware::wifi::V1_0::implementation {

using ::android::sp;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;

/**
 * The HIDL object: each method looks up a manager, calls it and converts the result. Calls arrive
 * on the HIDL thread; those that a client makes from inside its callback arrive on the thread that
 * waits for that callback. IWifi.hal describes the methods.
 */
class CorvidWifiService : public IWifi {
  public:
    /** Creates the client, unless one is passed, and the managers of all enabled features. */
    explicit CorvidWifiService(std::shared_ptr<Ursa::OS::Wifi::CorvidWifiClient> client = nullptr);

    Return<void> clearScs(int32_t id, clearScs_cb callback) override;
    Return<void> dumpInfo(dumpInfo_cb callback) override;
    Return<void> getP2pInfo(getP2pInfo_cb callback) override;
    Return<void> getStaInfo(getStaInfo_cb callback) override;
    Return<void> isP2pPairedDeviceType(P2pDeviceType type,
                                       isP2pPairedDeviceType_cb callback) override;
    Return<void> registerCorvidWifiManagerCallback(
        const sp<ICorvidWifiManagerCallback>& client,
        registerCorvidWifiManagerCallback_cb callback) override;
    Return<void> setElnaBypass(uint32_t mode, setElnaBypass_cb callback) override;
    Return<void> setMccTimeAllocation(uint32_t value, setMccTimeAllocation_cb callback) override;
    Return<void> setP2pNoa(uint32_t count, uint32_t noaValue1, uint32_t noaValue2,
                           setP2pNoa_cb callback) override;
    Return<void> setP2pPairedDeviceType(P2pDeviceType type,
                                        setP2pPairedDeviceType_cb callback) override;
    Return<int32_t> setScsV4(const ScsProfileV4& profile) override;
    Return<int32_t> setScsV6(const ScsProfileV6& profile) override;
    Return<void> startCsa(uint32_t channel, uint32_t bandwidth, startCsa_cb callback) override;
    Return<void> unregisterCorvidWifiManagerCallback(
        const sp<ICorvidWifiManagerCallback>& client,
        unregisterCorvidWifiManagerCallback_cb callback) override;
    Return<void> updateTxPowerConfig(bool allowed, updateTxPowerConfig_cb callback) override;

    /** Writes the DebugReport into the handle's first descriptor. */
    Return<void> debug(const hidl_handle& handle, const hidl_vec<hidl_string>& options) override;

  private:
    friend class CorvidWifiServiceTestPeer;

    /** Answers code 0 if the manager exists and `call` returns true for it, else code 1. */
    template <typename Manager, typename Callback, typename Call>
    Return<void> answer_(const Callback& callback, Call call);
    /** Returns the result of ScsManager::set(), or -1 without that manager or if it fails. */
    template <typename MakeProfile>
    int32_t setScs_(MakeProfile makeProfile);

    const std::shared_ptr<Ursa::OS::Wifi::CorvidWifiClient> client_;
    Ursa::OS::Wifi::CorvidWifiManager manager_;
    const Ursa::OS::Wifi::DebugReport report_;
};

}  // namespace vendor::corvid::hardware::wifi::V1_0::implementation
