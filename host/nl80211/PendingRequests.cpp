#include "PendingRequests.h"

#include <algorithm>
#include <cstring>

namespace host {
namespace {

/** Calls `use` with the header of each message that is wholly there. */
template <typename Use>
void forEachHeader(const void* packet, size_t size, Use use) {
    const char* bytes = static_cast<const char*>(packet);
    while (size >= sizeof(nlmsghdr)) {
        nlmsghdr header;
        memcpy(&header, bytes, sizeof(header));  // a caller's buffer need not be aligned
        if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > size) {
            return;
        }
        use(header);
        const size_t step = std::min<size_t>(NLMSG_ALIGN(size_t{header.nlmsg_len}), size);
        bytes += step;
        size -= step;
    }
}

bool ends(const nlmsghdr& request, const nlmsghdr& reply) {
    if (reply.nlmsg_seq != request.nlmsg_seq) {
        return false;
    }
    const bool dump = (request.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
    return reply.nlmsg_type == NLMSG_ERROR || reply.nlmsg_type == NLMSG_DONE ||
           (!dump && (request.nlmsg_flags & NLM_F_ACK) == 0);
}

}  // namespace

void PendingRequests::sent(const void* packet, size_t size) {
    forEachHeader(packet, size, [this](const nlmsghdr& header) {
        if ((header.nlmsg_flags & NLM_F_REQUEST) != 0) {
            requests_.push_back(header);
        }
    });
    while (requests_.size() > kMax) {
        requests_.pop_front();
    }
}

void PendingRequests::notSent(const void* packet, size_t size) {
    forEachHeader(packet, size, [this](const nlmsghdr& header) {
        const auto request =
            std::find_if(requests_.rbegin(), requests_.rend(), [&header](const nlmsghdr& other) {
                return memcmp(&header, &other, sizeof(header)) == 0;
            });
        if (request != requests_.rend()) {
            requests_.erase(std::next(request).base());
        }
    });
}

void PendingRequests::received(const void* packet, size_t size) {
    forEachHeader(packet, size, [this](const nlmsghdr& reply) {
        const auto request =
            std::find_if(requests_.begin(), requests_.end(),
                         [&reply](const nlmsghdr& other) { return ends(other, reply); });
        if (request != requests_.end()) {
            requests_.erase(request);
        }
    });
}

std::optional<nlmsghdr> PendingRequests::oldest() const {
    return requests_.empty() ? std::nullopt : std::optional<nlmsghdr>(requests_.front());
}

}  // namespace host
