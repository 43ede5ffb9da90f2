#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <android-base/unique_fd.h>

#include "Exports.h"
#include "Frame.h"

namespace host::hidl {

/** Frames over one connected socket. Used by one thread at a time. */
class Connection {
  public:
    enum class Result {
        Frame,      // a complete one
        Nothing,    // not now
        Closed,     // by the peer, between two frames
        Malformed,  // no frame, or the end of the connection inside one; see problem()
    };

    explicit Connection(android::base::unique_fd socket) : socket_(std::move(socket)) {}

    int fd() const { return socket_.get(); }

    /** Sends a frame, waiting while the peer does not read. Returns false if the peer is gone. */
    bool send(const FrameHeader& header, const std::vector<ObjectId>& objects, const uint8_t* data);

    /**
     * Sends what can be sent now; flush() sends the rest later. So a peer that does not read costs
     * the memory of one frame, and no waiting. Returns false if the peer is gone.
     */
    bool sendWithoutWaiting(const FrameHeader& header, const std::vector<ObjectId>& objects,
                            const uint8_t* data);
    bool flush();
    bool hasUnsent() const { return !unsent_.empty(); }

    /** Takes in the next frame. @param wait whether to block until there is one. */
    Result receive(Frame* frame, bool wait);

    /** Whether the connection is open, with nothing to be read. */
    bool isQuiet() const;

    /** Ends the connection for both sides; the descriptor stays. */
    void shutDown();
    const char* problem() const { return problem_; }

    /** This process's objects that are on their way over this connection. */
    std::vector<Exports::Pin> inTransit;

  private:
    /**
     * Sends what the socket takes of the frame without its first `skip` bytes. Returns how much, or
     * nothing if the peer is gone.
     */
    std::optional<size_t> sendSome_(const FrameHeader& header, const std::vector<ObjectId>& objects,
                                    const uint8_t* data, size_t skip, bool wait);

    android::base::unique_fd socket_;
    FrameReader reader_;
    std::vector<uint8_t> unsent_;
    size_t unsentStart_ = 0;
    const char* problem_ = nullptr;
};

}  // namespace host::hidl
