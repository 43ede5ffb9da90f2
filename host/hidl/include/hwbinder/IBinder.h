#pragma once

#include <cstdint>
#include <functional>

#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android::hidl::base::V1_0 {
struct IBase;
}

namespace android::hardware {

class Parcel;
class BHwBinder;
class BpHwBinder;

/** Carries calls to an object of this process or of another. */
class IBinder : public virtual RefBase {
  public:
    /** Notified when the process of a linked binder dies. */
    class DeathRecipient : public virtual RefBase {
      public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    /** Sends the reply; generated stubs call it as soon as the reply is complete. */
    using TransactCallback = std::function<void(Parcel&)>;

    /** A flag of transact: no reply is awaited. */
    static constexpr uint32_t FLAG_ONEWAY = 1;

    /**
     * Makes one call. Blocks until the reply is there, unless FLAG_ONEWAY is given.
     * @param reply what the reply is put in; not used for FLAG_ONEWAY.
     * @return OK, DEAD_OBJECT if the object's process is dead, or another error.
     */
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0,
                              TransactCallback callback = nullptr) = 0;

    /** @return OK, or DEAD_OBJECT if the process is dead already. */
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient) = 0;
    /** @return OK, or NAME_NOT_FOUND when it was not linked. */
    virtual status_t unlinkToDeath(const sp<DeathRecipient>& recipient) = 0;

    virtual BHwBinder* localBinder() { return nullptr; }
    virtual BpHwBinder* remoteBinder() { return nullptr; }
};

/** The stub of an object of this process: receives its calls from other processes. */
class BHwBinder : public IBinder {
  public:
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0,
                      TransactCallback callback = nullptr) override;

    // There is no notification of this process's own death.
    status_t linkToDeath(const sp<DeathRecipient>& recipient) override;
    status_t unlinkToDeath(const sp<DeathRecipient>& recipient) override;

    BHwBinder* localBinder() override { return this; }

  protected:
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0, TransactCallback callback = nullptr) = 0;

    // Generated stubs set these; a host does not change the scheduling of its threads.
    void setRequestingSid(bool /*requesting*/) {}
    int mSchedPolicy = 0;
    int mSchedPriority = 0;
};

/** Base of generated proxies and stubs. */
class IInterface : public virtual RefBase {
  public:
    static sp<IBinder> asBinder(IInterface* interface) {
        return interface == nullptr ? nullptr : interface->onAsBinder();
    }
    static sp<IBinder> asBinder(const sp<IInterface>& interface) {
        return asBinder(interface.get());
    }

  protected:
    virtual IBinder* onAsBinder() = 0;
};

/** The part of a proxy that knows where its calls go. */
class BpHwRefBase : public virtual RefBase {
  public:
    IBinder* remote() const { return remote_.get(); }

  protected:
    explicit BpHwRefBase(const sp<IBinder>& remote) : remote_(remote) {}

  private:
    const sp<IBinder> remote_;
};

/** Base of generated proxies. */
template <typename Interface>
class BpInterface : public Interface, public IInterface, public BpHwRefBase {
  public:
    explicit BpInterface(const sp<IBinder>& remote) : BpHwRefBase(remote) {}

  protected:
    IBinder* onAsBinder() override { return remote(); }
};

}  // namespace android::hardware
