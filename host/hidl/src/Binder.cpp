#define LOG_TAG "hidl"

// What generated code and programs call: stubs, proxies and the serving thread.

#include <string>

#include <android/hidl/base/1.0/BnHwBase.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/Static.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/IPCThreadState.h>
#include <hwbinder/ProcessState.h>
#include <log/log.h>

#include "Folder.h"
#include "Process.h"

namespace android::hardware {

using ::android::hidl::base::V1_0::BnHwBase;
using ::android::hidl::base::V1_0::IBase;

status_t BHwBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags,
                             TransactCallback callback) {
    return onTransact(code, data, reply, flags, std::move(callback));
}

status_t BHwBinder::linkToDeath(const sp<DeathRecipient>& /*recipient*/) {
    return INVALID_OPERATION;
}

status_t BHwBinder::unlinkToDeath(const sp<DeathRecipient>& /*recipient*/) {
    return INVALID_OPERATION;
}

sp<ProcessState> ProcessState::self() {
    static auto* const self = new sp<ProcessState>(new ProcessState);
    return *self;
}

void ProcessState::startThreadPool() { host::hidl::Process::self().server().start(); }

IPCThreadState* IPCThreadState::self() {
    static auto* const self = new IPCThreadState;  // has no state of its own
    return self;
}

pid_t IPCThreadState::getCallingPid() const {
    const host::hidl::Connection* connection = host::hidl::Process::connectionOfCall();
    return connection == nullptr ? 0 : host::hidl::peerPid(connection->fd());
}

void configureRpcThreadpool(size_t /*maxThreads*/, bool callerWillJoin) {
    if (callerWillJoin) {
        host::hidl::Process::self().server().expectJoin();
    }
}

void joinRpcThreadpool() { host::hidl::Process::self().server().join(); }

sp<IBinder> getOrCreateCachedBinder(IBase* object) {
    if (object == nullptr) {
        return nullptr;
    }
    if (object->isRemote()) {
        const auto* proxy = dynamic_cast<BpHwRefBase*>(object);
        return proxy == nullptr ? nullptr : proxy->remote();
    }
    return details::gBnMap->getOrCreate(object);
}

bool interfacesEqual(const sp<IBase>& left, const sp<IBase>& right) {
    if (left == right) {
        return true;
    }
    if (left == nullptr || right == nullptr || !left->isRemote() || !right->isRemote()) {
        return false;
    }
    return getOrCreateCachedBinder(left.get()) == getOrCreateCachedBinder(right.get());
}

namespace details {

const NeverDestroyed<StubMap> gBnMap{};
const NeverDestroyed<ConcurrentMap<wp<RefBase>, SchedPrio>> gServicePrioMap{};
const NeverDestroyed<ConcurrentMap<wp<RefBase>, bool>> gServiceSidMap{};

BnConstructorMap& getBnConstructorMap() {
    static auto* const map = new BnConstructorMap;
    return *map;
}

BsConstructorMap& getBsConstructorMap() {
    static BsConstructorMap map;
    return map;
}

sp<BHwBinder> StubMap::getOrCreate(IBase* object) {
    std::string descriptor;
    object->interfaceDescriptor([&](const hidl_string& name) { descriptor = name; }).assertOk();
    const BnConstructor construct = getBnConstructorMap().get(descriptor, nullptr);

    const Mutex::Autolock lock(mutex_);
    wp<BHwBinder>& known = stubs_[object];
    sp<BHwBinder> stub = known.promote();
    if (stub == nullptr && construct != nullptr) {
        stub = construct(static_cast<void*>(object))->localBinder();
        known = stub;
    }
    return stub;
}

void StubMap::eraseIfEqual(IBase* object, BHwBinder* stub) {
    const Mutex::Autolock lock(mutex_);
    const auto entry = stubs_.find(object);
    if (entry != stubs_.end() && entry->second.unsafe_get() == stub) {
        stubs_.erase(entry);
    }
}

sp<IBase> implementationOf(const sp<IBinder>& binder) {
    auto* stub = dynamic_cast<BnHwBase*>(binder->localBinder());
    return stub == nullptr ? nullptr : stub->getImpl();
}

bool canCastInterface(IBase* object, const char* descriptor, bool emitError) {
    bool found = false;
    const Return<void> result = object->interfaceChain([&](const hidl_vec<hidl_string>& chain) {
        for (const hidl_string& name : chain) {
            found = found || name == descriptor;
        }
    });
    if (!result.isOk() && emitError) {
        ALOGE("Can't tell whether an object is a %s: %s", descriptor, result.description().c_str());
    }
    return found;
}

}  // namespace details
}  // namespace android::hardware
