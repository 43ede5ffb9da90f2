#include "tests/support/Netlink.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <linux/genetlink.h>
#include <linux/netlink.h>

namespace test {

namespace {

template <typename T>
T read(const Bytes& bytes, size_t offset) {
    T value{};
    if (offset < bytes.size()) {
        memcpy(&value, bytes.data() + offset, std::min(sizeof(value), bytes.size() - offset));
    }
    return value;
}

template <typename T>
Bytes write(const T& value) {
    Bytes bytes(sizeof(value));
    memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

size_t aligned(size_t length) {
    return (length + NLMSG_ALIGNTO - 1) / NLMSG_ALIGNTO * NLMSG_ALIGNTO;
}

Bytes errorRecord(const NetlinkRequest& request, int error, bool capped) {
    Bytes echoed = request.bytes;
    if (capped) {
        echoed.resize(sizeof(nlmsghdr));
    }
    return concat({write(int32_t{error}), echoed});
}

}  // namespace

NetlinkRequest parseRequest(const Bytes& packet) {
    const auto header = read<nlmsghdr>(packet, 0);
    const auto generic = read<genlmsghdr>(packet, NLMSG_HDRLEN);
    NetlinkRequest request;
    request.type = header.nlmsg_type;
    request.flags = header.nlmsg_flags;
    request.sequence = header.nlmsg_seq;
    request.port = header.nlmsg_pid;
    request.cmd = generic.cmd;
    request.version = generic.version;
    const size_t headers = NLMSG_HDRLEN + GENL_HDRLEN;
    if (packet.size() > headers) {
        request.attributes.assign(packet.begin() + headers, packet.end());
    }
    request.bytes = packet;
    return request;
}

uint64_t NetlinkAttribute::number() const { return read<uint64_t>(payload, 0); }

std::vector<NetlinkAttribute> parseAttributes(const Bytes& bytes) {
    std::vector<NetlinkAttribute> found;
    size_t offset = 0;
    while (offset + NLA_HDRLEN <= bytes.size()) {
        const auto header = read<nlattr>(bytes, offset);
        if (header.nla_len < NLA_HDRLEN || offset + header.nla_len > bytes.size()) {
            break;
        }
        const auto begin = bytes.begin() + static_cast<ptrdiff_t>(offset);
        found.push_back({header.nla_type, Bytes(begin + NLA_HDRLEN, begin + header.nla_len)});
        offset += aligned(header.nla_len);
    }
    return found;
}

Bytes concat(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Bytes text(std::string_view characters) { return Bytes(characters.begin(), characters.end()); }

Bytes terminatedText(std::string_view characters) { return concat({text(characters), {0}}); }

Bytes number8(uint8_t value) { return write(value); }

Bytes number16(uint16_t value) { return write(value); }

Bytes number32(uint32_t value) { return write(value); }

Bytes attribute(uint16_t type, const Bytes& payload) {
    nlattr header{};
    header.nla_len = static_cast<uint16_t>(NLA_HDRLEN + payload.size());
    header.nla_type = type;
    Bytes bytes = concat({write(header), payload});
    bytes.resize(aligned(bytes.size()));
    return bytes;
}

Bytes message(const NetlinkRequest& request, uint16_t type, uint16_t flags, const Bytes& payload) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<uint32_t>(NLMSG_HDRLEN + payload.size());
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    header.nlmsg_seq = request.sequence;
    header.nlmsg_pid = request.port;
    Bytes bytes = concat({write(header), payload});
    bytes.resize(aligned(bytes.size()));
    return bytes;
}

Bytes dumpEntry(const NetlinkRequest& request, uint8_t cmd, const Bytes& attributes) {
    return message(request, request.type, NLM_F_MULTI,
                   concat({write(genlmsghdr{cmd, 1, 0}), attributes}));
}

Bytes reply(const NetlinkRequest& request, uint8_t cmd, const Bytes& attributes) {
    return message(request, request.type, 0, concat({write(genlmsghdr{cmd, 1, 0}), attributes}));
}

Bytes done(const NetlinkRequest& request, int error) {
    return message(request, NLMSG_DONE, NLM_F_MULTI, write(int32_t{error}));
}

Bytes ack(const NetlinkRequest& request) {
    return message(request, NLMSG_ERROR, NLM_F_CAPPED, errorRecord(request, 0, true));
}

Bytes error(const NetlinkRequest& request, int error) {
    return message(request, NLMSG_ERROR, 0, errorRecord(request, error, false));
}

Bytes explainedError(const NetlinkRequest& request, int error, const Bytes& attributes,
                     bool capped) {
    const auto flags = static_cast<uint16_t>(NLM_F_ACK_TLVS | (capped ? NLM_F_CAPPED : 0));
    return message(request, NLMSG_ERROR, flags,
                   concat({errorRecord(request, error, capped), attributes}));
}

}  // namespace test
