#include "Frame.h"

#include <utility>

namespace host::hidl {

static_assert(sizeof(FrameHeader) == 40 && sizeof(ObjectId) == 16, "no padding on the wire");

const char* problemOf(const FrameHeader& header) {
    if (header.magic != kFrameMagic) {
        return "not a message";
    }
    if (header.dataSize > kMaxDataSize) {
        return "oversized message";
    }
    if (header.objectCount > kMaxObjects) {
        return "too many objects";
    }
    if (header.descriptorCount > kMaxDescriptors) {
        return "too many descriptors";
    }
    const bool isEmpty =
        header.dataSize == 0 && header.objectCount == 0 && header.descriptorCount == 0;
    switch (header.type) {
        case FrameType::Call:
            return header.flags > 1 ? "unknown flags" : nullptr;
        case FrameType::Reply:
            return header.target != 0 || header.flags != 0 ? "malformed reply" : nullptr;
        case FrameType::Acquire:
        case FrameType::Release:
            return !isEmpty || header.code != 0 || header.flags != 0 ? "malformed reference"
                                                                     : nullptr;
        case FrameType::Done:
            return !isEmpty || header.code != 0 || header.flags != 0 || header.target != 0
                       ? "malformed acknowledgement"
                       : nullptr;
    }
    return "message of an unknown type";
}

size_t FrameReader::bodySize_() const {
    return frame_.header.objectCount * sizeof(ObjectId) + frame_.header.dataSize;
}

uint8_t* FrameReader::space() {
    if (received_ < sizeof(FrameHeader)) {
        return reinterpret_cast<uint8_t*>(&frame_.header) + received_;
    }
    return frame_.body.get() + (received_ - sizeof(FrameHeader));
}

size_t FrameReader::wanted() const {
    if (received_ < sizeof(FrameHeader)) {
        return sizeof(FrameHeader) - received_;
    }
    return sizeof(FrameHeader) + bodySize_() - received_;
}

FrameReader::State FrameReader::advance(size_t size) {
    const bool hadHeader = received_ >= sizeof(FrameHeader);
    received_ += size;
    if (frame_.descriptors.size() > kMaxDescriptors) {
        return malformed_("too many descriptors");
    }
    if (received_ < sizeof(FrameHeader)) {
        return State::Partial;
    }
    if (!hadHeader) {
        if (const char* problem = problemOf(frame_.header); problem != nullptr) {
            return malformed_(problem);
        }
        // Not initialised: memory that is never written to costs nothing.
        frame_.body.reset(new uint8_t[bodySize_()]);
    }
    if (received_ < sizeof(FrameHeader) + bodySize_()) {
        return State::Partial;
    }
    return frame_.descriptors.size() == frame_.header.descriptorCount
               ? State::Complete
               : malformed_("other descriptors than it announces");
}

FrameReader::State FrameReader::malformed_(const char* problem) {
    problem_ = problem;
    return State::Malformed;
}

Frame FrameReader::take() {
    received_ = 0;
    return std::exchange(frame_, {});
}

}  // namespace host::hidl
