#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include <android-base/unique_fd.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "Connection.h"
#include "Mutex.h"
#include "Server.h"

namespace host {
namespace hidl {
class RemoteProcess;
}
}  // namespace host

namespace android {
namespace hardware {

/** What transports calls to an object of another process. There is one per object. */
class BpHwBinder : public IBinder {
  public:
    BpHwBinder(std::shared_ptr<host::hidl::RemoteProcess> process, uint64_t object);
    ~BpHwBinder() override;

    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0,
                      TransactCallback callback = nullptr) override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient) override;
    status_t unlinkToDeath(const sp<DeathRecipient>& recipient) override;
    BpHwBinder* remoteBinder() override { return this; }

    uint64_t process() const;
    uint64_t object() const { return mObject; }

  private:
    const std::shared_ptr<host::hidl::RemoteProcess> mProcess;
    const uint64_t mObject;
};

}  // namespace hardware
}  // namespace android

namespace host {
namespace hidl {

/**
 * Another process of which this one holds objects. It lives as long as one of their proxies does.
 * All methods may be called from any thread.
 */
class RemoteProcess : public Watched, public std::enable_shared_from_this<RemoteProcess> {
  public:
    /** Made by Process::remote, which calls connect() next. */
    explicit RemoteProcess(uint64_t id) : mId(id) {}
    ~RemoteProcess() override;

    /** Opens the link. When that fails, the process counts as one that has gone away. */
    void connect();

    uint64_t id() const { return mId; }
    bool isDead();

    android::sp<android::hardware::BpHwBinder> proxyOf(uint64_t object);

    /** Called when the proxy ends. */
    void drop(uint64_t object, android::hardware::BpHwBinder* proxy);

    /** See IBinder::transact. Waits as long as the process lives and does not answer. */
    android::status_t call(uint64_t object, uint32_t code, const android::hardware::Parcel& data,
                           android::hardware::Parcel* reply, uint32_t flags);

    using Recipient = android::sp<android::hardware::IBinder::DeathRecipient>;
    android::status_t linkToDeath(uint64_t object, const Recipient& recipient);
    android::status_t unlinkToDeath(uint64_t object, const Recipient& recipient);

    void onReady(uint32_t events) override;

  private:
    struct Proxy {
        android::wp<android::hardware::BpHwBinder> binder;
        std::vector<Recipient> recipients;
    };

    void tell(FrameType type, uint64_t object) REQUIRES(mMutex);
    bool flushLink() REQUIRES(mMutex);
    bool isLinked() REQUIRES(mMutex);
    void die();
    android::status_t awaitReply(Connection& connection, android::hardware::Parcel* reply,
                                 bool* broken);
    std::unique_ptr<Connection> takeConnection();
    void keepConnection(std::unique_ptr<Connection> connection);

    const uint64_t mId;

    Mutex mMutex;
    android::base::unique_fd mLink GUARDED_BY(mMutex);  // closed: the process has gone
    uint64_t mLinkKey GUARDED_BY(mMutex) = 0;
    std::vector<uint8_t> mUnsent GUARDED_BY(mMutex);  // what the link did not take yet
    std::map<uint64_t, Proxy> mProxies GUARDED_BY(mMutex);
    std::vector<std::unique_ptr<Connection>> mIdle GUARDED_BY(mMutex);
};

}  // namespace hidl
}  // namespace host
