#define LOG_TAG "hidl"

#include <algorithm>
#include <vector>

#include <hidl/ServiceManagement.h>
#include <log/log.h>

#include "Folder.h"
#include "Process.h"
#include "RemoteProcess.h"
#include "StatusText.h"

namespace android::hardware::details {

using ::android::hidl::base::V1_0::IBase;
using host::hidl::Folder;
using host::hidl::ObjectId;
using host::hidl::Process;

namespace {

/** A name that this process holds, until it ends. */
struct Registration {
    host::hidl::Exports::Pin object;
    base::unique_fd lock;
};

void keep(Registration registration) {
    static Mutex mutex;
    static auto* const registrations = new std::vector<Registration>;
    const Mutex::Autolock lock(mutex);
    registrations->push_back(std::move(registration));
}

bool isValidInstance(const std::string& instance) {
    const auto isAllowed = [](unsigned char c) { return c > ' ' && c < 0x7f && c != '/'; };
    return !instance.empty() && instance.size() <= 64 &&
           std::all_of(instance.begin(), instance.end(), isAllowed);
}

std::string nameOf(const std::string& descriptor, const std::string& instance) {
    return descriptor + "," + instance;
}

status_t registerAs(const std::vector<std::string>& descriptors, const sp<BHwBinder>& binder,
                    const std::string& instance) {
    const Folder folder;
    std::vector<base::unique_fd> locks;
    for (const std::string& descriptor : descriptors) {
        locks.emplace_back();
        const status_t status = folder.takeName(nameOf(descriptor, instance), &locks.back());
        if (status != OK) {
            return status;
        }
    }
    folder.removeDeadEndpoints();
    Process& process = Process::self();
    if (!process.server().openEndpoint()) {
        return NO_INIT;
    }
    for (base::unique_fd& lock : locks) {
        auto object = process.exports().pin(binder);
        const status_t status = Folder::writeService(lock.get(), {process.id(), object.object()});
        if (status != OK) {
            return status;
        }
        keep({std::move(object), std::move(lock)});
    }
    return OK;
}

}  // namespace

status_t registerAsServiceInternal(const sp<IBase>& object, const std::string& instance) {
    const sp<IBinder> binder = getOrCreateCachedBinder(object.get());
    if (binder == nullptr || binder->localBinder() == nullptr || !isValidInstance(instance)) {
        ALOGE("Can't register as \"%s\": not a name for an object of this process",
              instance.c_str());
        return BAD_VALUE;
    }
    std::vector<std::string> descriptors;
    object
        ->interfaceChain([&](const hidl_vec<hidl_string>& chain) {
            for (const hidl_string& name : chain) {
                if (name != IBase::descriptor) {
                    descriptors.push_back(name);
                }
            }
        })
        .assertOk();
    const status_t status = registerAs(descriptors, binder->localBinder(), instance);
    if (status != OK) {
        ALOGE("Can't register %s \"%s\" in %s: %s",
              descriptors.empty() ? "an object" : descriptors.front().c_str(), instance.c_str(),
              Folder::currentPath().c_str(),
              status == ALREADY_EXISTS   ? "a live process has that name"
              : status == NAME_NOT_FOUND ? "there is no such folder"
                                         : host::hidl::statusText(status).c_str());
    }
    return status;
}

sp<IBinder> findService(const std::string& descriptor, const std::string& instance) {
    ObjectId id{};
    if (!isValidInstance(instance) || !Folder().readService(nameOf(descriptor, instance), &id)) {
        return nullptr;
    }
    if (id.process != Process::self().id()) {
        const auto owner = Process::self().remote(id.process);
        return owner->isDead() ? nullptr : sp<IBinder>(owner->proxyOf(id.object));
    }
    return Process::self().objectOf(id);
}

}  // namespace android::hardware::details
