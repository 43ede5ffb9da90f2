#include "RedirectTable.h"

#include <dirent.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>

#include <sys/stat.h>

namespace host {

RedirectTable& RedirectTable::instance() {
    static RedirectTable* const table = new RedirectTable;
    return *table;
}

namespace {

/**
 * The table is made before the program has a second thread. ThreadSanitizer, which this library is
 * built without, does not see how threads wait for one another's first use of instance().
 */
[[gnu::constructor]] void makeTable() { RedirectTable::instance(); }

}  // namespace

RedirectTable::RedirectTable() {
    // A child of fork gets the table in no other thread's hands.
    pthread_atfork([]() NO_THREAD_SAFETY_ANALYSIS { instance().mutex_.lock(); },
                   []() NO_THREAD_SAFETY_ANALYSIS { instance().mutex_.unlock(); },
                   []() NO_THREAD_SAFETY_ANALYSIS { instance().mutex_.unlock(); });
}

void RedirectTable::add(int fd, int type) {
    const ino_t inode = socketInode_(fd);
    Redirected socket;
    socket.type = type;
    const android::Mutex::Autolock lock(mutex_);
    if (sockets_.size() >= crowded_) {
        forgetClosed_();
        crowded_ = std::max<size_t>(64, 2 * sockets_.size());
    }
    sockets_.insert_or_assign(inode, std::move(socket));
    used_ = true;
}

ino_t RedirectTable::socketInode_(int fd) {
    const int savedErrno = errno;
    struct stat status = {};
    const bool socket = fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode);
    errno = savedErrno;
    return socket ? status.st_ino : 0;
}

void RedirectTable::forgetClosed_() {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
    if (folder == nullptr) {
        return;
    }
    std::set<ino_t> open;
    while (const dirent* entry = readdir(folder.get())) {
        struct stat status = {};
        if (fstatat(dirfd(folder.get()), entry->d_name, &status, 0) == 0) {
            open.insert(status.st_ino);
        }
    }
    for (auto socket = sockets_.begin(); socket != sockets_.end();) {
        socket = open.count(socket->first) != 0 ? std::next(socket) : sockets_.erase(socket);
    }
}

}  // namespace host
