#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

#include "Connection.h"
#include "Exports.h"
#include "Frame.h"
#include "Server.h"

namespace host::hidl {

class RemoteProcess;

/**
 * This process among those that call each other. Made at the first use and never destroyed, since
 * threads may use it during exit. Aborts if it is used in a child of fork. Thread-safe.
 */
class Process {
  public:
    static Process& self();

    /** This process's number: the pid in the upper half, a random number in the lower one. */
    uint64_t id() const { return id_; }
    Exports& exports() { return exports_; }
    Server& server() { return server_; }

    /** Connects to another process; if that fails, it counts as dead. Does not block. */
    std::shared_ptr<RemoteProcess> remote(uint64_t process);

    /** Called when a RemoteProcess ends. */
    void forget(uint64_t process);

    /** The object that an id names; null for an object of this process that is not exported. */
    android::sp<android::hardware::IBinder> objectOf(const ObjectId& id);

    /**
     * The ids of a parcel's objects. `pins` keep those of this process until they have arrived.
     * Returns NO_INIT if this process can't be reached by others.
     */
    android::status_t nameObjects(const android::hardware::Parcel& parcel,
                                  std::vector<ObjectId>* ids, std::vector<Exports::Pin>* pins);

    /** Makes a received frame a parcel. False when it names an object that does not exist. */
    bool readParcel(Frame frame, android::hardware::Parcel* parcel);

    /**
     * Serves one call and sends the reply, which may block if `wait` is set. Returns false, and
     * logs, if the connection must be closed.
     */
    bool serveCall(Connection& connection, Frame frame, bool wait);

    /** The connection on which `process` waits for this thread's reply to it, or null. */
    static Connection* connectionOfCaller(uint64_t process);

    /** The connection of the call that this thread serves; null when it serves none. */
    static Connection* connectionOfCall();

  private:
    Process();

    /** Sends a reply, or the error `status`. Returns false if the caller is gone. */
    bool sendReply_(Connection& connection, const android::hardware::Parcel& reply,
                    android::status_t status, bool wait);

    const uint64_t id_;
    Exports exports_;
    Server server_;

    android::Mutex mutex_;
    std::map<uint64_t, std::weak_ptr<RemoteProcess>> remotes_ GUARDED_BY(mutex_);
};

/** Whether a parcel can be sent. */
bool fitsFrame(const android::hardware::Parcel& parcel);

/** Logs that a connection is ended because of what the other side did. */
void logEnd(const Connection& connection, const char* problem);

}  // namespace host::hidl
