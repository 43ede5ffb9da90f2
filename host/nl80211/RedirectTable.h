#pragma once

#include <atomic>
#include <cstdint>
#include <map>

#include <sys/types.h>
#include <utils/Mutex.h>

#include "PendingRequests.h"

namespace host {

/** State of the netlink socket that a redirected socket stands for. */
struct Redirected {
    /** SOCK_RAW or SOCK_DGRAM, as the program asked for. */
    int type = 0;
    /** The socket's netlink address; 0 until it is bound. */
    uint32_t port = 0;
    PendingRequests pending;
};

/**
 * The redirected sockets of this process, by inode number: a copy of a descriptor (dup, fork) is
 * recognised, and a number that was closed and belongs to another file now is not. Thread-safe; a
 * child of fork has a usable copy.
 */
class RedirectTable {
  public:
    /** The process's table. It is never destroyed. */
    static RedirectTable& instance();

    /** Adds the socket `fd`. From time to time, forgets sockets that are no longer open. */
    void add(int fd, int type);

    /**
     * If `fd` is a redirected socket, calls `use(Redirected&)` under the table's lock. Returns
     * whether it is. Does not change errno.
     */
    template <typename Use>
    bool with(int fd, Use use) {
        if (!used_) {
            return false;
        }
        const ino_t inode = socketInode_(fd);
        const android::Mutex::Autolock lock(mutex_);
        const auto entry = sockets_.find(inode);
        if (entry == sockets_.end()) {
            return false;
        }
        use(entry->second);
        return true;
    }

    bool contains(int fd) {
        return with(fd, [](const Redirected&) {});
    }

  private:
    RedirectTable();

    /** 0 when `fd` is no socket. */
    static ino_t socketInode_(int fd);

    void forgetClosed_() REQUIRES(mutex_);

    /** Whether there was ever a redirected socket: without one there is no look-up. */
    std::atomic<bool> used_{false};
    android::Mutex mutex_;
    std::map<ino_t, Redirected> sockets_ GUARDED_BY(mutex_);
    /** The size at which closed sockets are looked for. */
    size_t crowded_ GUARDED_BY(mutex_) = 64;
};

}  // namespace host
