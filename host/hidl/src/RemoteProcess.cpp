#define LOG_TAG "hidl"

#include "RemoteProcess.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include <log/log.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "Folder.h"
#include "Process.h"

namespace host {
namespace hidl {

using android::OK;
using android::sp;
using android::status_t;
using android::wp;
using android::hardware::BpHwBinder;
using android::hardware::IBinder;
using android::hardware::Parcel;

namespace {

// Connections kept for the next call: one for each thread that usually calls at the same time.
constexpr size_t kMaxIdleConnections = 4;
// A process that lets this much of what it is told pile up does not serve its calls any more.
constexpr size_t kMaxUnsent = 65536;  // bytes
constexpr uint32_t kLinkEvents = EPOLLIN | EPOLLRDHUP;

}  // namespace

RemoteProcess::~RemoteProcess() {
    if (mLink.ok()) {
        Process::self().server().unwatch(mLinkKey, mLink.get());
    }
    Process::self().forget(mId);
}

void RemoteProcess::connect() {
    const Folder folder;
    android::base::unique_fd link = folder.connectTo(mId, false);
    if (!link.ok()) {
        if (errno == ECONNREFUSED) {
            folder.removeEndpoint(mId);
        }
        return;
    }
    Lock lock(mMutex);
    mLink = std::move(link);
    mLinkKey = Process::self().server().watch(mLink.get(), kLinkEvents, weak_from_this());
}

bool RemoteProcess::isDead() {
    Lock lock(mMutex);
    return !isLinked();
}

// Looks at the link itself: a process that serves nothing has no thread that notices its end.
bool RemoteProcess::isLinked() {
    char byte;
    return mLink.ok() && recv(mLink.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 &&
           errno == EAGAIN;
}

sp<BpHwBinder> RemoteProcess::proxyOf(uint64_t object) {
    Proxy previous;  // ends outside the lock
    Lock lock(mMutex);
    const auto entry = mProxies.find(object);
    if (entry != mProxies.end()) {
        if (sp<BpHwBinder> binder = entry->second.binder.promote(); binder != nullptr) {
            return binder;
        }
        previous = std::move(entry->second);
    }
    sp<BpHwBinder> binder = new BpHwBinder(shared_from_this(), object);
    mProxies[object] = {binder, {}};
    tell(FrameType::Acquire, object);
    return binder;
}

void RemoteProcess::drop(uint64_t object, BpHwBinder* proxy) {
    Proxy dropped;  // ends outside the lock
    Lock lock(mMutex);
    const auto entry = mProxies.find(object);
    if (entry != mProxies.end() && entry->second.binder.unsafe_get() == proxy) {
        dropped = std::move(entry->second);
        mProxies.erase(entry);
    }
    tell(FrameType::Release, object);
}

void RemoteProcess::tell(FrameType type, uint64_t object) {
    if (!mLink.ok()) {
        return;
    }
    FrameHeader header{};
    header.magic = kFrameMagic;
    header.type = type;
    header.sender = Process::self().id();
    header.target = object;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
    const bool wasEmpty = mUnsent.empty();
    mUnsent.insert(mUnsent.end(), bytes, bytes + sizeof(header));
    if (!flushLink() || mUnsent.size() > kMaxUnsent) {
        if (mUnsent.size() > kMaxUnsent) {
            ALOGE("Ending the link to process %d: it does not read", peerPid(mLink.get()));
        }
        shutdown(mLink.get(), SHUT_RDWR);  // the serving thread sees the end, and then it is dead
    } else if (wasEmpty && !mUnsent.empty()) {
        Process::self().server().changeEvents(mLinkKey, mLink.get(), kLinkEvents | EPOLLOUT);
    }
}

bool RemoteProcess::flushLink() {
    size_t sent = 0;
    while (sent < mUnsent.size()) {
        const ssize_t size = send(mLink.get(), mUnsent.data() + sent, mUnsent.size() - sent,
                                  MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size < 0 && errno != EINTR) {
            break;
        }
        sent += static_cast<size_t>(std::max<ssize_t>(size, 0));
    }
    const bool alive = sent == mUnsent.size() || errno == EAGAIN;
    mUnsent.erase(mUnsent.begin(), mUnsent.begin() + static_cast<ptrdiff_t>(sent));
    if (mUnsent.empty()) {
        std::vector<uint8_t>().swap(mUnsent);
    }
    return alive;
}

void RemoteProcess::onReady(uint32_t events) {
    bool dead = false;
    {
        Lock lock(mMutex);
        if (!mLink.ok()) {
            return;
        }
        if ((events & EPOLLOUT) != 0) {
            dead = !flushLink();
            if (mUnsent.empty()) {
                Process::self().server().changeEvents(mLinkKey, mLink.get(), kLinkEvents);
            }
        }
        char byte;
        const ssize_t size = recv(mLink.get(), &byte, 1, MSG_DONTWAIT);
        if (size > 0) {
            ALOGE("Ending the link to process %d: it answers where nothing is asked",
                  peerPid(mLink.get()));
        }
        dead = dead || size >= 0 || (errno != EAGAIN && errno != EINTR);
    }
    if (dead) {
        die();
    }
}

void RemoteProcess::die() {
    android::base::unique_fd link;
    uint64_t key = 0;
    std::vector<std::unique_ptr<Connection>> idle;
    std::vector<std::pair<sp<BpHwBinder>, std::vector<Recipient>>> told;
    {
        Lock lock(mMutex);
        link = std::move(mLink);
        key = mLinkKey;
        idle.swap(mIdle);
        for (auto& [object, proxy] : mProxies) {
            // A proxy that is just ending has nobody left who wants to know.
            if (sp<BpHwBinder> binder = proxy.binder.promote(); binder != nullptr) {
                told.emplace_back(std::move(binder), std::move(proxy.recipients));
            }
        }
    }
    if (!link.ok()) {
        return;
    }
    Process::self().server().unwatch(key, link.get());
    Process::self().server().buryEndpoint(mId);
    for (const auto& [binder, recipients] : told) {
        for (const Recipient& recipient : recipients) {
            recipient->binderDied(wp<IBinder>(binder.get()));
        }
    }
}

status_t RemoteProcess::linkToDeath(uint64_t object, const Recipient& recipient) {
    Lock lock(mMutex);
    if (!isLinked()) {
        return android::DEAD_OBJECT;
    }
    mProxies[object].recipients.push_back(recipient);
    return OK;
}

status_t RemoteProcess::unlinkToDeath(uint64_t object, const Recipient& recipient) {
    Lock lock(mMutex);
    if (!mLink.ok()) {
        return android::DEAD_OBJECT;
    }
    auto& recipients = mProxies[object].recipients;
    const auto found = std::find(recipients.begin(), recipients.end(), recipient);
    if (found == recipients.end()) {
        return android::NAME_NOT_FOUND;
    }
    recipients.erase(found);  // the caller holds it still
    return OK;
}

std::unique_ptr<Connection> RemoteProcess::takeConnection() {
    for (;;) {
        std::unique_ptr<Connection> connection;
        {
            Lock lock(mMutex);
            if (!mLink.ok()) {
                return nullptr;
            }
            if (mIdle.empty()) {
                break;
            }
            connection = std::move(mIdle.back());
            mIdle.pop_back();
        }
        if (connection->isQuiet()) {
            return connection;
        }
    }
    android::base::unique_fd socket = Folder().connectTo(mId, true);
    if (!socket.ok()) {
        return nullptr;
    }
    return std::make_unique<Connection>(std::move(socket));
}

void RemoteProcess::keepConnection(std::unique_ptr<Connection> connection) {
    Lock lock(mMutex);
    if (mLink.ok() && mIdle.size() < kMaxIdleConnections) {
        mIdle.push_back(std::move(connection));
    }
}

status_t RemoteProcess::call(uint64_t object, uint32_t code, const Parcel& data, Parcel* reply,
                             uint32_t flags) {
    Process& process = Process::self();
    if (data.dataSize() > kMaxDataSize || data.objects().size() > kMaxObjects) {
        ALOGE("A call with %zu bytes and %zu objects is too large", data.dataSize(),
              data.objects().size());
        return android::FAILED_TRANSACTION;
    }
    std::vector<ObjectId> ids;
    std::vector<Exports::Pin> pins;
    if (const status_t status = process.nameObjects(data, &ids, &pins); status != OK) {
        return status;
    }

    // The thread over there that waits for this one's reply serves the call, if there is one.
    std::unique_ptr<Connection> own;
    Connection* connection = Process::connectionOfCaller(mId);
    if (connection == nullptr) {
        own = takeConnection();
        if (own == nullptr) {
            return android::DEAD_OBJECT;
        }
        connection = own.get();
    }

    FrameHeader header{};
    header.magic = kFrameMagic;
    header.type = FrameType::Call;
    header.dataSize = static_cast<uint32_t>(data.dataSize());
    header.objectCount = static_cast<uint32_t>(ids.size());
    header.sender = process.id();
    header.target = object;
    header.code = code;
    header.flags = flags & IBinder::FLAG_ONEWAY;
    bool broken = !connection->send(header, ids, data.data());
    status_t status = OK;
    if (header.flags == IBinder::FLAG_ONEWAY) {
        // Nobody says when the objects have arrived: they wait for the connection's next reply.
        std::move(pins.begin(), pins.end(), std::back_inserter(connection->inTransit));
    } else if (!broken) {
        status = awaitReply(*connection, reply, &broken);
    }
    if (broken) {
        connection->shutDown();  // for a caller's connection: whoever serves it sees the end
        return android::DEAD_OBJECT;
    }
    if (own != nullptr) {
        keepConnection(std::move(own));
    }
    return status;
}

status_t RemoteProcess::awaitReply(Connection& connection, Parcel* reply, bool* broken) {
    Process& process = Process::self();
    *broken = true;
    for (;;) {
        Frame frame;
        switch (connection.receive(&frame, true)) {
            case Connection::Result::Frame:
                break;
            case Connection::Result::Malformed:
                logEnd(connection, connection.problem());
                return android::DEAD_OBJECT;
            case Connection::Result::Closed:
            case Connection::Result::Nothing:
                return android::DEAD_OBJECT;
        }
        const FrameHeader header = frame.header;
        if (header.type == FrameType::Call) {
            if (!process.serveCall(connection, std::move(frame), true)) {
                return android::DEAD_OBJECT;
            }
            continue;
        }
        if (header.type == FrameType::Done) {
            connection.inTransit.clear();
            continue;
        }
        if (header.type != FrameType::Reply || !process.readParcel(std::move(frame), reply)) {
            logEnd(connection, "it does not answer the call");
            return android::DEAD_OBJECT;
        }
        connection.inTransit.clear();
        if (header.objectCount > 0) {
            FrameHeader done{};
            done.magic = kFrameMagic;
            done.type = FrameType::Done;
            done.sender = process.id();
            connection.send(done, {}, nullptr);  // a failure shows at the next call
        }
        *broken = false;
        return static_cast<status_t>(header.code);
    }
}

}  // namespace hidl
}  // namespace host

namespace android {
namespace hardware {

BpHwBinder::BpHwBinder(std::shared_ptr<host::hidl::RemoteProcess> process, uint64_t object)
    : mProcess(std::move(process)), mObject(object) {}

BpHwBinder::~BpHwBinder() { mProcess->drop(mObject, this); }

status_t BpHwBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags,
                              TransactCallback /*callback*/) {
    return mProcess->call(mObject, code, data, reply, flags);
}

status_t BpHwBinder::linkToDeath(const sp<DeathRecipient>& recipient) {
    return mProcess->linkToDeath(mObject, recipient);
}

status_t BpHwBinder::unlinkToDeath(const sp<DeathRecipient>& recipient) {
    return mProcess->unlinkToDeath(mObject, recipient);
}

uint64_t BpHwBinder::process() const { return mProcess->id(); }

}  // namespace hardware
}  // namespace android
