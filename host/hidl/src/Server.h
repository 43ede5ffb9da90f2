#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <sys/types.h>
#include <utils/Mutex.h>

#include "Connection.h"

namespace host::hidl {

/** Has a descriptor that the serving thread waits for. */
class Watched {
  public:
    virtual ~Watched() = default;

    /** Runs on the serving thread. @param events what epoll reported. */
    virtual void onReady(uint32_t events) = 0;
};

/**
 * The thread that serves other processes' calls and delivers deaths; it waits in epoll_wait without
 * a time-out. Calls from inside a callback do not come here: the thread that waits for the callback
 * serves them (RemoteProcess). At most kMaxClients connections: one more closes the one silent for
 * longest that holds no objects.
 */
class Server {
  public:
    static constexpr size_t kMaxClients = 256;

    Server();
    ~Server();

    /** Says that the program will join; start() then does nothing. */
    void expectJoin() { joinExpected_ = true; }

    /** Starts the serving thread, unless there is one or one is expected. */
    void start();

    /** Serves on this thread, or sleeps when another one serves. Never returns. */
    [[noreturn]] void join();

    /** Opens this process's endpoint if it is not open. Returns false on failure, and logs. */
    bool openEndpoint();

    /**
     * Removes the endpoint of a process whose link has closed, as soon as nobody listens there:
     * that socket may close later than the link. On the serving thread.
     */
    void removeEndpointOnDeath(uint64_t process);

    /** Removes this process's endpoints, at exit; does nothing in a child of fork. */
    void removeEndpoints();

    /** Has the serving thread drop unused exports. Any thread. */
    void wake();

    /** Has the serving thread call `watched`, held weakly, on events of `fd`. Returns a key. */
    uint64_t watch(int fd, uint32_t events, const std::weak_ptr<Watched>& watched);
    void changeEvents(uint64_t key, int fd, uint32_t events);
    /** Before fd is closed. A call of onReady may be running still. */
    void unwatch(uint64_t key, int fd);

  private:
    class Endpoint;
    class Client;
    class DeathWatch;

    struct OpenEndpoint {
        std::string folder;
        std::shared_ptr<Endpoint> endpoint;
    };

    [[noreturn]] void serve_();
    uint64_t add_(int fd, uint32_t events, const std::weak_ptr<Watched>& watched) REQUIRES(mutex_);
    void addClient_(android::base::unique_fd socket);
    bool makeRoom_();
    void connect_(const std::shared_ptr<DeathWatch>& deathWatch);
    void removeClient_(uint64_t key);

    const android::base::unique_fd epoll_;
    std::atomic<bool> joinExpected_{false};
    std::atomic<bool> serving_{false};

    android::Mutex mutex_;
    std::map<uint64_t, std::weak_ptr<Watched>> watched_ GUARDED_BY(mutex_);
    uint64_t lastKey_ GUARDED_BY(mutex_) = 0;
    // One per folder: CORVID_WIFI_ROOT may change while a test program runs.
    std::vector<OpenEndpoint> endpoints_ GUARDED_BY(mutex_);
    pid_t owner_ GUARDED_BY(mutex_) = 0;
    android::base::unique_fd wake_ GUARDED_BY(mutex_);

    // Of the serving thread alone.
    std::map<uint64_t, std::shared_ptr<DeathWatch>> deathWatches_;
    std::map<uint64_t, std::shared_ptr<Client>> clients_;
    uint64_t clock_ = 0;  // counts what clients send, to know the most silent one
};

}  // namespace host::hidl
