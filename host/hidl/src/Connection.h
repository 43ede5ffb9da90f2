#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <android-base/unique_fd.h>
#include <sys/types.h>
#include <sys/uio.h>

#include "Exports.h"
#include "Frame.h"

namespace host::hidl {

/** A frame to be sent; refers to what its sender keeps. */
struct OutgoingFrame {
    const FrameHeader& header;
    const std::vector<ObjectId>& objects;
    const uint8_t* data;
    const std::vector<int>& descriptors;

    size_t size() const;
};

/** Frames over one connected socket. Used by one thread at a time. */
class Connection {
  public:
    enum class Result {
        Frame,      // a complete frame
        Nothing,    // no complete frame yet
        Closed,     // by the peer, between two frames
        Malformed,  // invalid, or closed by the peer inside a frame; see problem()
    };

    explicit Connection(android::base::unique_fd socket) : socket_(std::move(socket)) {}

    int fd() const { return socket_.get(); }

    /** Sends a frame, waiting while the peer does not read. Returns false if the peer is gone. */
    bool send(const OutgoingFrame& frame);
    /** A frame that carries nothing. */
    bool send(const FrameHeader& header) { return send({header, {}, nullptr, {}}); }

    /**
     * Sends what the socket takes now and keeps the rest, with copies of the frame's descriptors,
     * for flush(): a peer that does not read costs one frame's memory and no waiting. Only when
     * nothing is unsent. Returns false if the peer is gone.
     */
    bool sendWithoutWaiting(const OutgoingFrame& frame);
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
    std::optional<size_t> sendSome_(const OutgoingFrame& frame, size_t skip, bool wait);
    std::optional<size_t> sendBytes_(iovec* parts, size_t count,
                                     const std::vector<int>& descriptors, bool wait);
    /** recv() that takes the descriptors, too. */
    ssize_t receiveSome_(bool wait);
    /** Returns false if there is no descriptor left for a copy. */
    bool keepDescriptors_(const std::vector<int>& descriptors);

    android::base::unique_fd socket_;
    FrameReader reader_;
    std::vector<uint8_t> unsent_;
    size_t unsentStart_ = 0;
    std::vector<android::base::unique_fd> unsentDescriptors_;  // until the first byte is sent
    const char* problem_ = nullptr;
};

}  // namespace host::hidl
