#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include <android-base/unique_fd.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

#include "Connection.h"
#include "Server.h"

namespace host::hidl {
class RemoteProcess;
}

namespace android::hardware {

/** Carries calls to an object of another process. There is one per object. */
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
    uint64_t object() const { return object_; }

  private:
    const std::shared_ptr<host::hidl::RemoteProcess> process_;
    const uint64_t object_;
};

}  // namespace android::hardware

namespace host::hidl {

/** Another process whose objects this one holds; lives as long as their proxies. Thread-safe. */
class RemoteProcess : public Watched, public std::enable_shared_from_this<RemoteProcess> {
  public:
    /** Made by Process::remote, which calls connect() next. */
    explicit RemoteProcess(uint64_t id) : id_(id) {}
    ~RemoteProcess() override;

    /** Opens the link. If that fails, the process counts as dead. */
    void connect();

    uint64_t id() const { return id_; }
    bool isDead();

    android::sp<android::hardware::BpHwBinder> proxyOf(uint64_t object);

    /** Called when the proxy ends. */
    void drop(uint64_t object, android::hardware::BpHwBinder* proxy);

    /**
     * See IBinder::transact. Waits for the reply as long as the process lives, and serves the calls
     * that it makes meanwhile on the same connection.
     */
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

    void tell_(FrameType type, uint64_t object) REQUIRES(mutex_);
    bool flushLink_() REQUIRES(mutex_);
    bool isLinked_() REQUIRES(mutex_);
    void die_();
    android::status_t awaitReply_(Connection& connection, android::hardware::Parcel* reply,
                                  bool* broken);
    std::unique_ptr<Connection> takeConnection_();
    void keepConnection_(std::unique_ptr<Connection> connection);

    const uint64_t id_;

    android::Mutex mutex_;
    android::base::unique_fd link_ GUARDED_BY(mutex_);  // closed: the process has gone
    uint64_t linkKey_ GUARDED_BY(mutex_) = 0;
    std::vector<uint8_t> unsent_ GUARDED_BY(mutex_);  // what the link did not take yet
    std::map<uint64_t, Proxy> proxies_ GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<Connection>> idle_ GUARDED_BY(mutex_);
};

}  // namespace host::hidl
