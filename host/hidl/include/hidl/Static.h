#pragma once

#include <sched.h>

#include <hidl/HidlInternal.h>
#include <hwbinder/IBinder.h>
#include <utils/RefBase.h>

#ifndef SCHED_NORMAL
#define SCHED_NORMAL SCHED_OTHER  // the kernel's name, which generated code uses
#endif

namespace android::hardware::details {

/** A thread's scheduling while it serves an object. Not changed on a host. */
struct SchedPrio {
    int sched_policy;
    int prio;
};

/** The stubs of this process's objects. Thread-safe. */
class StubMap {
  public:
    using IBase = ::android::hidl::base::V1_0::IBase;

    /** Makes the stub if there is none. Null if the object's type has no stub. */
    sp<BHwBinder> getOrCreate(IBase* object);

    /** Called by the stub's destructor. */
    void eraseIfEqual(IBase* object, BHwBinder* stub);

  private:
    Mutex mutex_;
    std::map<IBase*, wp<BHwBinder>> stubs_ GUARDED_BY(mutex_);
};

extern const NeverDestroyed<StubMap> gBnMap;
extern const NeverDestroyed<ConcurrentMap<wp<RefBase>, SchedPrio>> gServicePrioMap;
extern const NeverDestroyed<ConcurrentMap<wp<RefBase>, bool>> gServiceSidMap;

/** Makes the stub of an object; the map's key is the descriptor of its interface. */
using BnConstructor = std::function<sp<IBinder>(void*)>;
using BnConstructorMap = ConcurrentMap<std::string, BnConstructor>;
BnConstructorMap& getBnConstructorMap();

/** On the device: wrappers for objects of the same process. */
struct BsConstructorMap {
    template <typename Constructor>
    void set(const std::string& /*descriptor*/, const Constructor& /*constructor*/) {}
    void erase(const std::string& /*descriptor*/) {}
};
BsConstructorMap& getBsConstructorMap();

}  // namespace android::hardware::details
