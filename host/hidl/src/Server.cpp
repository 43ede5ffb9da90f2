#define LOG_TAG "hidl"

#include "Server.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>

#include <log/log.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "Folder.h"
#include "Process.h"

namespace host {
namespace hidl {

using android::base::unique_fd;

namespace {

constexpr uint64_t kWakeKey = 0;
constexpr uint32_t kReadEvents = EPOLLIN | EPOLLRDHUP;
// Connections taken, and reference messages of a connection handled, before others have a turn.
constexpr int kBatch = 16;

thread_local bool isServingThread = false;

unique_fd createEpoll() {
    unique_fd epoll(epoll_create1(EPOLL_CLOEXEC));
    if (!epoll.ok()) {
        LOG_ALWAYS_FATAL("epoll_create1: %s", strerror(errno));
    }
    return epoll;
}

}  // namespace

/** Takes the connections of other processes. */
class Server::Endpoint : public Watched {
  public:
    Endpoint(Server& server, Folder folder, unique_fd socket)
        : mServer(server),
          mFolder(std::move(folder)),
          mSocket(std::move(socket)),
          mReserve(open("/dev/null", O_RDONLY | O_CLOEXEC)) {}

    int fd() const { return mSocket.get(); }
    void remove() const { mFolder.removeEndpoint(Process::self().id()); }

    void onReady(uint32_t /*events*/) override {
        for (int i = 0; i < kBatch; ++i) {
            unique_fd client(accept4(mSocket.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (client.ok()) {
                mServer.addClient(std::move(client));
            } else if (errno == EMFILE || errno == ENFILE) {
                // Left in the queue it would wake this thread again and again.
                ALOGE("Refusing a connection: %s", strerror(errno));
                mReserve.reset();
                unique_fd(accept4(mSocket.get(), nullptr, nullptr, SOCK_CLOEXEC)).reset();
                mReserve.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
            } else if (errno != EINTR && errno != ECONNABORTED) {
                return;
            }
        }
    }

  private:
    Server& mServer;
    const Folder mFolder;
    const unique_fd mSocket;
    unique_fd mReserve;  // a descriptor for when there are no others
};

/** A connection that another process has made. Of the serving thread. */
class Server::Client : public Watched {
  public:
    Client(Server& server, unique_fd socket) : mServer(server), mConnection(std::move(socket)) {}
    ~Client() override {
        for (const auto& [object, uses] : mHeld) {
            Process::self().exports().release(object, uses);
        }
    }

    void start(uint64_t key) {
        mKey = key;
        mLastActive = ++mServer.mClock;
    }
    int fd() const { return mConnection.fd(); }
    bool holdsObjects() const { return !mHeld.empty(); }
    uint64_t lastActive() const { return mLastActive; }

    void onReady(uint32_t /*events*/) override {
        mLastActive = ++mServer.mClock;
        if (!sendRest() || (!mConnection.hasUnsent() && !receive())) {
            mServer.removeClient(mKey);
        }
    }

  private:
    // False when the connection is to be ended.
    bool sendRest() {
        if (!mConnection.hasUnsent()) {
            return true;
        }
        if (!mConnection.flush()) {
            return false;
        }
        if (!mConnection.hasUnsent()) {
            mServer.changeEvents(mKey, fd(), kReadEvents);
        }
        return true;
    }

    // False when the connection is to be ended.
    bool receive() {
        for (int i = 0; i < kBatch; ++i) {
            Frame frame;
            switch (mConnection.receive(&frame, false)) {
                case Connection::Result::Frame:
                    break;
                case Connection::Result::Nothing:
                    return true;
                case Connection::Result::Closed:
                    return false;
                case Connection::Result::Malformed:
                    logEnd(mConnection, mConnection.problem());
                    return false;
            }
            const bool isCall = frame.header.type == FrameType::Call;
            if (!handle(std::move(frame))) {
                return false;
            }
            if (mConnection.hasUnsent()) {
                mServer.changeEvents(mKey, fd(), EPOLLOUT);  // nothing new before that is out
                return true;
            }
            if (isCall) {
                return true;  // its caller waits for the reply before it sends more
            }
        }
        return true;
    }

    bool handle(Frame frame) {
        const uint64_t object = frame.header.target;
        switch (frame.header.type) {
            case FrameType::Call:
                mConnection.inTransit.clear();
                return Process::self().serveCall(mConnection, std::move(frame), false);
            case FrameType::Acquire:
                if (!Process::self().exports().acquire(object)) {
                    logEnd(mConnection, "it acquires an object that does not exist");
                    return false;
                }
                ++mHeld[object];
                return true;
            case FrameType::Release: {
                const auto held = mHeld.find(object);
                if (held == mHeld.end()) {
                    logEnd(mConnection, "it releases an object that it does not hold");
                    return false;
                }
                if (--held->second == 0) {
                    mHeld.erase(held);
                }
                Process::self().exports().release(object, 1);
                return true;
            }
            case FrameType::Done:
                mConnection.inTransit.clear();
                return true;
            case FrameType::Reply:
                break;
        }
        logEnd(mConnection, "it replies where nothing was asked");
        return false;
    }

    Server& mServer;
    Connection mConnection;
    uint64_t mKey = 0;
    uint64_t mLastActive = 0;
    std::map<uint64_t, uint32_t> mHeld;
};

/** Waits, with a connection to the endpoint of a process, for the endpoint's end. */
class Server::Grave : public Watched {
  public:
    Grave(Server& server, uint64_t process) : mServer(server), mProcess(process) {}

    /** False when there is nothing to wait for, the endpoint being removed or hopeless. */
    bool dig() {
        if (++mTries > kMaxTries) {
            return false;  // it is alive, and just does not want this process's connections
        }
        const Folder folder;
        mSocket = folder.connectTo(mProcess, false);
        if (!mSocket.ok() && errno == ECONNREFUSED) {
            folder.removeEndpoint(mProcess);
        }
        return mSocket.ok();
    }
    int fd() const { return mSocket.get(); }
    uint64_t process() const { return mProcess; }
    void setKey(uint64_t key) { mKey = key; }

    void onReady(uint32_t /*events*/) override {
        mServer.unwatch(mKey, fd());
        mServer.addGrave(mServer.mGraves.at(mProcess));
    }

  private:
    static constexpr int kMaxTries = 3;

    Server& mServer;
    const uint64_t mProcess;
    int mTries = 0;
    unique_fd mSocket;
    uint64_t mKey = 0;
};

Server::Server() : mEpoll(createEpoll()) {}

Server::~Server() = default;

void Server::start() {
    if (mJoinExpected || mServing.exchange(true)) {
        return;
    }
    // Signals are the business of the program's own threads.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    std::thread thread([this] { serve(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    pthread_setname_np(thread.native_handle(), "hidl");
    thread.detach();
}

void Server::join() {
    if (!mServing.exchange(true)) {
        serve();
    }
    for (;;) {
        pause();
    }
}

void Server::serve() {
    isServingThread = true;
    for (;;) {
        epoll_event events[kBatch];
        // When nothing is ready, no link has anything to say of the objects that are unused now.
        const uint64_t unused = Process::self().exports().lastUnused();
        const int count = epoll_wait(mEpoll.get(), events, kBatch, unused > 0 ? 0 : -1);
        if (count == 0) {
            Process::self().exports().collect(unused);
        }
        for (int i = 0; i < count; ++i) {
            const uint64_t key = events[i].data.u64;  // a copy: the structure is packed
            std::shared_ptr<Watched> watched;
            {
                Lock lock(mMutex);
                if (key == kWakeKey) {
                    eventfd_t wakes;
                    eventfd_read(mWake.get(), &wakes);
                    continue;
                }
                const auto entry = mWatched.find(key);
                watched = entry == mWatched.end() ? nullptr : entry->second.lock();
            }
            if (watched != nullptr) {
                watched->onReady(events[i].events);
            }
        }
    }
}

void Server::wake() {
    if (isServingThread || !mServing) {
        return;  // the serving thread looks before it sleeps
    }
    Lock lock(mMutex);
    if (!mWake.ok()) {
        mWake.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = kWakeKey;
        if (epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, mWake.get(), &event) != 0) {
            ALOGE("epoll_ctl: %s", strerror(errno));
        }
    }
    eventfd_write(mWake.get(), 1);
}

uint64_t Server::watch(int fd, uint32_t events, const std::weak_ptr<Watched>& watched) {
    Lock lock(mMutex);
    return add(fd, events, watched);
}

uint64_t Server::add(int fd, uint32_t events, const std::weak_ptr<Watched>& watched) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = ++mLastKey;
    mWatched[mLastKey] = watched;
    if (epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        ALOGE("epoll_ctl: %s", strerror(errno));
    }
    return mLastKey;
}

void Server::changeEvents(uint64_t key, int fd, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = key;
    epoll_ctl(mEpoll.get(), EPOLL_CTL_MOD, fd, &event);
}

void Server::unwatch(uint64_t key, int fd) {
    Lock lock(mMutex);
    epoll_ctl(mEpoll.get(), EPOLL_CTL_DEL, fd, nullptr);
    mWatched.erase(key);
}

bool Server::openEndpoint() {
    const std::string path = Folder::currentPath();
    Lock lock(mMutex);
    const auto isHere = [&](const OpenEndpoint& open) { return open.folder == path; };
    if (std::any_of(mEndpoints.begin(), mEndpoints.end(), isHere)) {
        return true;
    }
    Folder folder;
    unique_fd socket = folder.listenAs(Process::self().id());
    if (!socket.ok()) {
        ALOGE("Can't listen in %s: %s", path.c_str(), strerror(errno));
        return false;
    }
    const int fd = socket.get();
    auto endpoint = std::make_shared<Endpoint>(*this, std::move(folder), std::move(socket));
    add(fd, EPOLLIN, endpoint);
    if (mEndpoints.empty()) {
        mOwner = getpid();
        std::atexit([] { Process::self().server().removeEndpoints(); });
    }
    mEndpoints.push_back({path, std::move(endpoint)});
    return true;
}

void Server::buryEndpoint(uint64_t process) {
    const auto [grave, isNew] = mGraves.emplace(process, std::make_shared<Grave>(*this, process));
    if (isNew) {
        addGrave(grave->second);
    }
}

void Server::addGrave(const std::shared_ptr<Grave>& grave) {
    if (grave->dig()) {
        grave->setKey(watch(grave->fd(), EPOLLRDHUP, grave));
    } else {
        mGraves.erase(grave->process());
    }
}

void Server::removeEndpoints() {
    Lock lock(mMutex);
    if (getpid() == mOwner) {  // not a child that exits
        for (const OpenEndpoint& open : mEndpoints) {
            open.endpoint->remove();
        }
    }
}

void Server::addClient(unique_fd socket) {
    if (!isTrustedPeer(socket.get()) || !makeRoom()) {
        return;
    }
    auto client = std::make_shared<Client>(*this, std::move(socket));
    const uint64_t key = watch(client->fd(), kReadEvents, client);
    client->start(key);
    mClients[key] = std::move(client);
}

bool Server::makeRoom() {
    if (mClients.size() < kMaxClients) {
        return true;
    }
    auto silent = mClients.end();
    for (auto entry = mClients.begin(); entry != mClients.end(); ++entry) {
        if (!entry->second->holdsObjects() &&
            (silent == mClients.end() ||
             entry->second->lastActive() < silent->second->lastActive())) {
            silent = entry;
        }
    }
    if (silent == mClients.end()) {
        ALOGE("Refusing a connection: there are %zu already", mClients.size());
        return false;
    }
    ALOGE("Ending a connection of process %d: there are %zu, and it was silent for the longest",
          peerPid(silent->second->fd()), mClients.size());
    removeClient(silent->first);
    return true;
}

void Server::removeClient(uint64_t key) {
    const auto client = mClients.find(key);
    unwatch(key, client->second->fd());
    mClients.erase(client);
}

}  // namespace hidl
}  // namespace host
