#pragma once

#include <sched.h>

#include <hidl/HidlInternal.h>
#include <hwbinder/IBinder.h>
#include <utils/RefBase.h>

#ifndef SCHED_NORMAL
#define SCHED_NORMAL SCHED_OTHER  // the kernel's name, which generated code uses
#endif

namespace android {
namespace hardware {
namespace details {

/** A thread's scheduling while it serves an object. Not changed on a host. */
struct SchedPrio {
    int sched_policy;
    int prio;
};

/** Finds the stub that other processes call for an object of this process. */
class StubMap {
  public:
    using IBase = ::android::hidl::base::V1_0::IBase;

    /** The object's stub, which is made when there is none; null when it is of no known type. */
    sp<BHwBinder> getOrCreate(IBase* object);

    /** Called by the stub's destructor. */
    void eraseIfEqual(IBase* object, BHwBinder* stub);

  private:
    std::mutex mMutex;
    std::map<IBase*, wp<BHwBinder>> mStubs;
};

extern const Lasting<StubMap> gBnMap;
extern const Lasting<ConcurrentMap<wp<RefBase>, SchedPrio>> gServicePrioMap;
extern const Lasting<ConcurrentMap<wp<RefBase>, bool>> gServiceSidMap;

/** Makes the stub of an interface given as the descriptor that the map's key is. */
using BnConstructor = std::function<sp<IBinder>(void*)>;
using BnConstructorMap = ConcurrentMap<std::string, BnConstructor>;
BnConstructorMap& getBnConstructorMap();

/** Wrappers for objects of the same process are not needed on a host; none is kept. */
struct BsConstructorMap {
    template <typename Constructor>
    void set(const std::string& /*descriptor*/, const Constructor& /*constructor*/) {}
    void erase(const std::string& /*descriptor*/) {}
};
BsConstructorMap& getBsConstructorMap();

}  // namespace details
}  // namespace hardware
}  // namespace android
