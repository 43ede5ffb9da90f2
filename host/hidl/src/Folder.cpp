#define LOG_TAG "hidl"

#include "Folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include <log/log.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "HostRoot.h"

namespace host::hidl {

using android::OK;
using android::status_t;
using android::base::unique_fd;

namespace {

constexpr char kEndpointPrefix[] = "e.";
// Room for as many processes as may want to connect at the same moment.
constexpr int kBacklog = 128;

std::string hex(uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof(text), "%016" PRIx64, number);
    return text;
}

std::string endpointName(uint64_t process) { return kEndpointPrefix + hex(process); }

// A process's number begins with its pid (see Process.cpp).
pid_t pidOf(uint64_t process) { return static_cast<pid_t>(process >> 32); }

// The address of `name` in the folder. A path that is too long for an address is reached through
// the folder's descriptor.
sockaddr_un addressOf(const std::string& path, int folder, const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string whole = path + "/" + name;
    if (whole.size() >= sizeof(address.sun_path)) {
        whole = "/proc/self/fd/" + std::to_string(folder) + "/" + name;
    }
    std::memcpy(address.sun_path, whole.data(),
                std::min(whole.size(), sizeof(address.sun_path) - 1));
    return address;
}

bool peerCredentials(int socket, ucred* credentials) {
    socklen_t size = sizeof(*credentials);
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, credentials, &size) == 0;
}

}  // namespace

std::string Folder::currentPath() { return rootedPath("/dev/hwbinder"); }

Folder::Folder()
    : path_(currentPath()), folder_(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

unique_fd Folder::listenAs(uint64_t process) const {
    if (!isOpen()) {
        errno = ENOENT;
        return {};
    }
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // It gets its name when it listens already, so that an endpoint that refuses is a dead one.
    const std::string draft = "t." + hex(process);
    const sockaddr_un address = addressOf(path_, folder_.get(), draft);
    unlinkat(folder_.get(), draft.c_str(), 0);
    if (!socket.ok() ||
        bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return {};
    }
    if (listen(socket.get(), kBacklog) != 0 ||
        renameat(folder_.get(), draft.c_str(), folder_.get(), endpointName(process).c_str()) != 0) {
        unlinkat(folder_.get(), draft.c_str(), 0);
        return {};
    }
    return socket;
}

unique_fd Folder::connectTo(uint64_t process, bool wait) const {
    if (!isOpen()) {
        errno = ENOENT;
        return {};
    }
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (wait ? 0 : SOCK_NONBLOCK), 0));
    if (!socket.ok()) {
        return {};
    }
    const sockaddr_un address = addressOf(path_, folder_.get(), endpointName(process));
    int result;
    do {
        result =
            connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        return {};
    }
    if (!isTrustedPeer(socket.get())) {
        errno = EACCES;
        return {};
    }
    return socket;
}

void Folder::removeEndpoint(uint64_t process) const {
    unlinkat(folder_.get(), endpointName(process).c_str(), 0);
}

void Folder::removeDeadEndpoints() const {
    const int copy = isOpen() ? openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(copy < 0 ? nullptr : fdopendir(copy),
                                                     closedir);
    while (const dirent* entry = folder == nullptr ? nullptr : readdir(folder.get())) {
        uint64_t process = 0;
        int end = 0;
        if (std::sscanf(entry->d_name, "e.%16" SCNx64 "%n", &process, &end) == 1 &&
            entry->d_name[end] == '\0' && kill(pidOf(process), 0) != 0 && errno == ESRCH &&
            // Its pid may be unknown here only because of a namespace.
            !connectTo(process, false).ok() && errno == ECONNREFUSED) {
            removeEndpoint(process);
        }
    }
}

status_t Folder::takeName(const std::string& name, unique_fd* lock) const {
    if (!isOpen()) {
        return android::NAME_NOT_FOUND;
    }
    lock->reset(openat(folder_.get(), name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (lock->ok() && flock(lock->get(), LOCK_EX | LOCK_NB) == 0) {
        return OK;
    }
    const int error = errno;
    lock->reset();
    return error == EWOULDBLOCK ? android::ALREADY_EXISTS : -error;
}

status_t Folder::writeService(int lock, const ObjectId& object) {
    const std::string line = hex(object.process) + " " + hex(object.object) + "\n";
    if (ftruncate(lock, 0) != 0 ||
        pwrite(lock, line.data(), line.size(), 0) != static_cast<ssize_t>(line.size())) {
        return -errno;
    }
    return OK;
}

bool Folder::readService(const std::string& name, ObjectId* object) const {
    const unique_fd file(isOpen() ? openat(folder_.get(), name.c_str(), O_RDONLY | O_CLOEXEC) : -1);
    char line[64] = {};
    const ssize_t size = file.ok() ? pread(file.get(), line, sizeof(line) - 1, 0) : -1;
    int end = 0;
    // The newline tells a complete line from one that is being written.
    return size > 0 &&
           std::sscanf(line, "%16" SCNx64 " %16" SCNx64 "%n", &object->process, &object->object,
                       &end) == 2 &&
           end == size - 1 && line[end] == '\n';
}

bool isTrustedPeer(int socket) {
    ucred credentials{};
    if (!peerCredentials(socket, &credentials)) {
        ALOGE("Refusing a connection: its credentials can't be told: %s", strerror(errno));
        return false;
    }
    if (credentials.uid != 0 && credentials.uid != geteuid()) {
        ALOGE("Refusing a connection: process %d belongs to user %u", credentials.pid,
              credentials.uid);
        return false;
    }
    return true;
}

int peerPid(int socket) {
    ucred credentials{};
    return peerCredentials(socket, &credentials) ? credentials.pid : 0;
}

}  // namespace host::hidl
