#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace host {
namespace hidl {

/**
 * The messages between processes.
 *
 * Each process that has objects to be called listens on a socket of its own, its endpoint (see
 * Folder.h). A process that holds objects of another one keeps a link: a connection to the
 * owner's endpoint on which it says Acquire for an object that it begins to hold and Release for
 * one that it no longer does. When the link ends, each side knows that the other process has gone
 * away. Calls are made on further connections, each with one call under way at a time; a Call
 * that is not oneway is answered by a Reply. While a caller waits for the Reply, the other side
 * may send it a Call on the same connection, which is served by the waiting thread (nested
 * calls). The receiver of a Reply with objects answers Done when it has acquired them.
 *
 * A frame is a FrameHeader, `objectCount` ObjectIds, and `dataSize` bytes of a Parcel, all in the
 * byte order of the machine.
 */
enum class FrameType : uint32_t {
    Call = 1,     // target: the object; code, flags: as in IBinder::transact
    Reply = 2,    // code: the status_t of the call
    Acquire = 3,  // target: the object
    Release = 4,  // target: the object
    Done = 5,
};

struct FrameHeader {
    uint32_t magic;  // kFrameMagic
    FrameType type;
    uint32_t dataSize;
    uint32_t objectCount;
    uint64_t sender;  // the process that sends it, see ObjectId::process
    uint64_t target;
    uint32_t code;
    uint32_t flags;
};

/** Names an object for all processes. */
struct ObjectId {
    uint64_t process;  // what the owner's endpoint is named by
    uint64_t object;   // number of the object in its owner; never used twice
};

constexpr uint32_t kFrameMagic = 0x314c4448;  // "HDL1"
/** As much as the device's transport takes for one call. */
constexpr uint32_t kMaxDataSize = 1024 * 1024;
/** Far more than any interface passes at once. */
constexpr uint32_t kMaxObjects = 64;

/** What is wrong with a header, or null. */
const char* problemOf(const FrameHeader& header);

/** A complete, valid frame. */
struct Frame {
    FrameHeader header{};
    std::unique_ptr<uint8_t[]> body;  // objects, then data at a multiple of 8

    const ObjectId* objects() const { return reinterpret_cast<const ObjectId*>(body.get()); }
    uint8_t* data() const { return body.get() + header.objectCount * sizeof(ObjectId); }
};

/**
 * Puts frames together from bytes as they arrive, in pieces of any size. Pure: it reads no socket
 * and touches nothing but its own memory, which the claims of a header alone don't make grow.
 */
class FrameReader {
  public:
    enum class State { Partial, Complete, Malformed };

    /** Where the next bytes belong, and how many of this frame are missing there (at least 1). */
    uint8_t* space();
    size_t wanted() const;

    /** Takes note that `size` bytes, at most wanted(), have been put at space(). */
    State advance(size_t size);

    /** The frame, once complete; the reader is then ready for the next one. */
    Frame take();

    /** Whether no byte of a frame has arrived. */
    bool isEmpty() const { return mReceived == 0; }

    /** What was wrong, once Malformed. */
    const char* problem() const { return mProblem; }

  private:
    size_t bodySize() const;

    Frame mFrame;
    size_t mReceived = 0;  // bytes of this frame
    const char* mProblem = nullptr;
};

}  // namespace hidl
}  // namespace host
