#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Static.h>
#include <hidl/Status.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <hwbinder/ProcessState.h>
#include <utils/StrongPointer.h>

namespace android::hardware {

/**
 * Call before the process is reachable. On a host one thread serves calls, whatever `maxThreads`
 * allows; but a call from inside a callback runs on the thread that waits for that callback.
 * @param callerWillJoin true: the serving thread is the one that calls joinRpcThreadpool.
 */
void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin);

/** Serves calls on this thread. Never returns. */
void joinRpcThreadpool();

/** Whether both are the same object, of this process or of another. */
bool interfacesEqual(const sp<::android::hidl::base::V1_0::IBase>& left,
                     const sp<::android::hidl::base::V1_0::IBase>& right);

/** The binder of `object`: its stub, which is made if needed, or its proxy's binder. */
sp<IBinder> getOrCreateCachedBinder(::android::hidl::base::V1_0::IBase* object);

namespace details {

/** The object of a stub of this process; null for a proxy's binder. */
sp<::android::hidl::base::V1_0::IBase> implementationOf(const sp<IBinder>& binder);

/** Whether `object` says that it implements the interface `descriptor`. */
bool canCastInterface(::android::hidl::base::V1_0::IBase* object, const char* descriptor,
                      bool emitError);

/** See Interface::castFrom. */
template <typename Child, typename Parent, typename Proxy>
Return<sp<Child>> castInterface(const sp<Parent>& parent, const char* descriptor, bool emitError) {
    if (parent == nullptr || !canCastInterface(parent.get(), descriptor, emitError)) {
        return sp<Child>(nullptr);
    }
    if (parent->isRemote()) {
        return sp<Child>(new Proxy(getOrCreateCachedBinder(parent.get())));
    }
    return sp<Child>(dynamic_cast<Child*>(parent.get()));
}

}  // namespace details

/**
 * The implementation if the binder's object is in this process, else a proxy. Null for a null
 * binder, and for an object of this process that has another type.
 */
template <typename Interface, typename Proxy, typename Stub>
sp<Interface> fromBinder(const sp<IBinder>& binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    if (binder->localBinder() == nullptr) {
        return new Proxy(binder);
    }
    return dynamic_cast<Interface*>(details::implementationOf(binder).get());
}

/** Passes a binder's death on to the program's recipient. */
struct hidl_binder_death_recipient : IBinder::DeathRecipient {
    hidl_binder_death_recipient(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
                                const sp<::android::hidl::base::V1_0::IBase>& base)
        : recipient_(recipient), cookie_(cookie), base_(base) {}

    void binderDied(const wp<IBinder>& /*who*/) override {
        recipient_->serviceDied(cookie_, base_);
    }
    const sp<hidl_death_recipient>& getRecipient() const { return recipient_; }

  private:
    const sp<hidl_death_recipient> recipient_;
    const uint64_t cookie_;
    const wp<::android::hidl::base::V1_0::IBase> base_;  // strong would be a cycle
};

// Strings and vectors inside structures, as generated code writes and reads them.

status_t readEmbeddedFromParcel(const hidl_string& string, const Parcel& parcel, size_t parent,
                                size_t parentOffset);
status_t writeEmbeddedToParcel(const hidl_string& string, Parcel* parcel, size_t parent,
                               size_t parentOffset);

template <typename T>
status_t readEmbeddedFromParcel(const hidl_vec<T>& vector, const Parcel& parcel, size_t parent,
                                size_t parentOffset, size_t* handle) {
    const void* elements = nullptr;
    const size_t size = vector.size();  // from the wire: the buffer must be there and match
    if (size > SIZE_MAX / sizeof(T)) {
        return BAD_VALUE;
    }
    const status_t status = parcel.readEmbeddedBuffer(
        size * sizeof(T), handle, parent, parentOffset + hidl_vec<T>::kOffsetOfBuffer, &elements);
    if (status == OK) {
        // Nothing in the received bytes has been constructed, so nothing is released here.
        auto* received = new (const_cast<hidl_vec<T>*>(&vector)) hidl_vec<T>;
        received->setToExternal(static_cast<T*>(const_cast<void*>(elements)), size);
    }
    return status;
}

template <typename T>
status_t writeEmbeddedToParcel(const hidl_vec<T>& vector, Parcel* parcel, size_t parent,
                               size_t parentOffset, size_t* handle) {
    return parcel->writeEmbeddedBuffer(vector.data(), vector.size() * sizeof(T), handle, parent,
                                       parentOffset + hidl_vec<T>::kOffsetOfBuffer);
}

}  // namespace android::hardware
