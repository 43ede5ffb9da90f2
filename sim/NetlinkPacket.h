#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <linux/netlink.h>
#include <netlink/msg.h>

namespace sim {

struct FreeNetlinkMessage {
    void operator()(nl_msg* message) const { nlmsg_free(message); }
};
using NetlinkMessage = std::unique_ptr<nl_msg, FreeNetlinkMessage>;

/** The messages of one packet, one behind the other. */
class NetlinkPacket {
  public:
    void append(const NetlinkMessage& message);

    const std::string& bytes() const { return bytes_; }
    std::string& bytes() { return bytes_; }

  private:
    std::string bytes_;
};

/** A message that answers `request`, with its sequence number and port. Throws std::bad_alloc. */
NetlinkMessage answerTo(const nlmsghdr& request, int type, int flags);

/** As above, with a generic-netlink header. */
NetlinkMessage genericAnswerTo(const nlmsghdr& request, int family, int flags, uint8_t command);

/**
 * NLMSG_ERROR for `request` with `error` (negative errno, 0 acknowledges). It echoes the request
 * unless it acknowledges or is `capped`; a text that isn't empty follows as extended
 * acknowledgement.
 */
NetlinkMessage errorAnswer(const nlmsghdr& request, int error, std::string_view extAck = {},
                           bool capped = false);

/** The end of a dump; `error` is 0, or the negative errno with which the kernel refused it. */
NetlinkMessage dumpEnd(const nlmsghdr& request, int error = 0);

/** "01ab" */
std::string hexText(const void* data, size_t length);

}  // namespace sim
