#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <vendor/corvid/hardware/wifi/1.0/ICorvidWifiManagerCallback.h>

namespace Ursa::OS::Wifi {

/**
 * A client's callback in the test's own process. It keeps what it is told, and who wants to be told
 * of its death. Any thread may call it; a test sets it up before that.
 */
class FakeClient : public ::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback {
  public:
    using Recipient = ::android::sp<::android::hardware::hidl_death_recipient>;
    template <typename T>
    using Return = ::android::hardware::Return<T>;

    Return<void> onChannelSwitch(int32_t frequency, int32_t width, bool isP2p) override {
        return call_("onChannelSwitch " + std::to_string(frequency) + " " + std::to_string(width) +
                     (isP2p ? " P2P" : " STA"));
    }
    Return<void> onAssocStarted() override { return call_("onAssocStarted"); }
    Return<void> onRegdomUpdated(const ::android::hardware::hidl_string& init,
                                 const ::android::hardware::hidl_string& type,
                                 const ::android::hardware::hidl_string& alpha2) override {
        return call_("onRegdomUpdated " + std::string(init) + " " + std::string(type) + " " +
                     std::string(alpha2));
    }

    Return<bool> linkToDeath(const Recipient& recipient, uint64_t /*cookie*/) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        recipients_.push_back(recipient);
        if (linkFails) {
            return ::android::hardware::Status::fromStatusT(::android::DEAD_OBJECT);
        }
        return true;
    }
    Return<bool> unlinkToDeath(const Recipient& recipient) override {
        if (onUnlink) {
            onUnlink();
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        for (auto entry = recipients_.begin(); entry != recipients_.end(); ++entry) {
            if (*entry == recipient) {
                recipients_.erase(entry);
                return true;
            }
        }
        return false;
    }

    /** Notifies the death recipients. */
    void die() {
        for (const Recipient& recipient : recipients()) {
            recipient->serviceDied(0, this);
        }
    }

    std::vector<Recipient> recipients() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return recipients_;
    }
    /** Each call so far as its method and arguments. */
    std::vector<std::string> calls() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }

    bool linkFails = false;          ///< linkToDeath is told of a dead process
    bool callsFail = false;          ///< calls do not arrive
    std::function<void()> onCall;    ///< runs in each call
    std::function<void()> onUnlink;  ///< runs in unlinkToDeath

  private:
    Return<void> call_(const std::string& text) {
        if (onCall) {
            onCall();
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back(text);
        if (callsFail) {
            return ::android::hardware::Status::fromStatusT(::android::DEAD_OBJECT);
        }
        return ::android::hardware::Void();
    }

    mutable std::mutex mutex_;
    std::vector<Recipient> recipients_;
    std::vector<std::string> calls_;
};

}  // namespace Ursa::OS::Wifi
