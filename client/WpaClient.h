#pragma once

#include <atomic>
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
 * listener thread: the one loop on which directory changes, reconnects, and every subscriber of
 * both sockets run. A handler that blocks there stalls all supplicant traffic. Thread-safe.
 */
class WpaClient {
  public:
    /** Where the supplicant puts its sockets; ends with a slash. */
    static const std::string& socketDirectory();

    /** Starts the listener thread and connects to sockets that are there already. */
    explicit WpaClient(std::string directory = socketDirectory());

    /** Wakes and joins the listener thread; prompt unless a handler or the supplicant hangs. */
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

  private:
    friend class WpaClientTestPeer;

    /** A file, to be told from a later one at the same path. */
    struct SocketFile {
        std::string path;
        dev_t device = 0;
        ino_t inode = 0;
        std::pair<time_t, long> made = {0, 0};  ///< seconds, nanoseconds

        bool operator==(const SocketFile& other) const;
    };
    /** Only the path if there is no such file. */
    static SocketFile identify_(const std::string& path);

    bool startWpaSocketMonitor_();
    void stopWpaSocketMonitor_();
    /** On false, errno says why. */
    bool watchDirectory_();
    /**
     * A supplicant that ends removes the directory if it may and the directory is empty. The parent
     * is watched from then on, until the directory is there again.
     */
    void onDirectoryRemoved_();
    void onParentChange_(uint32_t mask);
    void watchNextDirectory_();
    void stopParentWatch_();
    void startListener_();
    void listen_();
    /**
     * After a failure (out of memory, for example), which may have cost a directory change or the
     * next step of a socket: looks at the directory again, and connects what is not connected.
     */
    void startOver_();
    void stopListener_();
    void addSocket_(NetInterfaceType type);
    /** Connects `socket` to its file if one is there already. */
    void findSocketFile_(NetInterfaceType type, WpaSocket& socket);
    PollAction onSocketUpdate_(int fd, int events);
    void onSocketChange_(uint32_t mask, const std::string& name);
    /** The kernel has dropped directory updates: finds out what they would have said. */
    void onUpdatesLost_();
    void findSocketFileAgain_(NetInterfaceType type, WpaSocket& socket);

    /** Passes a file on to its socket, and remembers which one it is. */
    void follow_(NetInterfaceType type, WpaSocket& socket, const std::string& path)
        EXCLUDES(socketsMutex_);
    void leave_(NetInterfaceType type, WpaSocket& socket) EXCLUDES(socketsMutex_);

    /** Null for a kind without a socket. */
    std::shared_ptr<WpaSocket> findSocket_(NetInterfaceType type) EXCLUDES(socketsMutex_);
    /** As above, with an error line in the name of `caller`. */
    std::shared_ptr<WpaSocket> requireSocket_(NetInterfaceType type, const char* caller);

    const std::string directory_;
    std::thread listener_;
    std::atomic<bool> running_{false};
    const std::shared_ptr<Poll> poll_;
    EventFd eventFd_;
    android::base::unique_fd inotifyFd_;
    int watch_ = -1;  ///< -1 while the directory is not there; listener thread after the start
    int parentWatch_ = -1;  ///< only then; listener thread
    /**
     * Filled in the constructor and cleared in the destructor, both with the listener running; the
     * mutex is held for the look-up only.
     */
    std::map<NetInterfaceType, std::shared_ptr<WpaSocket>> sockets_ GUARDED_BY(socketsMutex_);
    std::map<NetInterfaceType, SocketFile> followed_ GUARDED_BY(socketsMutex_);
    Mutex socketsMutex_;
};

}  // namespace Ursa::OS::Wifi
