#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include "Connection.h"
#include "Mutex.h"

namespace host {
namespace hidl {

/** Has a descriptor that the serving thread waits for. */
class Watched {
  public:
    virtual ~Watched() = default;

    /** Runs on the serving thread. @param events what epoll reported. */
    virtual void onReady(uint32_t events) = 0;
};

/**
 * The one thread of this process that serves calls from others and delivers deaths. It waits in
 * epoll_wait without a time-out.
 *
 * A connection of another process costs a descriptor and the part of a message that has arrived;
 * there are at most kMaxClients. When one more comes, the one that has been silent for the longest
 * time is closed, unless it is a link that holds objects.
 */
class Server {
  public:
    static constexpr size_t kMaxClients = 256;

    Server();
    ~Server();

    /** Promises that the program joins; start() then does nothing. */
    void expectJoin() { mJoinExpected = true; }

    /** Starts the serving thread, unless there is one or one is expected. */
    void start();

    /** Serves on this thread, or sleeps when another one serves. Never returns. */
    [[noreturn]] void join();

    /** Sees to it that this process has an endpoint. False when the folder does not allow it. */
    bool openEndpoint();

    /**
     * Sees to it that the endpoint of a process that is going away does not stay behind. It may
     * still listen for a moment when its other sockets are closed already.
     */
    void buryEndpoint(uint64_t process);

    /** Removes this process's endpoints from their folders, at its end. Not in a forked child. */
    void removeEndpoints();

    /** Has the serving thread look after unused exports. From any thread. */
    void wake();

    /**
     * Has the serving thread call `watched` when `fd` is ready; it holds it weakly.
     * @param events of epoll. @return names the registration.
     */
    uint64_t watch(int fd, uint32_t events, const std::weak_ptr<Watched>& watched);
    void changeEvents(uint64_t key, int fd, uint32_t events);
    /** Before fd is closed. A call of onReady may be running still. */
    void unwatch(uint64_t key, int fd);

  private:
    class Endpoint;
    class Client;
    class Grave;

    struct OpenEndpoint {
        std::string folder;
        std::shared_ptr<Endpoint> endpoint;
    };

    [[noreturn]] void serve();
    uint64_t add(int fd, uint32_t events, const std::weak_ptr<Watched>& watched) REQUIRES(mMutex);
    void addClient(android::base::unique_fd socket);
    bool makeRoom();
    void addGrave(const std::shared_ptr<Grave>& grave);
    void removeClient(uint64_t key);

    const android::base::unique_fd mEpoll;
    std::atomic<bool> mJoinExpected{false};
    std::atomic<bool> mServing{false};

    Mutex mMutex;
    std::map<uint64_t, std::weak_ptr<Watched>> mWatched GUARDED_BY(mMutex);
    uint64_t mLastKey GUARDED_BY(mMutex) = 0;
    // One per folder: CORVID_WIFI_ROOT may change while a test program runs.
    std::vector<OpenEndpoint> mEndpoints GUARDED_BY(mMutex);
    pid_t mOwner GUARDED_BY(mMutex) = 0;
    android::base::unique_fd mWake GUARDED_BY(mMutex);

    // Of the serving thread alone.
    std::map<uint64_t, std::shared_ptr<Grave>> mGraves;
    std::map<uint64_t, std::shared_ptr<Client>> mClients;
    uint64_t mClock = 0;  // counts what clients send, to know the most silent one
};

}  // namespace hidl
}  // namespace host
