#pragma once

#include <memory>

#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/socket.h>

namespace Ursa::OS::Wifi {

/** Frees a libnl object. */
struct NetlinkDeleter {
    void operator()(nl_sock* socket) const { nl_socket_free(socket); }
    void operator()(nl_cb* callbacks) const { nl_cb_put(callbacks); }
    void operator()(nl_msg* message) const { nlmsg_free(message); }
};

/** Freeing it closes the netlink connection. */
using NetlinkSocket = std::unique_ptr<nl_sock, NetlinkDeleter>;
/** One reference to a set of receive callbacks. */
using NetlinkCallbacks = std::unique_ptr<nl_cb, NetlinkDeleter>;
/** One reference to a message. */
using NetlinkMessage = std::unique_ptr<nl_msg, NetlinkDeleter>;

}  // namespace Ursa::OS::Wifi
