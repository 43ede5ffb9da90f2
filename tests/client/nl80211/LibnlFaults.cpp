#include "tests/client/nl80211/LibnlFaults.h"

#include <dlfcn.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>

// The linker's --wrap leads the daemon's calls of NAME to __wrap_NAME, and __real_NAME to libnl.
// libnl's calls of its own functions are not affected. The exception is nlmsg_convert, which only
// libnl calls: the program's definition comes ahead of the library's, if the library can see it.

namespace test {

namespace {

constexpr int kNone = -1;
std::atomic<int> pending{kNone};
std::atomic<int> callsBefore{0};

bool takeFault(LibnlCall call) {
    int expected = static_cast<int>(call);
    return pending == expected && callsBefore-- == 0 &&
           pending.compare_exchange_strong(expected, kNone);
}

std::atomic<int> receivesBefore{kNone};
std::chrono::milliseconds receivePause{};

void pauseAsOrdered(nl_sock* socket) {
    if (receivesBefore == kNone || receivesBefore-- != 0) {
        return;
    }
    pollfd next{nl_socket_get_fd(socket), POLLIN, 0};
    (void)poll(&next, 1, -1);
    std::this_thread::sleep_for(receivePause);
}

}  // namespace

void failNext(LibnlCall call, int calls) {
    callsBefore = calls;
    pending = static_cast<int>(call);
}

void pauseAfterReceive(std::chrono::milliseconds pause, int calls) {
    receivePause = pause;
    receivesBefore = calls;
}

bool isFaultPending() { return pending != kNone; }

}  // namespace test

using test::LibnlCall;
using test::pauseAsOrdered;
using test::takeFault;

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names.
extern "C" {

nl_sock* __real_nl_socket_alloc();
nl_sock* __wrap_nl_socket_alloc() {
    return takeFault(LibnlCall::SocketAlloc) ? nullptr : __real_nl_socket_alloc();
}

nl_cb* __real_nl_cb_alloc(nl_cb_kind kind);
nl_cb* __wrap_nl_cb_alloc(nl_cb_kind kind) {
    return takeFault(LibnlCall::CallbackAlloc) ? nullptr : __real_nl_cb_alloc(kind);
}

nl_msg* __real_nlmsg_alloc();
nl_msg* __wrap_nlmsg_alloc() {
    return takeFault(LibnlCall::MessageAlloc) ? nullptr : __real_nlmsg_alloc();
}

int __real_nla_put_u32(nl_msg* message, int type, uint32_t value);
int __wrap_nla_put_u32(nl_msg* message, int type, uint32_t value) {
    return takeFault(LibnlCall::PutU32) ? -NLE_NOMEM : __real_nla_put_u32(message, type, value);
}

int __real_nl_send_auto_complete(nl_sock* socket, nl_msg* message);
int __wrap_nl_send_auto_complete(nl_sock* socket, nl_msg* message) {
    return takeFault(LibnlCall::Send) ? -NLE_FAILURE
                                      : __real_nl_send_auto_complete(socket, message);
}

int __real_nl_recv(nl_sock* socket, sockaddr_nl* peer, unsigned char** bytes, ucred** credentials);
int __wrap_nl_recv(nl_sock* socket, sockaddr_nl* peer, unsigned char** bytes, ucred** credentials) {
    const int received = __real_nl_recv(socket, peer, bytes, credentials);
    if (received == -NLE_AGAIN) {
        return received;  // how often there is nothing yet differs: not counted
    }
    const bool fails = takeFault(LibnlCall::Receive);
    if (fails || takeFault(LibnlCall::ReceiveNothing)) {
        free(*bytes);
        *bytes = nullptr;
        return fails ? -NLE_NOMEM : 0;
    }
    pauseAsOrdered(socket);
    return received;
}

// The preset cfi knows no type of a function that dlsym has found.
[[gnu::visibility("default"), clang::no_sanitize("cfi-icall")]] nl_msg* nlmsg_convert(
    nlmsghdr* header) {
    static const auto convert =
        reinterpret_cast<nl_msg* (*)(nlmsghdr*)>(dlsym(RTLD_NEXT, "nlmsg_convert"));
    return takeFault(LibnlCall::Convert) ? nullptr : convert(header);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
