#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <android-base/unique_fd.h>

#include "Exports.h"
#include "Frame.h"

namespace host {
namespace hidl {

/** Frames over one connected socket. Used by one thread at a time. */
class Connection {
  public:
    enum class Result {
        Frame,      // a complete one
        Nothing,    // not now
        Closed,     // the other side has gone, between two frames
        Malformed,  // it sent something that is no frame, or ended inside one; see problem()
    };

    explicit Connection(android::base::unique_fd socket) : mSocket(std::move(socket)) {}

    int fd() const { return mSocket.get(); }

    /** Sends a frame, waiting for the other side as long as it takes. False: it has gone. */
    bool send(const FrameHeader& header, const std::vector<ObjectId>& objects, const uint8_t* data);

    /**
     * Sends as much of a frame as can be sent now and keeps the rest, which flush() sends later.
     * So a reader that does not read costs the memory of one frame, and no waiting.
     * False: the other side has gone.
     */
    bool sendWithoutWaiting(const FrameHeader& header, const std::vector<ObjectId>& objects,
                            const uint8_t* data);
    bool flush();
    bool hasUnsent() const { return !mUnsent.empty(); }

    /** Takes in the next frame. @param wait whether to block until there is one. */
    Result receive(Frame* frame, bool wait);

    /** Whether part of a frame has arrived. */
    bool isInsideFrame() const { return !mReader.isEmpty(); }

    /** Whether nothing has arrived on a connection that nothing is expected on, not even its end.
     */
    bool isQuiet() const;

    /** Ends the connection for both sides; the descriptor stays. */
    void shutDown();
    const char* problem() const { return mProblem; }

    /** Objects of this process that are on their way over this connection. */
    std::vector<Exports::Pin> inTransit;

  private:
    size_t sendSome(const FrameHeader& header, const std::vector<ObjectId>& objects,
                    const uint8_t* data, size_t skip, bool wait, bool* failed);

    android::base::unique_fd mSocket;
    FrameReader mReader;
    std::vector<uint8_t> mUnsent;
    size_t mUnsentStart = 0;
    const char* mProblem = nullptr;
};

}  // namespace hidl
}  // namespace host
