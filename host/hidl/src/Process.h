#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "Connection.h"
#include "Exports.h"
#include "Frame.h"
#include "Mutex.h"
#include "Server.h"

namespace host {
namespace hidl {

class RemoteProcess;

/**
 * This process among those that call each other: made at the first use, never destroyed (threads
 * may still use it while the program exits). A process that was forked after that can't use it,
 * and aborts when it tries. All methods may be called from any thread.
 */
class Process {
  public:
    static Process& self();

    /** This process's number: the pid in the upper half, a random number in the lower one. */
    uint64_t id() const { return mId; }
    Exports& exports() { return mExports; }
    Server& server() { return mServer; }

    /** Another process, connected; a dead one when it can't be reached. Does not block. */
    std::shared_ptr<RemoteProcess> remote(uint64_t process);

    /** Called when a RemoteProcess ends. */
    void forget(uint64_t process);

    /** The object that an id names; null for an object of this process that is not exported. */
    android::sp<android::hardware::IBinder> objectOf(const ObjectId& id);

    /**
     * Names a parcel's objects for other processes.
     * @param pins receives what keeps those of this process until they have arrived.
     * @return OK, or why it can't be done.
     */
    android::status_t nameObjects(const android::hardware::Parcel& parcel,
                                  std::vector<ObjectId>* ids, std::vector<Exports::Pin>* pins);

    /** Makes a received frame a parcel. False when it names an object that does not exist. */
    bool readParcel(Frame frame, android::hardware::Parcel* parcel);

    /**
     * Serves one call that has arrived on `connection` and sends the reply.
     * @param wait whether sending the reply may block.
     * @return false when the connection is to be ended; that has been logged.
     */
    bool serveCall(Connection& connection, Frame frame, bool wait);

    /** The connection on which `process` waits for this thread's reply to it, or null. */
    static Connection* connectionOfCaller(uint64_t process);

  private:
    Process();

    const uint64_t mId;
    Exports mExports;
    Server mServer;

    Mutex mMutex;
    std::map<uint64_t, std::weak_ptr<RemoteProcess>> mRemotes GUARDED_BY(mMutex);
};

/** Logs that a connection is ended because of what the other side did. */
void logEnd(const Connection& connection, const char* problem);

}  // namespace hidl
}  // namespace host
