#include "Connection.h"

#include <algorithm>
#include <cerrno>

#include <sys/socket.h>
#include <sys/uio.h>

namespace host {
namespace hidl {

// Sends what the socket takes of the frame without its first `skip` bytes; returns how much.
size_t Connection::sendSome(const FrameHeader& header, const std::vector<ObjectId>& objects,
                            const uint8_t* data, size_t skip, bool wait, bool* failed) {
    iovec parts[3] = {{const_cast<FrameHeader*>(&header), sizeof(header)},
                      {const_cast<ObjectId*>(objects.data()), objects.size() * sizeof(ObjectId)},
                      {const_cast<uint8_t*>(data), header.dataSize}};
    for (iovec& part : parts) {
        const size_t skipped = std::min(skip, part.iov_len);
        part.iov_base = static_cast<uint8_t*>(part.iov_base) + skipped;
        part.iov_len -= skipped;
        skip -= skipped;
    }
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 3;
    for (;;) {
        const ssize_t sent =
            sendmsg(mSocket.get(), &message, MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT));
        if (sent >= 0) {
            return static_cast<size_t>(sent);
        }
        if (errno != EINTR) {
            *failed = errno != EAGAIN;
            return 0;
        }
    }
}

bool Connection::send(const FrameHeader& header, const std::vector<ObjectId>& objects,
                      const uint8_t* data) {
    const size_t size = sizeof(header) + objects.size() * sizeof(ObjectId) + header.dataSize;
    bool failed = false;
    for (size_t sent = 0; sent < size && !failed;) {
        sent += sendSome(header, objects, data, sent, true, &failed);
    }
    return !failed;
}

bool Connection::sendWithoutWaiting(const FrameHeader& header, const std::vector<ObjectId>& objects,
                                    const uint8_t* data) {
    const auto append = [this](const void* bytes, size_t size) {
        const auto* first = static_cast<const uint8_t*>(bytes);
        mUnsent.insert(mUnsent.end(), first, first + size);
    };
    bool failed = false;
    const size_t size = sizeof(header) + objects.size() * sizeof(ObjectId) + header.dataSize;
    size_t sent = 0;
    if (!hasUnsent()) {
        sent = sendSome(header, objects, data, 0, false, &failed);
        mUnsentStart = sent;
    }
    if (!failed && sent < size) {
        mUnsent.reserve(mUnsent.size() + size);
        append(&header, sizeof(header));
        append(objects.data(), objects.size() * sizeof(ObjectId));
        append(data, header.dataSize);
    }
    return !failed;
}

bool Connection::flush() {
    while (mUnsentStart < mUnsent.size()) {
        const ssize_t sent = ::send(mSocket.get(), mUnsent.data() + mUnsentStart,
                                    mUnsent.size() - mUnsentStart, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno == EAGAIN;
        }
        mUnsentStart += static_cast<size_t>(sent);
    }
    std::vector<uint8_t>().swap(mUnsent);
    mUnsentStart = 0;
    return true;
}

Connection::Result Connection::receive(Frame* frame, bool wait) {
    for (;;) {
        const ssize_t size =
            recv(mSocket.get(), mReader.space(), mReader.wanted(), wait ? 0 : MSG_DONTWAIT);
        if (size > 0) {
            switch (mReader.advance(static_cast<size_t>(size))) {
                case FrameReader::State::Partial:
                    break;
                case FrameReader::State::Complete:
                    *frame = mReader.take();
                    return Result::Frame;
                case FrameReader::State::Malformed:
                    mProblem = mReader.problem();
                    return Result::Malformed;
            }
        } else if (size == 0 || (errno != EINTR && errno != EAGAIN)) {
            if (mReader.isEmpty()) {
                return Result::Closed;
            }
            mProblem = "it ends inside a message";
            return Result::Malformed;
        } else if (errno == EAGAIN && !wait) {
            return Result::Nothing;
        }
    }
}

bool Connection::isQuiet() const {
    char byte;
    return recv(mSocket.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

void Connection::shutDown() { shutdown(mSocket.get(), SHUT_RDWR); }

}  // namespace hidl
}  // namespace host
