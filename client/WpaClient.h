#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <android-base/unique_fd.h>
#include <sys/types.h>
#include <ursa/os/EventFd.h>

#include "client/NetInterfaceType.h"
#include "client/WifiClientCallbackType.h"
#include "client/WpaSocket.h"
#include "os/Mutex.h"
#include "os/Poll.h"

namespace Ursa::OS::Wifi {

/**
 * Finds the supplicant's control sockets, follows their creation and deletion, and owns the
 * listener thread, the one loop that runs directory changes, reconnects and every subscriber of
 * both sockets. A subscriber that blocks stalls all of them. Thread-safe.
 */
class WpaClient {
  public:
    /** Where the supplicant puts its sockets; ends with a slash. */
    static const std::string& socketDirectory();

    /**
     * Starts the listener thread and connects to sockets that are there already. `replyTimeout` is
     * the wait for the supplicant's reply to a command.
     */
    explicit WpaClient(History& history, std::string directory = socketDirectory(),
                       std::chrono::milliseconds replyTimeout = WpaSocket::kReplyTimeout);

    /** Wakes and joins the listener thread. Waits for a running handler and its command. */
    ~WpaClient();

    WpaClient(const WpaClient&) = delete;
    WpaClient& operator=(const WpaClient&) = delete;

    /** See WpaSocket::registerEventCallback. -1 also for an interface kind without a socket. */
    int registerEventCallback(WifiClientCallbackType type,
                              std::function<void(const std::string&)>& callback,
                              NetInterfaceType ifType);

    /** See WpaSocket::unregisterEventCallback. */
    bool unregisterEventCallback(WifiClientCallbackType type, int handle, NetInterfaceType ifType);

    /** See WpaSocket::sendCtrlCmd. An interface kind without a socket leaves `reply` as it is. */
    bool sendCtrlCmd(const std::string& cmd, std::string& reply, NetInterfaceType ifType);

    const std::string& directory() const { return directory_; }
    /** One socket, for reports; nothing for a kind without one. Does not wait for a command. */
    StateTree describe(NetInterfaceType ifType);
    /** The socket's command that waits for its reply; nothing if there is none. */
    StateTree describePending(NetInterfaceType ifType);

  private:
    friend class WpaClientTestPeer;

    /** Identifies a socket file, so that a new file at the same path is recognised as new. */
    struct SocketFile {
        std::string path;
        dev_t device = 0;
        ino_t inode = 0;
        std::pair<time_t, long> made = {0, 0};  ///< time of creation: seconds, nanoseconds

        bool operator==(const SocketFile& other) const;
    };
    /** Fills in only the path if there is no such file. */
    static SocketFile identify_(const std::string& path);

    bool startWpaSocketMonitor_();
    void stopWpaSocketMonitor_();
    /** Returns false on failure, with errno set. */
    bool watchDirectory_();
    /**
     * Watches the parent until the directory is back. A supplicant that ends removes the directory
     * if it is empty and permissions allow.
     */
    void onDirectoryRemoved_();
    void onParentChange_(uint32_t mask);
    /** Watches the directory again if it is back, and looks for sockets in it. */
    void watchNextDirectory_();
    void stopParentWatch_();
    void startListener_();
    void listen_();
    /**
     * After an exception on the loop (std::bad_alloc, for example), which may have lost a directory
     * change or a socket's next step: reads the directory again and reconnects every socket that is
     * not connected.
     */
    void startOver_();
    void stopListener_();
    void addSocket_(NetInterfaceType type, std::chrono::milliseconds replyTimeout);
    /** Connects `socket` to its file if one is there already. */
    void findSocketFile_(NetInterfaceType type, WpaSocket& socket);
    PollAction onSocketUpdate_(int fd, int events);
    void onSocketChange_(uint32_t mask, const std::string& name);
    /** inotify has overflowed: reads the directory again and acts on the differences. */
    void onUpdatesLost_();
    void findSocketFileAgain_(NetInterfaceType type, WpaSocket& socket);

    /** Hands the file at `path` to its socket, which connects, and remembers the file. */
    void follow_(NetInterfaceType type, WpaSocket& socket, const std::string& path)
        EXCLUDES(socketsMutex_);
    /** Forgets the socket's file; the socket disconnects. */
    void leave_(NetInterfaceType type, WpaSocket& socket) EXCLUDES(socketsMutex_);

    /** Null for a kind without a socket. */
    std::shared_ptr<WpaSocket> findSocket_(NetInterfaceType type) EXCLUDES(socketsMutex_);
    /** As above; logs an error that names `caller` if null. */
    std::shared_ptr<WpaSocket> requireSocket_(NetInterfaceType type, const char* caller);

    History& history_;
    const std::string directory_;
    std::thread listener_;
    std::atomic<bool> running_{false};
    const std::shared_ptr<Poll> poll_;
    EventFd eventFd_;
    android::base::unique_fd inotifyFd_;
    int watch_ = -1;        ///< -1 while there is no directory; listener thread once it runs
    int parentWatch_ = -1;  ///< -1 while there is a directory; listener thread
    /** Filled in the constructor and cleared in the destructor, while the listener is running. */
    std::map<NetInterfaceType, std::shared_ptr<WpaSocket>> sockets_ GUARDED_BY(socketsMutex_);
    std::map<NetInterfaceType, SocketFile> followed_ GUARDED_BY(socketsMutex_);
    Mutex socketsMutex_;
};

}  // namespace Ursa::OS::Wifi
