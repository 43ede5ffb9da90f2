#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>

namespace host::hidl {

/**
 * A message between processes: a FrameHeader, `objectCount` ObjectIds, and `dataSize` bytes of a
 * Parcel, in the machine's byte order. `descriptorCount` descriptors (SCM_RIGHTS) come with its
 * first byte. docs/host-platform.md describes who sends what when.
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
    uint16_t objectCount;
    uint16_t descriptorCount;
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
/** As many as one handle needs. A frame that is not complete yet holds no more. */
constexpr uint32_t kMaxDescriptors = 8;

/** What is wrong with a header, or null. */
const char* problemOf(const FrameHeader& header);

/** A complete, valid frame. */
struct Frame {
    FrameHeader header{};
    std::unique_ptr<uint8_t[]> body;  // objects, then data at a multiple of 8
    std::vector<android::base::unique_fd> descriptors;

    const ObjectId* objects() const { return reinterpret_cast<const ObjectId*>(body.get()); }
    uint8_t* data() const { return body.get() + header.objectCount * sizeof(ObjectId); }
};

/**
 * Assembles frames from bytes that arrive in pieces of any size. Memory that a header announces
 * costs nothing until the bytes arrive.
 */
class FrameReader {
  public:
    enum class State { Partial, Complete, Malformed };

    /** Where the next bytes belong, and how many of this frame are missing there (at least 1). */
    uint8_t* space();
    size_t wanted() const;

    /** Takes note that `size` bytes, at most wanted(), have been put at space(). */
    State advance(size_t size);

    /** Takes a descriptor that came with those bytes. */
    void add(android::base::unique_fd descriptor) {
        frame_.descriptors.push_back(std::move(descriptor));
    }

    /** The frame, once complete; the reader is then ready for the next one. */
    Frame take();

    /** Whether no byte of a frame has arrived. */
    bool isEmpty() const { return received_ == 0; }

    /** What was wrong, once Malformed. */
    const char* problem() const { return problem_; }

  private:
    size_t bodySize_() const;
    State malformed_(const char* problem);

    Frame frame_;
    size_t received_ = 0;  // bytes of this frame
    const char* problem_ = nullptr;
};

}  // namespace host::hidl
