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
#include <exception>
#include <thread>
#include <utility>

#include <log/log.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "Folder.h"
#include "Process.h"

namespace host::hidl {

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

/** Accepts the connections of other processes. */
class Server::Endpoint : public Watched {
  public:
    Endpoint(Server& server, Folder folder, unique_fd socket)
        : server_(server),
          folder_(std::move(folder)),
          socket_(std::move(socket)),
          reserve_(open("/dev/null", O_RDONLY | O_CLOEXEC)) {}

    int fd() const { return socket_.get(); }
    void remove() const { folder_.removeEndpoint(Process::self().id()); }

    void onReady(uint32_t /*events*/) override {
        for (int i = 0; i < kBatch; ++i) {
            unique_fd client(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (client.ok()) {
                add_(std::move(client));
            } else if (errno == EMFILE || errno == ENFILE) {
                // Left in the queue it would wake this thread again and again.
                ALOGE("Refusing a connection: %s", strerror(errno));
                reserve_.reset();
                unique_fd(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)).reset();
                reserve_.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
            } else if (errno != EINTR && errno != ECONNABORTED) {
                return;
            }
        }
    }

  private:
    void add_(unique_fd client) {
        try {
            server_.addClient_(std::move(client));
        } catch (const std::exception& error) {
            ALOGE("Refusing a connection: %s", error.what());
        }
    }

    Server& server_;
    const Folder folder_;
    const unique_fd socket_;
    unique_fd reserve_;  // for accepting, and closing, a connection when there is no descriptor
};

/** A connection from another process. Used by the serving thread. */
class Server::Client : public Watched {
  public:
    Client(Server& server, unique_fd socket) : server_(server), connection_(std::move(socket)) {}
    ~Client() override {
        for (const auto& [object, uses] : held_) {
            Process::self().exports().release(object, uses);
        }
    }

    void start(uint64_t key) {
        key_ = key;
        lastActive_ = ++server_.clock_;
    }
    int fd() const { return connection_.fd(); }
    bool holdsObjects() const { return !held_.empty(); }
    uint64_t lastActive() const { return lastActive_; }

    void onReady(uint32_t /*events*/) override {
        lastActive_ = ++server_.clock_;
        if (!goOn_()) {
            server_.removeClient_(key_);
        }
    }

  private:
    /** Returns false if the connection must be closed. */
    bool goOn_() {
        try {
            return sendRest_() && (connection_.hasUnsent() || receive_());
        } catch (const std::exception& error) {
            // Out of memory, or a method that throws: the others are served all the same.
            logEnd(connection_, error.what());
            return false;
        }
    }

    /** Returns false if the connection must be closed. */
    bool sendRest_() {
        if (!connection_.hasUnsent()) {
            return true;
        }
        if (!connection_.flush()) {
            return false;
        }
        if (!connection_.hasUnsent()) {
            server_.changeEvents(key_, fd(), kReadEvents);
        }
        return true;
    }

    /** Returns false if the connection must be closed. */
    bool receive_() {
        for (int i = 0; i < kBatch; ++i) {
            Frame frame;
            switch (connection_.receive(&frame, false)) {
                case Connection::Result::Frame:
                    break;
                case Connection::Result::Nothing:
                    return true;
                case Connection::Result::Closed:
                    return false;
                case Connection::Result::Malformed:
                    logEnd(connection_, connection_.problem());
                    return false;
            }
            const bool isCall = frame.header.type == FrameType::Call;
            if (!handle_(std::move(frame))) {
                return false;
            }
            if (connection_.hasUnsent()) {
                server_.changeEvents(key_, fd(), EPOLLOUT);  // nothing new before that is out
                return true;
            }
            if (isCall) {
                return true;  // its caller waits for the reply before it sends more
            }
        }
        return true;
    }

    bool handle_(Frame frame) {
        const uint64_t object = frame.header.target;
        switch (frame.header.type) {
            case FrameType::Call:
                connection_.inTransit.clear();
                return Process::self().serveCall(connection_, std::move(frame), false);
            case FrameType::Acquire:
                if (!Process::self().exports().acquire(object)) {
                    logEnd(connection_, "it acquires an object that does not exist");
                    return false;
                }
                ++held_[object];
                return true;
            case FrameType::Release: {
                const auto held = held_.find(object);
                if (held == held_.end()) {
                    logEnd(connection_, "it releases an object that it does not hold");
                    return false;
                }
                if (--held->second == 0) {
                    held_.erase(held);
                }
                Process::self().exports().release(object, 1);
                return true;
            }
            case FrameType::Done:
                connection_.inTransit.clear();
                return true;
            case FrameType::Reply:
                break;
        }
        logEnd(connection_, "it replies where nothing was asked");
        return false;
    }

    Server& server_;
    Connection connection_;
    uint64_t key_ = 0;
    uint64_t lastActive_ = 0;
    std::map<uint64_t, uint32_t> held_;
};

/** Notices when another process dies: it closes its end of a connection to its endpoint. */
class Server::DeathWatch : public Watched {
  public:
    DeathWatch(Server& server, uint64_t process) : server_(server), process_(process) {}

    /** Returns false if the process is dead, and its endpoint removed, or if it is alive. */
    bool connect() {
        if (++tries_ > kMaxTries) {
            return false;  // it is alive, and closes each of these connections
        }
        const Folder folder;
        socket_ = folder.connectTo(process_, false);
        if (!socket_.ok() && errno == ECONNREFUSED) {
            folder.removeEndpoint(process_);
        }
        return socket_.ok();
    }
    int fd() const { return socket_.get(); }
    uint64_t process() const { return process_; }
    void setKey(uint64_t key) { key_ = key; }

    void onReady(uint32_t /*events*/) override {
        server_.unwatch(key_, fd());
        server_.connect_(server_.deathWatches_.at(process_));
    }

  private:
    static constexpr int kMaxTries = 3;

    Server& server_;
    const uint64_t process_;
    int tries_ = 0;
    unique_fd socket_;
    uint64_t key_ = 0;
};

Server::Server() : epoll_(createEpoll()) {}

Server::~Server() = default;

void Server::start() {
    if (joinExpected_ || serving_.exchange(true)) {
        return;
    }
    // The program's own threads handle its signals.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    std::thread thread([this] { serve_(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    pthread_setname_np(thread.native_handle(), "hidl");
    thread.detach();
}

void Server::join() {
    if (!serving_.exchange(true)) {
        serve_();
    }
    for (;;) {
        pause();
    }
}

void Server::serve_() {
    isServingThread = true;
    for (;;) {
        epoll_event events[kBatch];
        // If no descriptor is ready, every Acquire for the objects that are now unused was read.
        const uint64_t unused = Process::self().exports().lastUnused();
        const int count = epoll_wait(epoll_.get(), events, kBatch, unused > 0 ? 0 : -1);
        if (count == 0) {
            Process::self().exports().collect(unused);
        }
        for (int i = 0; i < count; ++i) {
            const uint64_t key = events[i].data.u64;  // a copy: the structure is packed
            std::shared_ptr<Watched> watched;
            {
                const android::Mutex::Autolock lock(mutex_);
                if (key == kWakeKey) {
                    eventfd_t wakes;
                    eventfd_read(wake_.get(), &wakes);
                    continue;
                }
                const auto entry = watched_.find(key);
                watched = entry == watched_.end() ? nullptr : entry->second.lock();
            }
            if (watched != nullptr) {
                watched->onReady(events[i].events);
            }
        }
    }
}

void Server::wake() {
    if (isServingThread || !serving_) {
        return;  // the serving thread checks before it sleeps
    }
    const android::Mutex::Autolock lock(mutex_);
    if (!wake_.ok()) {
        wake_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = kWakeKey;
        if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wake_.get(), &event) != 0) {
            ALOGE("epoll_ctl: %s", strerror(errno));
        }
    }
    eventfd_write(wake_.get(), 1);
}

uint64_t Server::watch(int fd, uint32_t events, const std::weak_ptr<Watched>& watched) {
    const android::Mutex::Autolock lock(mutex_);
    return add_(fd, events, watched);
}

uint64_t Server::add_(int fd, uint32_t events, const std::weak_ptr<Watched>& watched) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = ++lastKey_;
    watched_[lastKey_] = watched;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        ALOGE("epoll_ctl: %s", strerror(errno));
    }
    return lastKey_;
}

void Server::changeEvents(uint64_t key, int fd, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = key;
    epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event);
}

void Server::unwatch(uint64_t key, int fd) {
    const android::Mutex::Autolock lock(mutex_);
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    watched_.erase(key);
}

bool Server::openEndpoint() {
    const std::string path = Folder::currentPath();
    const android::Mutex::Autolock lock(mutex_);
    const auto isHere = [&](const OpenEndpoint& open) { return open.folder == path; };
    if (std::any_of(endpoints_.begin(), endpoints_.end(), isHere)) {
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
    add_(fd, EPOLLIN, endpoint);
    if (endpoints_.empty()) {
        owner_ = getpid();
        std::atexit([] { Process::self().server().removeEndpoints(); });
    }
    endpoints_.push_back({path, std::move(endpoint)});
    return true;
}

void Server::removeEndpointOnDeath(uint64_t process) {
    const auto [entry, isNew] =
        deathWatches_.emplace(process, std::make_shared<DeathWatch>(*this, process));
    if (isNew) {
        connect_(entry->second);
    }
}

void Server::connect_(const std::shared_ptr<DeathWatch>& deathWatch) {
    if (deathWatch->connect()) {
        deathWatch->setKey(watch(deathWatch->fd(), EPOLLRDHUP, deathWatch));
    } else {
        deathWatches_.erase(deathWatch->process());
    }
}

void Server::removeEndpoints() {
    const android::Mutex::Autolock lock(mutex_);
    if (getpid() == owner_) {  // not a child that exits
        for (const OpenEndpoint& open : endpoints_) {
            open.endpoint->remove();
        }
    }
}

void Server::addClient_(unique_fd socket) {
    if (!isTrustedPeer(socket.get()) || !makeRoom_()) {
        return;
    }
    auto client = std::make_shared<Client>(*this, std::move(socket));
    const uint64_t key = watch(client->fd(), kReadEvents, client);
    client->start(key);
    clients_[key] = std::move(client);
}

bool Server::makeRoom_() {
    if (clients_.size() < kMaxClients) {
        return true;
    }
    auto silent = clients_.end();
    for (auto entry = clients_.begin(); entry != clients_.end(); ++entry) {
        if (!entry->second->holdsObjects() &&
            (silent == clients_.end() ||
             entry->second->lastActive() < silent->second->lastActive())) {
            silent = entry;
        }
    }
    if (silent == clients_.end()) {
        ALOGE("Refusing a connection: there are %zu already", clients_.size());
        return false;
    }
    ALOGE("Ending a connection of process %d: there are %zu, and it was silent for the longest",
          peerPid(silent->second->fd()), clients_.size());
    removeClient_(silent->first);
    return true;
}

void Server::removeClient_(uint64_t key) {
    const auto client = clients_.find(key);
    unwatch(key, client->second->fd());
    clients_.erase(client);
}

}  // namespace host::hidl
