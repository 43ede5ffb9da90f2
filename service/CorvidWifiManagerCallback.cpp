#include "service/CorvidWifiManagerCallback.h"

#include <algorithm>

#include <hidl/HidlTransportSupport.h>
#include <hwbinder/IPCThreadState.h>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

using ::android::sp;
using ::android::hardware::interfacesEqual;
using ::android::hardware::IPCThreadState;
using ::android::hidl::base::V1_0::IBase;

namespace {

/** A client is registered even if linkToDeath fails; it then stays until it unregisters. */
void ignore(const ::android::hardware::Return<bool>& result) { static_cast<void>(result.isOk()); }

}  // namespace

CorvidWifiManagerCallback::CorvidWifiManagerCallback()
    : deathReceiver_(new ServiceDeathReceiver(
          [this](const ServiceDeathReceiver::Who& who) { onDeath_(who); })) {}

CorvidWifiManagerCallback::~CorvidWifiManagerCallback() {
    {
        MutexLock lock(mutex_);
        for (const sp<ICallback>& callback : callbacks_) {
            ignore(callback->unlinkToDeath(deathReceiver_));
        }
        callbacks_.clear();
    }
    deathReceiver_->disarm();
}

bool CorvidWifiManagerCallback::link(const sp<ICallback>& callback) {
    if (callback == nullptr) {
        return false;
    }
    MutexLock lock(mutex_);
    if (find_(callback) != callbacks_.end()) {
        return false;
    }
    // These may fail for want of memory, and then nothing is linked.
    callbacks_.reserve(callbacks_.size() + 1);
    stats_.add(callback.get(), IPCThreadState::self()->getCallingPid());
    ignore(callback->linkToDeath(deathReceiver_, 0));
    callbacks_.push_back(callback);
    return true;
}

bool CorvidWifiManagerCallback::unlink(const sp<ICallback>& callback) {
    MutexLock lock(mutex_);
    const auto found = find_(callback);
    if (found == callbacks_.end()) {
        return false;
    }
    ignore((*found)->unlinkToDeath(deathReceiver_));
    stats_.remove(found->get());
    callbacks_.erase(found);
    return true;
}

std::vector<sp<CorvidWifiManagerCallback::ICallback>> CorvidWifiManagerCallback::copyCallbacks_() {
    MutexLock lock(mutex_);
    return callbacks_;
}

void CorvidWifiManagerCallback::onDeath_(const ServiceDeathReceiver::Who& who) {
    const sp<IBase> dead = who.promote();
    if (dead == nullptr) {
        return;
    }
    MutexLock lock(mutex_);
    const auto found = find_(dead);
    if (found != callbacks_.end()) {
        WIFI_LOGD("removing dead callback");
        stats_.remove(found->get());
        callbacks_.erase(found);
    }
}

CorvidWifiManagerCallback::Callbacks::iterator CorvidWifiManagerCallback::find_(
    const sp<IBase>& callback) {
    return std::find_if(callbacks_.begin(), callbacks_.end(), [&](const sp<ICallback>& entry) {
        return interfacesEqual(entry, callback);
    });
}

}  // namespace Ursa::OS::Wifi
