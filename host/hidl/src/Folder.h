#pragma once

#include <cstdint>
#include <string>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

#include "Frame.h"

namespace host {
namespace hidl {

/**
 * The folder in which processes meet: /dev/hwbinder of the device. It holds
 *  - `e.PROCESS`, the socket that a process listens on, its endpoint. It appears when the process
 *    listens and is never used again after the process has gone;
 *  - `DESCRIPTOR,INSTANCE`, one file per service. Its owner holds an exclusive lock (flock) on it
 *    for as long as it lives, so the kernel frees the name however the owner ends. Its content is
 *    one line, the object's process and number.
 */
class Folder {
  public:
    /** Where the folder is now: CORVID_WIFI_ROOT may change while a test program runs. */
    static std::string currentPath();

    /** Opens the folder. It is never created here; see isOpen. */
    Folder();

    /** False when the folder is missing; every operation fails then. */
    bool isOpen() const { return mFolder.ok(); }
    const std::string& path() const { return mPath; }

    /** A socket that listens as the endpoint of `process`, non-blocking; invalid on failure. */
    android::base::unique_fd listenAs(uint64_t process) const;

    /**
     * A connection to the endpoint of `process`; invalid, with errno set, when it can't be had.
     * @param wait false: fails with EAGAIN where connecting would block, because the process
     *     does not accept the connections that are already queued.
     */
    android::base::unique_fd connectTo(uint64_t process, bool wait) const;

    /** Removes an endpoint: this process's own, or one that refuses connections. */
    void removeEndpoint(uint64_t process) const;

    /** Removes all endpoints that processes have left behind which were killed. */
    void removeDeadEndpoints() const;

    /**
     * Takes the name of a service.
     * @param lock receives what holds the name until it is closed.
     * @return OK, NAME_NOT_FOUND for a missing folder, ALREADY_EXISTS for a name that is taken,
     *     or -errno.
     */
    android::status_t takeName(const std::string& name, android::base::unique_fd* lock) const;

    /** Writes where the service is, under a name that has been taken. */
    static android::status_t writeService(int lock, const ObjectId& object);

    /** False when no service has (had) that name. Its process may be gone. */
    bool readService(const std::string& name, ObjectId* object) const;

  private:
    std::string mPath;
    android::base::unique_fd mFolder;
};

/** Whether a connection's other end belongs to this user or to root. Logs when it does not. */
bool isTrustedPeer(int socket);

/** The pid of a connection's other end, 0 when it can't be told. */
int peerPid(int socket);

}  // namespace hidl
}  // namespace host
