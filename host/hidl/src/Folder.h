#pragma once

#include <cstdint>
#include <string>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

#include "Frame.h"

namespace host::hidl {

/**
 * The folder in which processes meet: /dev/hwbinder of the device. It holds a process's endpoint
 * (`e.PROCESS`, the socket on which it listens) and a locked file per service
 * (`DESCRIPTOR,INSTANCE`); see docs/host-platform.md. Immutable, so any thread may use it.
 */
class Folder {
  public:
    /** Where the folder is now: CORVID_WIFI_ROOT may change while a test program runs. */
    static std::string currentPath();

    /** Opens the folder. It is never created here; see isOpen. */
    Folder();

    /** False when the folder is missing; every operation fails then. */
    bool isOpen() const { return folder_.ok(); }
    const std::string& path() const { return path_; }

    /** A socket that listens as the endpoint of `process`, non-blocking; invalid on failure. */
    android::base::unique_fd listenAs(uint64_t process) const;

    /**
     * Connects to the endpoint of `process`. Invalid on failure, with errno set.
     * @param wait false: fails with EAGAIN if the process does not accept the queued connections.
     */
    android::base::unique_fd connectTo(uint64_t process, bool wait) const;

    /** Removes an endpoint: this process's own, or one that refuses connections. */
    void removeEndpoint(uint64_t process) const;

    /** Removes all endpoints that processes have left behind which were killed. */
    void removeDeadEndpoints() const;

    /**
     * Takes the name of a service, until `lock` is closed. Returns OK, NAME_NOT_FOUND if the folder
     * is missing, ALREADY_EXISTS if the name is taken, or -errno.
     */
    android::status_t takeName(const std::string& name, android::base::unique_fd* lock) const;

    /** Writes where the service is, under a name that has been taken. */
    static android::status_t writeService(int lock, const ObjectId& object);

    /** False when no service has (had) that name. Its process may be gone. */
    bool readService(const std::string& name, ObjectId* object) const;

  private:
    std::string path_;
    android::base::unique_fd folder_;
};

/** Whether a connection's peer belongs to this user or to root. Logs if not. */
bool isTrustedPeer(int socket);

/** The pid of a connection's peer, 0 if unknown. */
int peerPid(int socket);

}  // namespace host::hidl
