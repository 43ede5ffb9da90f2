#include "Connection.h"

#include <algorithm>
#include <cerrno>

#include <sys/socket.h>
#include <sys/uio.h>

namespace host::hidl {

namespace {

size_t sizeOf(const FrameHeader& header, const std::vector<ObjectId>& objects) {
    return sizeof(header) + objects.size() * sizeof(ObjectId) + header.dataSize;
}

}  // namespace

std::optional<size_t> Connection::sendSome_(const FrameHeader& header,
                                            const std::vector<ObjectId>& objects,
                                            const uint8_t* data, size_t skip, bool wait) {
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
            sendmsg(socket_.get(), &message, MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT));
        if (sent >= 0) {
            return static_cast<size_t>(sent);
        }
        if (errno != EINTR) {
            return errno == EAGAIN ? std::optional<size_t>(0) : std::nullopt;
        }
    }
}

bool Connection::send(const FrameHeader& header, const std::vector<ObjectId>& objects,
                      const uint8_t* data) {
    const size_t size = sizeOf(header, objects);
    for (size_t sent = 0; sent < size;) {
        const std::optional<size_t> part = sendSome_(header, objects, data, sent, true);
        if (!part) {
            return false;
        }
        sent += *part;
    }
    return true;
}

bool Connection::sendWithoutWaiting(const FrameHeader& header, const std::vector<ObjectId>& objects,
                                    const uint8_t* data) {
    if (!hasUnsent()) {
        const std::optional<size_t> sent = sendSome_(header, objects, data, 0, false);
        if (!sent || *sent == sizeOf(header, objects)) {
            return sent.has_value();
        }
        unsentStart_ = *sent;
    }
    const auto append = [this](const void* bytes, size_t size) {
        const auto* first = static_cast<const uint8_t*>(bytes);
        unsent_.insert(unsent_.end(), first, first + size);
    };
    append(&header, sizeof(header));
    append(objects.data(), objects.size() * sizeof(ObjectId));
    append(data, header.dataSize);
    return true;
}

bool Connection::flush() {
    while (unsentStart_ < unsent_.size()) {
        const ssize_t sent = ::send(socket_.get(), unsent_.data() + unsentStart_,
                                    unsent_.size() - unsentStart_, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno == EAGAIN;
        }
        unsentStart_ += static_cast<size_t>(sent);
    }
    std::vector<uint8_t>().swap(unsent_);
    unsentStart_ = 0;
    return true;
}

Connection::Result Connection::receive(Frame* frame, bool wait) {
    for (;;) {
        const ssize_t size =
            recv(socket_.get(), reader_.space(), reader_.wanted(), wait ? 0 : MSG_DONTWAIT);
        if (size > 0) {
            switch (reader_.advance(static_cast<size_t>(size))) {
                case FrameReader::State::Partial:
                    break;
                case FrameReader::State::Complete:
                    *frame = reader_.take();
                    return Result::Frame;
                case FrameReader::State::Malformed:
                    problem_ = reader_.problem();
                    return Result::Malformed;
            }
        } else if (size == 0 || (errno != EINTR && errno != EAGAIN)) {
            if (reader_.isEmpty()) {
                return Result::Closed;
            }
            problem_ = "it ends inside a message";
            return Result::Malformed;
        } else if (errno == EAGAIN && !wait) {
            return Result::Nothing;
        }
    }
}

bool Connection::isQuiet() const {
    char byte;
    return recv(socket_.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

void Connection::shutDown() { shutdown(socket_.get(), SHUT_RDWR); }

}  // namespace host::hidl
