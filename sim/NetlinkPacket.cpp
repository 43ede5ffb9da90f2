#include "sim/NetlinkPacket.h"

#include <cstring>
#include <new>

#include <netlink/genl/genl.h>

namespace sim {

namespace {

template <typename T>
T* checked(T* allocated) {
    if (allocated == nullptr) {
        throw std::bad_alloc();
    }
    return allocated;
}

/** Appends `length` bytes to the message's payload, unpadded, and returns where they are. */
char* reserve(const NetlinkMessage& message, size_t length) {
    return static_cast<char*>(checked(nlmsg_reserve(message.get(), length, 0)));
}

}  // namespace

void NetlinkPacket::append(const NetlinkMessage& message) {
    const nlmsghdr* header = nlmsg_hdr(message.get());
    bytes_.append(reinterpret_cast<const char*>(header), header->nlmsg_len);
    bytes_.resize(NLMSG_ALIGN(bytes_.size()), '\0');
}

NetlinkMessage answerTo(const nlmsghdr& request, int type, int flags) {
    // A request can be echoed whole.
    NetlinkMessage message(checked(nlmsg_alloc_size(request.nlmsg_len + 4096)));
    checked(nlmsg_put(message.get(), request.nlmsg_pid, request.nlmsg_seq, type, 0, flags));
    return message;
}

NetlinkMessage genericAnswerTo(const nlmsghdr& request, int family, int flags, uint8_t command) {
    NetlinkMessage message(checked(nlmsg_alloc_size(16384)));
    checked(genlmsg_put(message.get(), request.nlmsg_pid, request.nlmsg_seq, family, 0, flags,
                        command, 1));
    return message;
}

NetlinkMessage errorAnswer(const nlmsghdr& request, int error, std::string_view extAck,
                           bool capped) {
    const bool echoOnlyHeader = capped || error == 0;
    int flags = echoOnlyHeader ? NLM_F_CAPPED : 0;
    flags |= extAck.empty() ? 0 : NLM_F_ACK_TLVS;
    NetlinkMessage message = answerTo(request, NLMSG_ERROR, flags);
    const size_t echoed = echoOnlyHeader ? sizeof(nlmsghdr) : request.nlmsg_len;
    char* payload = reserve(message, NLMSG_ALIGN(sizeof(int) + echoed));
    std::memset(payload, 0, NLMSG_ALIGN(sizeof(int) + echoed));
    std::memcpy(payload, &error, sizeof(int));
    std::memcpy(payload + sizeof(int), &request, echoed);
    if (!extAck.empty()) {
        const std::string text(extAck);
        nla_put_string(message.get(), NLMSGERR_ATTR_MSG, text.c_str());
    }
    return message;
}

NetlinkMessage dumpEnd(const nlmsghdr& request, int error) {
    NetlinkMessage message = answerTo(request, NLMSG_DONE, NLM_F_MULTI);
    std::memcpy(reserve(message, sizeof(int)), &error, sizeof(int));
    return message;
}

std::string hexText(const void* data, size_t length) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < length; ++i) {
        const unsigned char byte = static_cast<const unsigned char*>(data)[i];
        out += kDigits[byte >> 4];
        out += kDigits[byte & 15];
    }
    return out;
}

}  // namespace sim
