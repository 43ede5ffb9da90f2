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

namespace host::hidl {

using android::OK;
using android::sp;
using android::status_t;
using android::wp;
using android::hardware::BpHwBinder;
using android::hardware::IBinder;
using android::hardware::Parcel;

namespace {

// The most idle connections that are kept for later calls.
constexpr size_t kMaxIdleConnections = 4;
// A process that leaves more than this unread is treated as dead.
constexpr size_t kMaxUnsent = 65536;  // bytes
constexpr uint32_t kLinkEvents = EPOLLIN | EPOLLRDHUP;

/** Of a frame that carries nothing yet. */
FrameHeader headerOf(FrameType type, uint64_t target) {
    FrameHeader header{};
    header.magic = kFrameMagic;
    header.type = type;
    header.sender = Process::self().id();
    header.target = target;
    return header;
}

}  // namespace

RemoteProcess::~RemoteProcess() {
    if (link_.ok()) {
        Process::self().server().unwatch(linkKey_, link_.get());
    }
    Process::self().forget(id_);
}

void RemoteProcess::connect() {
    const Folder folder;
    android::base::unique_fd link = folder.connectTo(id_, false);
    if (!link.ok()) {
        if (errno == ECONNREFUSED) {
            folder.removeEndpoint(id_);
        }
        return;
    }
    const android::Mutex::Autolock lock(mutex_);
    link_ = std::move(link);
    linkKey_ = Process::self().server().watch(link_.get(), kLinkEvents, weak_from_this());
}

bool RemoteProcess::isDead() {
    const android::Mutex::Autolock lock(mutex_);
    return !isLinked_();
}

// Reads the link itself: a process that serves nothing has no thread that notices its end.
bool RemoteProcess::isLinked_() {
    char byte;
    return link_.ok() && recv(link_.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 &&
           errno == EAGAIN;
}

sp<BpHwBinder> RemoteProcess::proxyOf(uint64_t object) {
    Proxy previous;         // ends outside the lock
    sp<BpHwBinder> binder;  // its end takes the lock: when there is no memory, outside of it
    const android::Mutex::Autolock lock(mutex_);
    Proxy& proxy = proxies_[object];
    binder = proxy.binder.promote();
    if (binder != nullptr) {
        return binder;
    }
    previous = std::exchange(proxy, {});
    // Reserved first: a proxy whose Acquire cannot be queued would still send its Release.
    unsent_.reserve(unsent_.size() + sizeof(FrameHeader));
    binder = new BpHwBinder(shared_from_this(), object);
    proxy.binder = binder;
    tell_(FrameType::Acquire, object);
    return binder;
}

void RemoteProcess::drop(uint64_t object, BpHwBinder* proxy) {
    Proxy dropped;  // ends outside the lock
    const android::Mutex::Autolock lock(mutex_);
    const auto entry = proxies_.find(object);
    if (entry != proxies_.end() && entry->second.binder.unsafe_get() == proxy) {
        dropped = std::move(entry->second);
        proxies_.erase(entry);
    }
    tell_(FrameType::Release, object);
}

void RemoteProcess::tell_(FrameType type, uint64_t object) {
    if (!link_.ok()) {
        return;
    }
    const FrameHeader header = headerOf(type, object);
    const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
    const bool wasEmpty = unsent_.empty();
    unsent_.insert(unsent_.end(), bytes, bytes + sizeof(header));
    if (!flushLink_() || unsent_.size() > kMaxUnsent) {
        if (unsent_.size() > kMaxUnsent) {
            ALOGE("Ending the link to process %d: it does not read", peerPid(link_.get()));
        }
        shutdown(link_.get(), SHUT_RDWR);  // the serving thread sees the end, and then it is dead
    } else if (wasEmpty && !unsent_.empty()) {
        Process::self().server().changeEvents(linkKey_, link_.get(), kLinkEvents | EPOLLOUT);
    }
}

bool RemoteProcess::flushLink_() {
    size_t sent = 0;
    while (sent < unsent_.size()) {
        const ssize_t size = send(link_.get(), unsent_.data() + sent, unsent_.size() - sent,
                                  MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size < 0 && errno != EINTR) {
            break;
        }
        sent += static_cast<size_t>(std::max<ssize_t>(size, 0));
    }
    const bool alive = sent == unsent_.size() || errno == EAGAIN;
    unsent_.erase(unsent_.begin(), unsent_.begin() + static_cast<ptrdiff_t>(sent));
    if (unsent_.empty()) {
        std::vector<uint8_t>().swap(unsent_);
    }
    return alive;
}

void RemoteProcess::onReady(uint32_t events) {
    bool dead = false;
    {
        const android::Mutex::Autolock lock(mutex_);
        if (!link_.ok()) {
            return;
        }
        if ((events & EPOLLOUT) != 0) {
            dead = !flushLink_();
            if (unsent_.empty()) {
                Process::self().server().changeEvents(linkKey_, link_.get(), kLinkEvents);
            }
        }
        char byte;
        const ssize_t size = recv(link_.get(), &byte, 1, MSG_DONTWAIT);
        if (size > 0) {
            ALOGE("Ending the link to process %d: it answers where nothing is asked",
                  peerPid(link_.get()));
        }
        dead = dead || size >= 0 || (errno != EAGAIN && errno != EINTR);
    }
    if (dead) {
        die_();
    }
}

void RemoteProcess::die_() {
    android::base::unique_fd link;
    uint64_t key = 0;
    std::vector<std::unique_ptr<Connection>> idle;
    std::vector<std::pair<sp<BpHwBinder>, std::vector<Recipient>>> linked;
    {
        const android::Mutex::Autolock lock(mutex_);
        link = std::move(link_);
        key = linkKey_;
        idle.swap(idle_);
        for (auto& [object, proxy] : proxies_) {
            // Nobody holds a proxy that is being destroyed, so nobody is notified.
            if (sp<BpHwBinder> binder = proxy.binder.promote(); binder != nullptr) {
                linked.emplace_back(std::move(binder), std::move(proxy.recipients));
            }
        }
    }
    if (!link.ok()) {
        return;
    }
    Process::self().server().unwatch(key, link.get());
    Process::self().server().removeEndpointOnDeath(id_);
    for (const auto& [binder, recipients] : linked) {
        for (const Recipient& recipient : recipients) {
            recipient->binderDied(wp<IBinder>(binder.get()));
        }
    }
}

status_t RemoteProcess::linkToDeath(uint64_t object, const Recipient& recipient) {
    const android::Mutex::Autolock lock(mutex_);
    if (!isLinked_()) {
        return android::DEAD_OBJECT;
    }
    proxies_[object].recipients.push_back(recipient);
    return OK;
}

status_t RemoteProcess::unlinkToDeath(uint64_t object, const Recipient& recipient) {
    const android::Mutex::Autolock lock(mutex_);
    if (!link_.ok()) {
        return android::DEAD_OBJECT;
    }
    auto& recipients = proxies_[object].recipients;
    const auto found = std::find(recipients.begin(), recipients.end(), recipient);
    if (found == recipients.end()) {
        return android::NAME_NOT_FOUND;
    }
    recipients.erase(found);  // the caller holds it still
    return OK;
}

std::unique_ptr<Connection> RemoteProcess::takeConnection_() {
    for (;;) {
        std::unique_ptr<Connection> connection;
        {
            const android::Mutex::Autolock lock(mutex_);
            if (!link_.ok()) {
                return nullptr;
            }
            if (idle_.empty()) {
                break;
            }
            connection = std::move(idle_.back());
            idle_.pop_back();
        }
        if (connection->isQuiet()) {
            return connection;
        }
    }
    android::base::unique_fd socket = Folder().connectTo(id_, true);
    if (!socket.ok()) {
        return nullptr;
    }
    return std::make_unique<Connection>(std::move(socket));
}

void RemoteProcess::keepConnection_(std::unique_ptr<Connection> connection) {
    const android::Mutex::Autolock lock(mutex_);
    if (link_.ok() && idle_.size() < kMaxIdleConnections) {
        idle_.push_back(std::move(connection));
    }
}

status_t RemoteProcess::call(uint64_t object, uint32_t code, const Parcel& data, Parcel* reply,
                             uint32_t flags) {
    Process& process = Process::self();
    if (!fitsFrame(data)) {
        ALOGE("A call with %zu bytes and %zu objects is too large", data.dataSize(),
              data.objects().size());
        return android::FAILED_TRANSACTION;
    }
    std::vector<ObjectId> ids;
    std::vector<Exports::Pin> pins;
    if (const status_t status = process.nameObjects(data, &ids, &pins); status != OK) {
        return status;
    }

    // If the peer waits for this thread's reply, the thread that waits there serves the call.
    std::unique_ptr<Connection> own;
    Connection* connection = Process::connectionOfCaller(id_);
    if (connection == nullptr) {
        own = takeConnection_();
        if (own == nullptr) {
            return android::DEAD_OBJECT;
        }
        connection = own.get();
    }

    FrameHeader header = headerOf(FrameType::Call, object);
    header.dataSize = static_cast<uint32_t>(data.dataSize());
    header.objectCount = static_cast<uint16_t>(ids.size());
    header.descriptorCount = static_cast<uint16_t>(data.descriptors().size());
    header.code = code;
    header.flags = flags & IBinder::FLAG_ONEWAY;
    bool broken = !connection->send({header, ids, data.data(), data.descriptors()});
    status_t status = OK;
    if (header.flags == IBinder::FLAG_ONEWAY) {
        // A oneway call has no reply: its objects are kept until the connection's next one.
        std::move(pins.begin(), pins.end(), std::back_inserter(connection->inTransit));
    } else if (!broken) {
        status = awaitReply_(*connection, reply, &broken);
    }
    if (broken) {
        connection->shutDown();  // if it is a caller's: whoever serves it notices
        return android::DEAD_OBJECT;
    }
    if (own != nullptr) {
        keepConnection_(std::move(own));
    }
    return status;
}

status_t RemoteProcess::awaitReply_(Connection& connection, Parcel* reply, bool* broken) {
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
            // A failure shows at the next call.
            connection.send(headerOf(FrameType::Done, 0));
        }
        *broken = false;
        return static_cast<status_t>(header.code);
    }
}

}  // namespace host::hidl

namespace android::hardware {

BpHwBinder::BpHwBinder(std::shared_ptr<host::hidl::RemoteProcess> process, uint64_t object)
    : process_(std::move(process)), object_(object) {}

BpHwBinder::~BpHwBinder() { process_->drop(object_, this); }

status_t BpHwBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags,
                              TransactCallback /*callback*/) {
    return process_->call(object_, code, data, reply, flags);
}

status_t BpHwBinder::linkToDeath(const sp<DeathRecipient>& recipient) {
    return process_->linkToDeath(object_, recipient);
}

status_t BpHwBinder::unlinkToDeath(const sp<DeathRecipient>& recipient) {
    return process_->unlinkToDeath(object_, recipient);
}

uint64_t BpHwBinder::process() const { return process_->id(); }

}  // namespace android::hardware
