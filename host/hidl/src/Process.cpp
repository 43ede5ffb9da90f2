#define LOG_TAG "hidl"

#include "Process.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <iterator>
#include <utility>

#include <log/log.h>
#include <sys/random.h>

#include "Folder.h"
#include "RemoteProcess.h"
#include "StatusText.h"

namespace host::hidl {

using android::OK;
using android::sp;
using android::status_t;
using android::hardware::BHwBinder;
using android::hardware::BpHwBinder;
using android::hardware::IBinder;
using android::hardware::Parcel;

namespace {

std::atomic<bool> forked{false};

uint64_t chooseId() {
    uint32_t random = 0;
    if (getrandom(&random, sizeof(random), 0) != sizeof(random)) {
        LOG_ALWAYS_FATAL("No random numbers");
    }
    return static_cast<uint64_t>(getpid()) << 32 | random;
}

/** A call that this thread is serving, and those that it serves it within. */
class Serving {
  public:
    Serving(Connection& itsConnection, const FrameHeader& call)
        : connection(itsConnection),
          caller(call.sender),
          callerWaits((call.flags & IBinder::FLAG_ONEWAY) == 0),
          outer(innermost) {
        innermost = this;
    }
    ~Serving() { innermost = outer; }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

    Connection& connection;
    const uint64_t caller;
    bool callerWaits;  // for the reply
    Serving* const outer;

    static thread_local Serving* innermost;
};

thread_local Serving* Serving::innermost = nullptr;

}  // namespace

Process& Process::self() {
    static Process* const process = new Process;
    if (forked) {
        LOG_ALWAYS_FATAL("HIDL can't be used after a fork");
    }
    return *process;
}

Process::Process() : id_(chooseId()) {
    pthread_atfork(nullptr, nullptr, [] { forked = true; });
}

std::shared_ptr<RemoteProcess> Process::remote(uint64_t process) {
    {
        const android::Mutex::Autolock lock(mutex_);
        const auto entry = remotes_.find(process);
        if (entry != remotes_.end()) {
            if (auto remote = entry->second.lock(); remote != nullptr) {
                return remote;
            }
        }
    }
    auto created = std::make_shared<RemoteProcess>(process);
    created->connect();
    std::shared_ptr<RemoteProcess> other;
    {
        const android::Mutex::Autolock lock(mutex_);
        std::weak_ptr<RemoteProcess>& known = remotes_[process];
        other = known.lock();
        if (other == nullptr) {
            known = created;
            return created;
        }
    }
    return other;  // another thread has made it meanwhile
}

void Process::forget(uint64_t process) {
    const android::Mutex::Autolock lock(mutex_);
    const auto entry = remotes_.find(process);
    if (entry != remotes_.end() && entry->second.expired()) {
        remotes_.erase(entry);
    }
}

sp<IBinder> Process::objectOf(const ObjectId& id) {
    if (id.process == id_) {
        return exports_.find(id.object);
    }
    return remote(id.process)->proxyOf(id.object);
}

Connection* Process::connectionOfCall() {
    return Serving::innermost == nullptr ? nullptr : &Serving::innermost->connection;
}

status_t Process::nameObjects(const Parcel& parcel, std::vector<ObjectId>* ids,
                              std::vector<Exports::Pin>* pins) {
    for (const sp<IBinder>& binder : parcel.objects()) {
        if (BpHwBinder* proxy = binder->remoteBinder(); proxy != nullptr) {
            ids->push_back({proxy->process(), proxy->object()});
            continue;
        }
        if (!server_.openEndpoint()) {
            return android::NO_INIT;
        }
        pins->push_back(exports_.pin(binder->localBinder()));
        ids->push_back({id_, pins->back().object()});
    }
    return OK;
}

bool Process::readParcel(Frame frame, Parcel* parcel) {
    std::vector<sp<IBinder>> objects;
    objects.reserve(frame.header.objectCount);
    for (size_t i = 0; i < frame.header.objectCount; ++i) {
        objects.push_back(objectOf(frame.objects()[i]));
        if (objects.back() == nullptr) {
            return false;
        }
    }
    uint8_t* data = frame.data();
    parcel->setReceived(std::move(frame.body), data, frame.header.dataSize, std::move(objects),
                        std::move(frame.descriptors));
    return true;
}

Connection* Process::connectionOfCaller(uint64_t process) {
    for (const Serving* call = Serving::innermost; call != nullptr; call = call->outer) {
        if (call->caller == process && call->callerWaits) {
            return &call->connection;
        }
    }
    return nullptr;
}

bool Process::sendReply_(Connection& connection, const Parcel& reply, status_t status, bool wait) {
    std::vector<ObjectId> ids;
    std::vector<Exports::Pin> pins;
    if (status == OK) {
        status = nameObjects(reply, &ids, &pins);
    }
    if (status == OK && !fitsFrame(reply)) {
        ALOGE("A reply with %zu bytes and %zu objects is too large", reply.dataSize(), ids.size());
        status = android::FAILED_TRANSACTION;
    }
    FrameHeader header{};
    header.magic = kFrameMagic;
    header.type = FrameType::Reply;
    header.sender = id_;
    header.code = static_cast<uint32_t>(status);
    if (status == OK) {
        header.dataSize = static_cast<uint32_t>(reply.dataSize());
        header.objectCount = static_cast<uint16_t>(ids.size());
        header.descriptorCount = static_cast<uint16_t>(reply.descriptors().size());
        std::move(pins.begin(), pins.end(), std::back_inserter(connection.inTransit));
    } else {
        ids.clear();
    }
    const OutgoingFrame frame = {header, ids, reply.data(), reply.descriptors()};
    return wait ? connection.send(frame) : connection.sendWithoutWaiting(frame);
}

bool Process::serveCall(Connection& connection, Frame frame, bool wait) {
    const FrameHeader call = frame.header;
    const sp<BHwBinder> target = exports_.find(call.target);
    Parcel data;
    Parcel reply;
    if (target == nullptr) {
        logEnd(connection, "it calls an object that does not exist");
        return false;
    }
    if (!readParcel(std::move(frame), &data)) {
        logEnd(connection, "it passes an object that does not exist");
        return false;
    }

    Serving serving(connection, call);
    bool alive = true;
    // A method of IBase that ignores its arguments need not read them.
    const auto hasRest = [&] {
        return data.dataPosition() > 0 && (data.dataAvail() > 0 || data.hasUnreadDescriptors());
    };
    const auto answer = [&](status_t status) {
        if (serving.callerWaits) {
            serving.callerWaits = false;
            alive = sendReply_(connection, reply, status, wait);
        }
    };
    // As on the device, the caller goes on as soon as the reply is complete, while the method may
    // still be doing something.
    const status_t status =
        target->transact(call.code, data, &reply, call.flags, [&](Parcel& /*reply*/) {
            if (!hasRest()) {
                answer(OK);
            }
        });
    if (status == OK && hasRest()) {
        logEnd(connection, "its call has more arguments than the method");
        return false;
    }
    answer(status);
    if (status != OK) {
        logEnd(connection, ("its call can't be read: " + statusText(status)).c_str());
        return false;
    }
    return alive;
}

bool fitsFrame(const Parcel& parcel) {
    return parcel.dataSize() <= kMaxDataSize && parcel.objects().size() <= kMaxObjects &&
           parcel.descriptors().size() <= kMaxDescriptors;
}

void logEnd(const Connection& connection, const char* problem) {
    ALOGE("Ending a connection of process %d: %s", peerPid(connection.fd()), problem);
}

}  // namespace host::hidl
