#include "Connection.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>

namespace host::hidl {

namespace {

/** Room for the control message that carries `count` descriptors. */
constexpr size_t controlSpace(size_t count) { return CMSG_SPACE(count * sizeof(int)); }

}  // namespace

size_t OutgoingFrame::size() const {
    return sizeof(header) + objects.size() * sizeof(ObjectId) + header.dataSize;
}

std::optional<size_t> Connection::sendBytes_(iovec* parts, size_t count,
                                             const std::vector<int>& descriptors, bool wait) {
    alignas(cmsghdr) std::array<char, controlSpace(kMaxDescriptors)> control{};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    if (!descriptors.empty()) {
        const size_t size = descriptors.size() * sizeof(int);
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr* rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(size);
        std::memcpy(CMSG_DATA(rights), descriptors.data(), size);
    }
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

std::optional<size_t> Connection::sendSome_(const OutgoingFrame& frame, size_t skip, bool wait) {
    iovec parts[3] = {
        {const_cast<FrameHeader*>(&frame.header), sizeof(frame.header)},
        {const_cast<ObjectId*>(frame.objects.data()), frame.objects.size() * sizeof(ObjectId)},
        {const_cast<uint8_t*>(frame.data), frame.header.dataSize}};
    const bool isFirst = skip == 0;
    for (iovec& part : parts) {
        const size_t skipped = std::min(skip, part.iov_len);
        part.iov_base = static_cast<uint8_t*>(part.iov_base) + skipped;
        part.iov_len -= skipped;
        skip -= skipped;
    }
    return sendBytes_(parts, 3, isFirst ? frame.descriptors : std::vector<int>(), wait);
}

bool Connection::send(const OutgoingFrame& frame) {
    for (size_t sent = 0; sent < frame.size();) {
        const std::optional<size_t> part = sendSome_(frame, sent, true);
        if (!part) {
            return false;
        }
        sent += *part;
    }
    return true;
}

bool Connection::sendWithoutWaiting(const OutgoingFrame& frame) {
    const std::optional<size_t> sent = sendSome_(frame, 0, false);
    if (!sent || *sent == frame.size()) {
        return sent.has_value();
    }
    if (*sent == 0 && !keepDescriptors_(frame.descriptors)) {
        return false;
    }
    unsentStart_ = *sent;
    const auto append = [this](const void* bytes, size_t size) {
        const auto* first = static_cast<const uint8_t*>(bytes);
        unsent_.insert(unsent_.end(), first, first + size);
    };
    append(&frame.header, sizeof(frame.header));
    append(frame.objects.data(), frame.objects.size() * sizeof(ObjectId));
    append(frame.data, frame.header.dataSize);
    return true;
}

bool Connection::keepDescriptors_(const std::vector<int>& descriptors) {
    for (const int descriptor : descriptors) {
        unsentDescriptors_.emplace_back(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
        if (!unsentDescriptors_.back().ok()) {
            return false;
        }
    }
    return true;
}

bool Connection::flush() {
    while (unsentStart_ < unsent_.size()) {
        std::vector<int> descriptors;
        for (const android::base::unique_fd& descriptor : unsentDescriptors_) {
            descriptors.push_back(descriptor.get());
        }
        iovec rest = {unsent_.data() + unsentStart_, unsent_.size() - unsentStart_};
        const std::optional<size_t> sent = sendBytes_(&rest, 1, descriptors, false);
        if (!sent || *sent == 0) {
            return sent.has_value();
        }
        unsentStart_ += *sent;
        unsentDescriptors_.clear();
    }
    std::vector<uint8_t>().swap(unsent_);
    unsentStart_ = 0;
    return true;
}

ssize_t Connection::receiveSome_(bool wait) {
    // Room for one more than a frame may have, so that too many are noticed as such.
    alignas(cmsghdr) std::array<char, controlSpace(kMaxDescriptors + 1)> control;
    iovec part = {reader_.space(), reader_.wanted()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size =
        recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC | (wait ? 0 : MSG_DONTWAIT));
    if (size <= 0) {
        return size;
    }
    for (const cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr;
         item = CMSG_NXTHDR(&message, const_cast<cmsghdr*>(item))) {
        if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        for (size_t at = CMSG_LEN(0); at + sizeof(int) <= item->cmsg_len; at += sizeof(int)) {
            int descriptor;
            std::memcpy(&descriptor, reinterpret_cast<const char*>(item) + at, sizeof(descriptor));
            reader_.add(android::base::unique_fd(descriptor));
        }
    }
    return size;
}

Connection::Result Connection::receive(Frame* frame, bool wait) {
    for (;;) {
        const ssize_t size = receiveSome_(wait);
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
