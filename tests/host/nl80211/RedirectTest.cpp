#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <linux/rtnetlink.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "tests/host/platform/TempRoot.h"
#include "tests/support/FakeNl80211.h"
#include "tests/support/Netlink.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/WaitsIn.h"

namespace {

using android::base::unique_fd;
using test::Bytes;
using test::FakeNl80211;
using test::NetlinkRequest;
using testing::ElementsAre;

/** Listens on `path` and lets the test play the peer step by step. */
class Listener {
  public:
    explicit Listener(const std::string& path)
        : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(fd_, 16), 0);
    }

    bool hasConnection() const {
        pollfd ready = {fd_.get(), POLLIN, 0};
        return poll(&ready, 1, 0) == 1;
    }

    unique_fd accept() const { return unique_fd(::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)); }

  private:
    unique_fd fd_;
};

unique_fd netlinkSocket(int type = SOCK_RAW, int protocol = NETLINK_GENERIC) {
    return unique_fd(socket(AF_NETLINK, type | SOCK_CLOEXEC, protocol));
}

/** A packet of text; the redirect does not mind what is in it. */
std::string receiveText(int fd, int flags = 0, size_t room = 1000) {
    std::string text(room, '\0');
    const ssize_t size = recv(fd, text.data(), text.size(), flags);
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return size < 0 ? strerror(errno) : text;
}

Bytes request(uint32_t sequence, uint16_t flags = NLM_F_REQUEST | NLM_F_ACK) {
    nlmsghdr header = {};
    header.nlmsg_len = sizeof(header) + GENL_HDRLEN;
    header.nlmsg_type = FakeNl80211::kFamily;
    header.nlmsg_flags = flags;
    header.nlmsg_seq = sequence;
    header.nlmsg_pid = 4711;
    Bytes bytes(header.nlmsg_len);
    memcpy(bytes.data(), &header, sizeof(header));
    return bytes;
}

ssize_t sendBytes(int fd, const Bytes& bytes) { return send(fd, bytes.data(), bytes.size(), 0); }

/** Receives one packet, which is to be an error reply; gives its parts. */
struct ErrorReply {
    explicit ErrorReply(int fd, int flags = 0) {
        size = recv(fd, &bytes, sizeof(bytes), flags);
        error = size < 0 ? errno : 0;
    }

    bool isReset() const {
        return size == sizeof(bytes) && bytes.header.nlmsg_len == sizeof(bytes) &&
               bytes.header.nlmsg_type == NLMSG_ERROR && bytes.body.error == -ECONNRESET;
    }

    struct {
        nlmsghdr header = {};
        nlmsgerr body = {};
    } bytes;
    ssize_t size = -1;
    int error = 0;
};

sockaddr_nl ownAddress(int fd) {
    sockaddr_nl address = {};
    socklen_t length = sizeof(address);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
    EXPECT_EQ(length, sizeof(address));
    return address;
}

int option(int fd, int level, int name) {
    int value = -1;
    socklen_t length = sizeof(value);
    return getsockopt(fd, level, name, &value, &length) == 0 ? value : -1;
}

size_t openDescriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                             std::filesystem::directory_iterator()));
}

using Socket = std::unique_ptr<nl_sock, decltype(&nl_socket_free)>;

Socket libnlSocket() { return {nl_socket_alloc(), nl_socket_free}; }

/** What a dump through libnl gave: its end (0), or an error; and the interface names on the way. */
struct Dump {
    int status = 1;
    std::vector<std::string> names;
};

Dump dumpInterfaces(nl_sock* socket, int family) {
    Dump dump;
    const std::unique_ptr<nl_cb, decltype(&nl_cb_put)> callbacks(nl_cb_alloc(NL_CB_DEFAULT),
                                                                 nl_cb_put);
    nl_cb_set(
        callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM,
        [](nl_msg* message, void* argument) -> int {
            nlattr* attributes[NL80211_ATTR_MAX + 1] = {};
            genlmsg_parse(nlmsg_hdr(message), 0, attributes, NL80211_ATTR_MAX, nullptr);
            if (attributes[NL80211_ATTR_IFNAME] != nullptr) {
                static_cast<Dump*>(argument)->names.emplace_back(
                    nla_get_string(attributes[NL80211_ATTR_IFNAME]));
            }
            return NL_SKIP;
        },
        &dump);
    nl_cb_set(
        callbacks.get(), NL_CB_FINISH, NL_CB_CUSTOM,
        [](nl_msg*, void* argument) -> int {
            static_cast<Dump*>(argument)->status = 0;
            return NL_SKIP;
        },
        &dump);
    nl_cb_err(
        callbacks.get(), NL_CB_CUSTOM,
        [](sockaddr_nl*, nlmsgerr* error, void* argument) -> int {
            static_cast<Dump*>(argument)->status = error->error;
            return NL_STOP;
        },
        &dump);
    nl_msg* message = nlmsg_alloc();
    genlmsg_put(message, NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, NLM_F_DUMP,
                NL80211_CMD_GET_INTERFACE, 0);
    EXPECT_GT(nl_send_auto(socket, message), 0);
    nlmsg_free(message);
    while (dump.status > 0) {
        nl_recvmsgs(socket, callbacks.get());
    }
    return dump;
}

std::vector<Bytes> interfaces(const NetlinkRequest& request) {
    std::vector<Bytes> packets;
    for (const char* name : {"wlan0", "p2p0", "p2p-wlan0-3"}) {
        packets.push_back(
            test::dumpEntry(request, NL80211_CMD_NEW_INTERFACE,
                            test::attribute(NL80211_ATTR_IFNAME, test::terminatedText(name))));
    }
    packets.push_back(test::done(request));
    return packets;
}

class Nl80211Redirect : public testing::Test {
  protected:
    std::string socketPath() const { return root_.path("/dev/nl80211"); }

    TempRoot root_;
};

/** A connected pair: the program's socket and the peer's end. */
class Nl80211Connection : public Nl80211Redirect {
  protected:
    Nl80211Connection() : listener_(socketPath()), socket_(netlinkSocket()) {
        peer_ = listener_.accept();
    }

    Listener listener_;
    unique_fd socket_;
    unique_fd peer_;
};

TEST_F(Nl80211Redirect, LibnlFindsTheFamilyAndReadsADump) {
    FakeNl80211 kernel(root_.path(""));
    kernel.answer(interfaces);
    const Socket socket = libnlSocket();
    ASSERT_EQ(genl_connect(socket.get()), 0);
    EXPECT_EQ(nl_socket_set_buffer_size(socket.get(), 8192, 8192), 0);
    EXPECT_EQ(genl_ctrl_resolve(socket.get(), "nl80211"), FakeNl80211::kFamily);
    const Dump dump = dumpInterfaces(socket.get(), FakeNl80211::kFamily);
    EXPECT_EQ(dump.status, 0);
    EXPECT_THAT(dump.names, ElementsAre("wlan0", "p2p0", "p2p-wlan0-3"));
    ASSERT_EQ(kernel.requests().size(), 1U);
    EXPECT_EQ(kernel.requests()[0].port, nl_socket_get_local_port(socket.get()));
}

TEST_F(Nl80211Redirect, SocketIsTheKernelsOwnWithoutThePath) {
    const Socket socket = libnlSocket();
    ASSERT_EQ(genl_connect(socket.get()), 0);
    EXPECT_EQ(genl_ctrl_resolve(socket.get(), "nlctrl"), GENL_ID_CTRL);
}

TEST_F(Nl80211Redirect, SocketFailsWhereNobodyListens) {
    { const Listener gone(socketPath()); }
    ASSERT_TRUE(std::filesystem::exists(socketPath()));
    EXPECT_LT(genl_connect(libnlSocket().get()), 0);
    const size_t before = openDescriptors();
    EXPECT_EQ(netlinkSocket(), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Nl80211Redirect, SocketFailsWhereThereIsAnOrdinaryFile) {
    root_.write("/dev/nl80211", "");
    EXPECT_LT(genl_connect(libnlSocket().get()), 0);
}

TEST_F(Nl80211Redirect, OtherNetlinkProtocolsAreTheKernels) {
    const Listener listener(socketPath());
    const unique_fd route = netlinkSocket(SOCK_RAW, NETLINK_ROUTE);
    struct {
        nlmsghdr header = {};
        rtgenmsg body = {};
    } links;
    links.header.nlmsg_len = sizeof(links);
    links.header.nlmsg_type = RTM_GETLINK;
    links.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    ASSERT_EQ(send(route, &links, sizeof(links), 0), static_cast<ssize_t>(sizeof(links)));
    EXPECT_GT(receiveText(route).size(), sizeof(nlmsghdr));
    EXPECT_FALSE(listener.hasConnection());
}

TEST_F(Nl80211Connection, EachSendCallIsOnePacket) {
    char first[] = "first";
    char second[] = "second";
    iovec parts[] = {{first, 5}, {second, 6}};
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    msghdr message = {};
    message.msg_name = &kernel;
    message.msg_namelen = sizeof(kernel);
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    EXPECT_EQ(sendmsg(socket_, &message, 0), 11);
    EXPECT_EQ(send(socket_, "third", 5, 0), 5);
    EXPECT_EQ(sendto(socket_, "fourth", 6, 0, reinterpret_cast<sockaddr*>(&kernel), sizeof(kernel)),
              6);
    EXPECT_EQ(receiveText(peer_), "firstsecond");
    EXPECT_EQ(receiveText(peer_), "third");
    EXPECT_EQ(receiveText(peer_), "fourth");
}

TEST_F(Nl80211Connection, EachReceiveCallReturnsOnePacket) {
    for (const std::string text : {"first", "second", "third"}) {
        ASSERT_EQ(send(peer_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }
    EXPECT_EQ(receiveText(socket_), "first");
    char begin[3] = {};
    char end[10] = {};
    iovec parts[] = {{begin, sizeof(begin)}, {end, sizeof(end)}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    EXPECT_EQ(recvmsg(socket_, &message, 0), 6);
    EXPECT_EQ(std::string(begin, 3) + end, "second");
    EXPECT_EQ(message.msg_flags, 0);
    char text[10] = {};
    EXPECT_EQ(recvfrom(socket_, text, sizeof(text), 0, nullptr, nullptr), 5);
    EXPECT_STREQ(text, "third");
}

TEST_F(Nl80211Connection, PeekTellsTheWholeLengthAndLeavesThePacket) {
    ASSERT_EQ(send(peer_, "0123456789", 10, 0), 10);
    char buffer[4];
    iovec part = {buffer, sizeof(buffer)};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    EXPECT_EQ(recvmsg(socket_, &message, MSG_PEEK | MSG_TRUNC), 10);
    EXPECT_EQ(message.msg_flags, MSG_TRUNC);
    EXPECT_EQ(receiveText(socket_, MSG_PEEK), "0123456789");
    EXPECT_EQ(receiveText(socket_), "0123456789");
}

TEST_F(Nl80211Connection, PacketThatDoesNotFitIsCut) {
    ASSERT_EQ(send(peer_, "0123456789", 10, 0), 10);
    ASSERT_EQ(send(peer_, "next", 4, 0), 4);
    EXPECT_EQ(receiveText(socket_, 0, 4), "0123");
    EXPECT_EQ(receiveText(socket_), "next");
}

TEST_F(Nl80211Connection, PeersAddressIsTheKernels) {
    ASSERT_EQ(send(peer_, "a", 1, 0), 1);
    ASSERT_EQ(send(peer_, "b", 1, 0), 1);
    char byte;
    iovec part = {&byte, 1};
    sockaddr_nl address;
    memset(&address, 0xff, sizeof(address));
    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    ASSERT_EQ(recvmsg(socket_, &message, 0), 1);
    EXPECT_EQ(message.msg_namelen, sizeof(address));
    EXPECT_EQ(address.nl_family, AF_NETLINK);
    EXPECT_EQ(address.nl_pid, 0U);
    EXPECT_EQ(address.nl_groups, 0U);

    memset(&address, 0xff, sizeof(address));
    socklen_t length = sizeof(address);
    ASSERT_EQ(recvfrom(socket_, &byte, 1, 0, reinterpret_cast<sockaddr*>(&address), &length), 1);
    EXPECT_EQ(length, sizeof(address));
    EXPECT_EQ(address.nl_family, AF_NETLINK);
    EXPECT_EQ(address.nl_pid, 0U);

    memset(&address, 0xff, sizeof(address));
    length = 4;
    ASSERT_EQ(getpeername(socket_, reinterpret_cast<sockaddr*>(&address), &length), 0);
    EXPECT_EQ(length, sizeof(address));
    EXPECT_EQ(address.nl_family, AF_NETLINK);
    EXPECT_EQ(address.nl_pid, 0xffffffffU);  // beyond the room that was given
}

TEST_F(Nl80211Connection, DescriptorsFromThePeerAreNotTaken) {
    char byte = 'x';
    iovec part = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int passed = peer_.get();
    memcpy(CMSG_DATA(header), &passed, sizeof(passed));
    ASSERT_EQ(sendmsg(peer_, &message, 0), 1);
    const size_t before = openDescriptors();
    message.msg_controllen = sizeof(control);
    EXPECT_EQ(recvmsg(socket_, &message, 0), 1);
    EXPECT_EQ(message.msg_controllen, 0U);
    EXPECT_EQ(message.msg_flags, 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Nl80211Connection, AddressOfABoundSocketIsTheOneItWasBoundTo) {
    EXPECT_EQ(ownAddress(socket_).nl_family, AF_NETLINK);
    EXPECT_EQ(ownAddress(socket_).nl_pid, 0U);
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = 12345;
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(ownAddress(socket_).nl_pid, 12345U);
}

TEST_F(Nl80211Connection, SocketBoundToPort0GetsAPortOfItsOwn) {
    const unique_fd other = netlinkSocket();
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(sendBytes(other, request(1)), static_cast<ssize_t>(request(1).size()));
    EXPECT_NE(ownAddress(socket_).nl_pid, 0U);
    EXPECT_NE(ownAddress(other).nl_pid, 0U);
    EXPECT_NE(ownAddress(socket_).nl_pid, ownAddress(other).nl_pid);
}

TEST_F(Nl80211Connection, AddressOfAnotherKindIsRefused) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), 2), -1);
}

TEST_F(Nl80211Connection, OptionsAreThoseOfANetlinkSocket) {
    const int one = 1;
    const int size = 8192;
    for (const int name : {NETLINK_ADD_MEMBERSHIP, NETLINK_EXT_ACK, NETLINK_CAP_ACK}) {
        EXPECT_EQ(setsockopt(socket_, SOL_NETLINK, name, &one, sizeof(one)), 0) << name;
    }
    EXPECT_EQ(setsockopt(socket_, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size)), 0);
    EXPECT_EQ(setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)), 0);
    EXPECT_EQ(option(socket_, SOL_SOCKET, SO_DOMAIN), AF_NETLINK);
    EXPECT_EQ(option(socket_, SOL_SOCKET, SO_PROTOCOL), NETLINK_GENERIC);
    EXPECT_EQ(option(socket_, SOL_SOCKET, SO_TYPE), SOCK_RAW);
    EXPECT_EQ(option(netlinkSocket(SOCK_DGRAM), SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(option(socket_, SOL_SOCKET, SO_ERROR), 0);
}

TEST_F(Nl80211Connection, FlagsOfTheCallAreTheSockets) {
    EXPECT_EQ(fcntl(socket_, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(socket_, F_GETFL) & O_NONBLOCK, 0);
    const unique_fd plain(socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK, NETLINK_GENERIC));
    EXPECT_EQ(fcntl(plain, F_GETFD), 0);
    EXPECT_EQ(fcntl(plain, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(receiveText(plain), strerror(EAGAIN));
    EXPECT_EQ(receiveText(socket_, MSG_DONTWAIT), strerror(EAGAIN));
}

TEST_F(Nl80211Redirect, HangUpEndsALibnlDumpWithAnError) {
    FakeNl80211 kernel(root_.path(""));
    kernel.answer([](const NetlinkRequest& request) {
        std::vector<Bytes> packets = interfaces(request);
        packets.pop_back();
        return FakeNl80211::Answer{packets, true};
    });
    const Socket socket = libnlSocket();
    ASSERT_EQ(genl_connect(socket.get()), 0);
    const Dump dump = dumpInterfaces(socket.get(), FakeNl80211::kFamily);
    EXPECT_EQ(dump.status, -ECONNRESET);
    EXPECT_EQ(dump.names.size(), 3U);
}

TEST_F(Nl80211Connection, HangUpReadsAsAnErrorReplyToTheRequestUnderWay) {
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = 12345;
    ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_GT(sendBytes(socket_, request(77)), 0);
    receiveText(peer_);
    peer_.reset();
    for (const int flags : {MSG_PEEK | MSG_TRUNC, 0}) {
        const ErrorReply reply(socket_, flags);
        EXPECT_TRUE(reply.isReset());
        EXPECT_EQ(reply.bytes.header.nlmsg_seq, 77U);
        EXPECT_EQ(reply.bytes.header.nlmsg_pid, 12345U);
        EXPECT_EQ(reply.bytes.header.nlmsg_flags, NLM_F_CAPPED);
        EXPECT_EQ(memcmp(&reply.bytes.body.msg, request(77).data(), sizeof(nlmsghdr)), 0);
    }
    EXPECT_EQ(ErrorReply(socket_).error, ECONNRESET);
}

TEST_F(Nl80211Connection, ErrorReplyThatDoesNotFitIsCut) {
    ASSERT_GT(sendBytes(socket_, request(77)), 0);
    peer_.reset();
    char buffer[20];
    sockaddr_nl address = {};
    iovec part = {buffer, sizeof(buffer)};
    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    EXPECT_EQ(recvmsg(socket_, &message, MSG_PEEK | MSG_TRUNC), 36);
    EXPECT_EQ(message.msg_flags, MSG_TRUNC);
    EXPECT_EQ(address.nl_family, AF_NETLINK);
    EXPECT_EQ(recvmsg(socket_, &message, 0), 20);
    EXPECT_EQ(message.msg_flags, MSG_TRUNC);
}

TEST_F(Nl80211Connection, HangUpReadsAsAnErrorReplyToEachRequestUnderWay) {
    ASSERT_GT(sendBytes(socket_, request(1)), 0);
    ASSERT_GT(sendBytes(socket_, test::concat({request(2), request(3)})), 0);
    ASSERT_GT(sendBytes(socket_, request(4, NLM_F_REQUEST | NLM_F_DUMP)), 0);
    const NetlinkRequest second = test::parseRequest(request(2));
    ASSERT_GT(sendBytes(peer_, test::ack(second)), 0);
    peer_.reset();
    const ErrorReply acknowledgement(socket_);
    EXPECT_EQ(acknowledgement.bytes.header.nlmsg_seq, 2U);
    EXPECT_EQ(acknowledgement.bytes.body.error, 0);
    for (const uint32_t sequence : {1U, 3U, 4U}) {
        const ErrorReply reply(socket_);
        EXPECT_TRUE(reply.isReset()) << sequence;
        EXPECT_EQ(reply.bytes.header.nlmsg_seq, sequence);
    }
    EXPECT_EQ(ErrorReply(socket_).error, ECONNRESET);
}

TEST_F(Nl80211Connection, HangUpOfASocketWithoutRequestsReadsAsAnError) {
    peer_.reset();
    EXPECT_EQ(ErrorReply(socket_).error, ECONNRESET);
}

TEST_F(Nl80211Connection, RequestAfterTheHangUpIsAnsweredByAnErrorReply) {
    peer_.reset();
    for (const uint32_t sequence : {5U, 6U}) {
        EXPECT_EQ(sendBytes(socket_, request(sequence)),
                  static_cast<ssize_t>(request(sequence).size()));
        const ErrorReply reply(socket_);
        EXPECT_TRUE(reply.isReset());
        EXPECT_EQ(reply.bytes.header.nlmsg_seq, sequence);
    }
}

TEST_F(Nl80211Connection, HangUpWakesAReaderThatWaits) {
    ASSERT_GT(sendBytes(socket_, request(9)), 0);
    std::atomic<pid_t> thread = 0;
    std::unique_ptr<ErrorReply> reply;
    std::thread reader([&] {
        thread = gettid();
        reply = std::make_unique<ErrorReply>(socket_);
    });
    EXPECT_TRUE(test::waitUntil([&] { return thread != 0 && test::waitsIn(thread, SYS_recvmsg); }));
    peer_.reset();
    reader.join();
    EXPECT_TRUE(reply->isReset());
    EXPECT_EQ(reply->bytes.header.nlmsg_seq, 9U);
}

TEST_F(Nl80211Connection, RefusedPacketIsNotUnderWay) {
    const Bytes large(1 << 22, 0);
    Bytes tooLarge = request(1);
    tooLarge.insert(tooLarge.end(), large.begin(), large.end());
    EXPECT_EQ(sendBytes(socket_, tooLarge), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    ASSERT_GT(sendBytes(socket_, request(2)), 0);
    peer_.reset();
    EXPECT_EQ(ErrorReply(socket_).bytes.header.nlmsg_seq, 2U);
}

TEST_F(Nl80211Connection, CopyOfTheDescriptorIsTheSameSocket) {
    ASSERT_GT(sendBytes(socket_, request(8)), 0);
    const unique_fd copy(dup(socket_));
    const uint32_t port = ownAddress(socket_).nl_pid;
    socket_.reset();
    EXPECT_EQ(ownAddress(copy).nl_pid, port);
    peer_.reset();
    const ErrorReply reply(copy);
    EXPECT_TRUE(reply.isReset());
    EXPECT_EQ(reply.bytes.header.nlmsg_seq, 8U);
}

TEST_F(Nl80211Connection, DescriptorNumberOfAnotherFileIsNotRedirected) {
    const std::vector<void (*)(int)> ways = {
        [](int fd) { close(fd); },
        [](int fd) { syscall(SYS_close, fd); },
        [](int fd) { close_range(static_cast<unsigned>(fd), static_cast<unsigned>(fd), 0); },
    };
    for (const auto& closeNumber : ways) {
        const int number = netlinkSocket().release();
        EXPECT_EQ(option(number, SOL_SOCKET, SO_DOMAIN), AF_NETLINK);
        closeNumber(number);
        int ends[2] = {-1, -1};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        const unique_fd first(ends[0]);
        unique_fd second(ends[1]);
        ASSERT_EQ(first.get(), number);
        EXPECT_EQ(option(first, SOL_SOCKET, SO_DOMAIN), AF_UNIX);
        ASSERT_GT(sendBytes(first, request(1)), 0);
        receiveText(second);
        second.reset();
        EXPECT_EQ(receiveText(first), "");  // the end, not an error reply
    }
}

TEST_F(Nl80211Connection, ChildOfForkHasTheSocketToo) {
    ASSERT_GT(sendBytes(socket_, request(3)), 0);
    const pid_t child = fork();
    if (child == 0) {
        peer_.reset();  // the parent's end stays open until the child asked
        const bool redirected = option(socket_, SOL_SOCKET, SO_DOMAIN) == AF_NETLINK;
        _exit(redirected && sendBytes(socket_, request(4)) > 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(receiveText(peer_).size(), request(3).size());
    EXPECT_EQ(receiveText(peer_).size(), request(4).size());
}

TEST_F(Nl80211Redirect, TenThousandSocketsLeaveNoDescriptor) {
    FakeNl80211 kernel(root_.path(""));
    ASSERT_EQ(genl_connect(libnlSocket().get()), 0);
    while (kernel.connections() < 1) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(kernel.waitUntilClosed());
    const size_t before = openDescriptors();
    for (int i = 0; i < 10000; i++) {
        const Socket socket = libnlSocket();
        ASSERT_EQ(genl_connect(socket.get()), 0) << i;
        if (i % 100 == 0) {
            ASSERT_EQ(genl_ctrl_resolve(socket.get(), "nl80211"), FakeNl80211::kFamily);
        }
    }
    while (kernel.connections() <= 10000) {  // the peer has its own pace
        std::this_thread::yield();
    }
    ASSERT_TRUE(kernel.waitUntilClosed());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Nl80211Redirect, OpenSocketsAreRememberedWhileManyComeAndGo) {
    FakeNl80211 kernel(root_.path(""));
    kernel.answer(interfaces);
    std::vector<unique_fd> open;
    for (int i = 0; i < 100; i++) {
        open.push_back(netlinkSocket());
        for (int j = 0; j < 20; j++) {
            netlinkSocket();
        }
    }
    for (const unique_fd& socket : open) {
        ASSERT_EQ(option(socket, SOL_SOCKET, SO_DOMAIN), AF_NETLINK);
    }
}

TEST_F(Nl80211Redirect, FirstSocketsOfTwoThreadsAreBothRedirected) {
    // By the kernel's calls themselves, so that the library has seen no socket of this process yet.
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    socketPath().copy(address.sun_path, sizeof(address.sun_path) - 1);
    std::filesystem::create_directories(root_.path("/dev"));
    const unique_fd listener(
        static_cast<int>(syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)));
    ASSERT_EQ(syscall(SYS_bind, listener.get(), &address, sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 2), 0);

    std::atomic<int> ready = 0;
    std::atomic<int> redirected = 0;
    const auto open = [&] {
        // Without an order between the threads, which would hide a race from ThreadSanitizer.
        ready.fetch_add(1, std::memory_order_relaxed);
        while (ready.load(std::memory_order_relaxed) < 2) {
        }
        const unique_fd socket = netlinkSocket();
        if (option(socket, SOL_SOCKET, SO_DOMAIN) == AF_NETLINK) {
            redirected.fetch_add(1, std::memory_order_relaxed);
        }
    };
    std::thread first(open);
    std::thread second(open);
    first.join();
    second.join();
    EXPECT_EQ(redirected, 2);
}

TEST_F(Nl80211Redirect, SocketsOfSeveralThreadsAreApart) {
    FakeNl80211 kernel(root_.path(""));
    kernel.answer(interfaces);
    std::atomic<int> good = 0;
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
        thread = std::thread([&good] {
            for (int i = 0; i < 50; i++) {
                const Socket socket = libnlSocket();
                if (genl_connect(socket.get()) == 0 &&
                    genl_ctrl_resolve(socket.get(), "nl80211") == FakeNl80211::kFamily &&
                    dumpInterfaces(socket.get(), FakeNl80211::kFamily).names.size() == 3) {
                    good++;
                }
            }
        });
    }
    for (int i = 0; i < 20; i++) {  // what a fork meets must not be in another thread's hands
        const pid_t child = fork();
        if (child == 0) {
            const unique_fd socket = netlinkSocket();
            _exit(socket >= 0 && option(socket, SOL_SOCKET, SO_DOMAIN) == AF_NETLINK ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, 200);
}

}  // namespace
