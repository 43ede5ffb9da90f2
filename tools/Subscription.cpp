#include "tools/Subscription.h"

#include <string>
#include <utility>

namespace Ursa::OS::Wifi::Tools {

using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;
using ::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback;
using ::vendor::corvid::hardware::wifi::V1_0::Status;

namespace {

class EventCallback : public ICorvidWifiManagerCallback {
  public:
    explicit EventCallback(Subscription::OnEvent onEvent) : onEvent_(std::move(onEvent)) {}

    Return<void> onChannelSwitch(int32_t frequency, int32_t width, bool isP2p) override {
        onEvent_({{"event", "onChannelSwitch"},
                  {"frequency", frequency},
                  {"width", width},
                  {"isP2p", isP2p}});
        return Void();
    }

    Return<void> onAssocStarted() override {
        onEvent_({{"event", "onAssocStarted"}});
        return Void();
    }

    Return<void> onRegdomUpdated(const hidl_string& init, const hidl_string& type,
                                 const hidl_string& alpha2) override {
        onEvent_({{"event", "onRegdomUpdated"},
                  {"init", std::string(init)},
                  {"type", std::string(type)},
                  {"alpha2", std::string(alpha2)}});
        return Void();
    }

  private:
    const Subscription::OnEvent onEvent_;
};

class DeathRecipient : public hidl_death_recipient {
  public:
    explicit DeathRecipient(Subscription::OnDeath onDeath) : onDeath_(std::move(onDeath)) {}

    void serviceDied(uint64_t /*cookie*/, const wp<IBase>& /*who*/) override { onDeath_(); }

  private:
    const Subscription::OnDeath onDeath_;
};

}  // namespace

Subscription::Subscription(sp<IWifi> service, OnEvent onEvent, OnDeath onDeath)
    : service_(std::move(service)),
      callback_(new EventCallback(std::move(onEvent))),
      recipient_(new DeathRecipient(std::move(onDeath))) {}

uint32_t Subscription::start() {
    const Return<bool> linked = service_->linkToDeath(recipient_, 0);
    requireAnswer(linked);
    if (!linked) {
        throw ServiceError("the service died before the callback was registered");
    }
    uint32_t code = 0;
    requireAnswer(service_->registerCorvidWifiManagerCallback(
        callback_, [&code](const Status& status) { code = status.code; }));
    return code;
}

std::optional<uint32_t> Subscription::end() {
    uint32_t code = 0;
    const Return<void> unregistered = service_->unregisterCorvidWifiManagerCallback(
        callback_, [&code](const Status& status) { code = status.code; });
    if (!unregistered.isOk()) {
        return std::nullopt;
    }
    const bool unlinked = service_->unlinkToDeath(recipient_).withDefault(false);
    static_cast<void>(unlinked);  // false: it died just now, and nobody needs it any more
    return code;
}

}  // namespace Ursa::OS::Wifi::Tools
