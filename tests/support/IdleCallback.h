#pragma once

#include <vendor/corvid/hardware/wifi/1.0/ICorvidWifiManagerCallback.h>

namespace test {

/** A client's callback that does nothing. */
class IdleCallback : public ::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback {
  public:
    using Text = ::android::hardware::hidl_string;
    using Done = ::android::hardware::Return<void>;

    Done onChannelSwitch(int32_t, int32_t, bool) override { return ::android::hardware::Void(); }
    Done onAssocStarted() override { return ::android::hardware::Void(); }
    Done onRegdomUpdated(const Text&, const Text&, const Text&) override {
        return ::android::hardware::Void();
    }
};

}  // namespace test
