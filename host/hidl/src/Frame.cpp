#include "Frame.h"

#include <utility>

namespace host {
namespace hidl {

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
    switch (header.type) {
        case FrameType::Call:
            return header.flags > 1 ? "unknown flags" : nullptr;
        case FrameType::Reply:
            return header.target != 0 || header.flags != 0 ? "malformed reply" : nullptr;
        case FrameType::Acquire:
        case FrameType::Release:
            return header.dataSize != 0 || header.objectCount != 0 || header.code != 0 ||
                           header.flags != 0
                       ? "malformed reference"
                       : nullptr;
        case FrameType::Done:
            return header.dataSize != 0 || header.objectCount != 0 || header.code != 0 ||
                           header.flags != 0 || header.target != 0
                       ? "malformed acknowledgement"
                       : nullptr;
    }
    return "message of an unknown type";
}

size_t FrameReader::bodySize() const {
    return mFrame.header.objectCount * sizeof(ObjectId) + mFrame.header.dataSize;
}

uint8_t* FrameReader::space() {
    if (mReceived < sizeof(FrameHeader)) {
        return reinterpret_cast<uint8_t*>(&mFrame.header) + mReceived;
    }
    return mFrame.body.get() + (mReceived - sizeof(FrameHeader));
}

size_t FrameReader::wanted() const {
    if (mReceived < sizeof(FrameHeader)) {
        return sizeof(FrameHeader) - mReceived;
    }
    return sizeof(FrameHeader) + bodySize() - mReceived;
}

FrameReader::State FrameReader::advance(size_t size) {
    const bool hadHeader = mReceived >= sizeof(FrameHeader);
    mReceived += size;
    if (mReceived < sizeof(FrameHeader)) {
        return State::Partial;
    }
    if (!hadHeader) {
        mProblem = problemOf(mFrame.header);
        if (mProblem != nullptr) {
            return State::Malformed;
        }
        // Not initialised: memory that is never written to costs nothing.
        mFrame.body.reset(new uint8_t[bodySize()]);
    }
    return mReceived == sizeof(FrameHeader) + bodySize() ? State::Complete : State::Partial;
}

Frame FrameReader::take() {
    mReceived = 0;
    return std::move(mFrame);
}

}  // namespace hidl
}  // namespace host
