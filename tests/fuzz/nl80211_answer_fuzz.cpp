// The kernel's answers to an operation of Nl80211Client. libnl's netlink sockets are socket pairs:
// the socket calls below stand in for the C library's. Everything runs on one thread, and the next
// packet is sent when libnl is about to receive it. When there is none left, the receive times out
// without a wait.
//
// An input begins with a byte that chooses the operation and what is answered as the kernel would
// (Head). The rest makes messages, each from an opcode byte (Kind, and what is done to it), and
// what that needs: single bytes, and blocks of bytes with a length byte before them.

#include <dlfcn.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <sys/socket.h>

#include "client/Nl80211Client.h"
#include "tests/fuzz/Check.h"
#include "tests/support/Netlink.h"

using test::Bytes;
using test::NetlinkRequest;
using namespace Ursa::OS::Wifi;

namespace {

constexpr uint16_t kFamily = 28;
constexpr size_t kLargestPacket = 65536;  ///< and a message; more than the client has room for

enum Operation : uint8_t { kGenericCommand, kVendorCommand, kP2pName, kBandwidth };
enum Head : uint8_t {
    kOperation = 0x03,        ///< which one
    kPlainFamily = 0x04,      ///< the family's number is answered
    kPlainInterfaces = 0x08,  ///< so is the interface dump that the bandwidth begins with
    kHangUp = 0x10,           ///< the last packet is followed by the end of the connection
    kTwice = 0x20,            ///< the operation is repeated on the same client
};

enum Kind : uint8_t {
    kAck,
    kError,           ///< byte: code
    kExplainedError,  ///< bytes: code, capped; block: attributes
    kDone,            ///< byte: code
    kInterface,       ///< block: name
    kStation,         ///< block: attributes of the transmit rate
    kStationInfo,     ///< block: attributes of the station
    kReply,           ///< byte: multi-part; block: attributes
    kMessage,         ///< bytes: type, flags; block: payload
    kFamilyReply,     ///< block: attributes behind the family's number
    kBytes,           ///< block: not a message
    kEndOfPacket,
    kKinds,
};
constexpr uint8_t kKindMask = 0x0f;
constexpr uint8_t kOtherRequest = 0x10;  ///< it answers another request
constexpr uint8_t kLastOfPacket = 0x20;
constexpr uint8_t kLongHeader = 0x40;   ///< its header claims more than there is
constexpr uint8_t kShortHeader = 0x80;  ///< ... or less

/** The rest of an input. Reads as zeros behind its end. */
class Input {
  public:
    Input(const uint8_t* data, size_t size) : data_(data), left_(size) {}

    bool atEnd() const { return left_ == 0; }

    uint8_t byte() {
        if (left_ == 0) {
            return 0;
        }
        --left_;
        return *data_++;
    }

    Bytes block() {
        const size_t length = std::min<size_t>(byte(), left_);
        Bytes bytes(data_, data_ + length);
        data_ += length;
        left_ -= length;
        return bytes;
    }

  private:
    const uint8_t* data_;
    size_t left_;
};

int code(uint8_t byte) { return static_cast<int8_t>(byte); }

Bytes makeMessage(const NetlinkRequest& request, uint8_t kind, Input& input) {
    using test::attribute;
    switch (kind) {
        case kAck:
            return test::ack(request);
        case kError:
            return test::error(request, code(input.byte()));
        case kExplainedError: {
            const int error = code(input.byte());
            const bool capped = input.byte() % 2 != 0;
            return test::explainedError(request, error, input.block(), capped);
        }
        case kDone:
            return test::done(request, code(input.byte()));
        case kInterface:
            return test::dumpEntry(request, NL80211_CMD_NEW_INTERFACE,
                                   attribute(NL80211_ATTR_IFNAME, input.block()));
        case kStation:
            return test::dumpEntry(
                request, NL80211_CMD_NEW_STATION,
                attribute(NL80211_ATTR_STA_INFO | NLA_F_NESTED,
                          attribute(NL80211_STA_INFO_TX_BITRATE | NLA_F_NESTED, input.block())));
        case kStationInfo:
            return test::dumpEntry(request, NL80211_CMD_NEW_STATION,
                                   attribute(NL80211_ATTR_STA_INFO | NLA_F_NESTED, input.block()));
        case kReply: {
            const bool multi = input.byte() % 2 != 0;
            return multi ? test::dumpEntry(request, NL80211_CMD_VENDOR, input.block())
                         : test::reply(request, NL80211_CMD_VENDOR, input.block());
        }
        case kMessage: {
            const uint8_t type = input.byte();
            const uint8_t flags = input.byte();
            return test::message(request, type, flags, input.block());
        }
        case kFamilyReply:
            return test::reply(
                request, CTRL_CMD_NEWFAMILY,
                test::concat(
                    {attribute(CTRL_ATTR_FAMILY_ID, test::number16(kFamily)), input.block()}));
        case kBytes:
            return input.block();
        default:
            return {};
    }
}

/** Adds to the length in the header of `message`, if it has one. */
void changeLength(Bytes& message, int change) {
    uint32_t length = 0;
    if (message.size() >= sizeof(length)) {
        memcpy(&length, message.data(), sizeof(length));
        length += static_cast<uint32_t>(change);
        memcpy(message.data(), &length, sizeof(length));
    }
}

/** The next packet that the input makes in answer to `request`; empty at the end of the input. */
Bytes makePacket(const NetlinkRequest& request, Input& input) {
    NetlinkRequest other = request;
    ++other.sequence;
    Bytes packet;
    while (!input.atEnd() && packet.size() < kLargestPacket) {
        const uint8_t opcode = input.byte();
        const uint8_t kind = (opcode & kKindMask) % kKinds;
        Bytes message = makeMessage((opcode & kOtherRequest) != 0 ? other : request, kind, input);
        if ((opcode & kLongHeader) != 0) {
            changeLength(message, 64);
        } else if ((opcode & kShortHeader) != 0) {
            changeLength(message, -4);
        }
        packet.insert(packet.end(), message.begin(), message.end());
        if ((kind == kEndOfPacket || (opcode & kLastOfPacket) != 0) && !packet.empty()) {
            break;
        }
    }
    return packet;
}

/** Whether `packet` holds the end of a dump or an acknowledgement, with this sequence number. */
bool endsWell(const Bytes& packet, uint32_t sequence) {
    size_t offset = 0;
    while (offset + sizeof(nlmsghdr) <= packet.size()) {
        nlmsghdr header{};
        memcpy(&header, packet.data() + offset, sizeof(header));
        if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > packet.size() - offset) {
            return false;
        }
        int error = 0;
        if (header.nlmsg_len >= sizeof(header) + sizeof(error)) {
            memcpy(&error, packet.data() + offset + sizeof(header), sizeof(error));
        }
        if (header.nlmsg_seq == sequence &&
            (header.nlmsg_type == NLMSG_DONE || (header.nlmsg_type == NLMSG_ERROR && error == 0))) {
            return true;
        }
        offset += NLMSG_ALIGN(size_t{header.nlmsg_len});
    }
    return false;
}

/** The C library's own `function`. */
template <typename Function>
Function* next(Function* /*type*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define NEXT(function)                                          \
    ([] {                                                       \
        static auto* const found = next(::function, #function); \
        return found;                                           \
    }())

/** The kernel's end of the client's connections, of which there is one at a time. */
class Kernel {
  public:
    static Kernel& instance() {
        static Kernel kernel;
        return kernel;
    }

    void play(uint8_t head, Input input) {
        head_ = head;
        input_ = input;
        endedWell_ = false;
    }

    /** Gives back what the input took: libFuzzer looks for leaks, slowly, if anything is kept. */
    void stop() {
        request_ = NetlinkRequest();
        plain_ = std::vector<Bytes>();
    }

    /** The client's end of a new connection. */
    int connect() {
        FUZZ_CHECK(!connection_.ok() || isClosedByClient());
        int ends[2] = {-1, -1};
        FUZZ_CHECK(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0);
        client_ = ends[0];
        connection_.reset(ends[1]);
        open_ = true;
        return client_;
    }

    bool isClient(int fd) const { return connection_.ok() && fd == client_; }

    /** Takes the client's request, if it has sent one, and sends the next packet. */
    void serve() {
        std::array<uint8_t, 4096> buffer{};
        const ssize_t length = recv(connection_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (length > 0) {
            request_ = test::parseRequest(Bytes(buffer.begin(), buffer.begin() + length));
            plain_ = plainAnswer();
            endedWell_ = false;
        }
        if (!open_) {
            return;
        }
        const Bytes packet = nextPacket();
        if (!packet.empty()) {
            FUZZ_CHECK(send(connection_.get(), packet.data(), packet.size(), MSG_NOSIGNAL) ==
                       static_cast<ssize_t>(packet.size()));
            endedWell_ = endedWell_ || endsWell(packet, request_.sequence);
        } else if ((head_ & kHangUp) != 0) {
            shutdown(connection_.get(), SHUT_WR);
            open_ = false;
        }
    }

    void expectClosed() {
        FUZZ_CHECK(!connection_.ok() || isClosedByClient());
        connection_.reset();
    }

    /** Whether what was sent acknowledged or ended the last request. */
    bool endedWell() const { return endedWell_; }

  private:
    bool isClosedByClient() const {
        char byte = 0;
        const ssize_t length =
            recv(connection_.get(), &byte, sizeof(byte), MSG_DONTWAIT | MSG_PEEK);
        // A reset: the client did not read everything.
        return length == 0 || (length < 0 && errno == ECONNRESET);
    }

    /** What the kernel would answer, where the input says that it does; the first packet last. */
    std::vector<Bytes> plainAnswer() const {
        const bool bandwidth = (head_ & kOperation) == kBandwidth;
        if (request_.type == GENL_ID_CTRL && (head_ & kPlainFamily) != 0) {
            return {test::ack(request_),
                    test::reply(request_, CTRL_CMD_NEWFAMILY,
                                test::attribute(CTRL_ATTR_FAMILY_ID, test::number16(kFamily)))};
        }
        if (request_.type != GENL_ID_CTRL && request_.cmd == NL80211_CMD_GET_INTERFACE &&
            bandwidth && (head_ & kPlainInterfaces) != 0) {
            return {test::done(request_),
                    test::dumpEntry(
                        request_, NL80211_CMD_NEW_INTERFACE,
                        test::attribute(NL80211_ATTR_IFNAME, test::terminatedText("wlan0")))};
        }
        return {};
    }

    Bytes nextPacket() {
        if (plain_.empty()) {
            return makePacket(request_, input_);
        }
        Bytes packet = std::move(plain_.back());
        plain_.pop_back();
        return packet;
    }

    int client_ = -1;  ///< libnl's
    android::base::unique_fd connection_;
    bool open_ = false;  ///< not hung up
    NetlinkRequest request_;
    std::vector<Bytes> plain_;  ///< packets still to be sent, the next one last
    uint8_t head_ = 0;
    Input input_{nullptr, 0};
    bool endedWell_ = false;
};

int errorLines = 0;

void countErrors(const __android_logger_data* log, const char* /*message*/) {
    errorLines += log->priority >= ANDROID_LOG_ERROR ? 1 : 0;
}

/** A name that was returned, and what it was then. */
using ReturnedName = std::pair<const char*, std::string>;

void checkName(const char* name, std::string_view prefix, std::vector<ReturnedName>& returned) {
    if (name == nullptr) {
        return;
    }
    const std::string_view text(name);
    FUZZ_CHECK(text.size() < 16 && text.substr(0, prefix.size()) == prefix);
    returned.emplace_back(name, text);
}

void run(Nl80211Client& client, uint8_t operation, std::vector<ReturnedName>& returned) {
    Kernel& kernel = Kernel::instance();
    errorLines = 0;
    switch (operation) {
        case kGenericCommand: {
            const uint8_t frame[] = {0xd0, 0, 1, 2, 3};
            Nl80211GenericCmdInfo info;
            info.cmd = NL80211_CMD_FRAME;
            info.ifname = "lo";
            info.attributes = {{NL80211_ATTR_FRAME, gsl::span<const uint8_t>(frame)}};
            const int result = client.sendGenericCommand(info);
            FUZZ_CHECK(result == 0 ? kernel.endedWell() : result == -1 && errorLines > 0);
            break;
        }
        case kVendorCommand: {
            Nl80211VendorCmdInfo info;
            info.vendorId = kPrivateCommandVendorId;
            info.subcmd = 2;
            info.command = "P2P_ECSA 149 80";
            info.ifname = "lo";
            const int result = client.sendVendorCommand(info);
            FUZZ_CHECK(result == 0 ? kernel.endedWell() : result == -1 && errorLines > 0);
            break;
        }
        case kP2pName: {
            const char* name = client.getNetInterfaceName(NetInterfaceType::P2P);
            FUZZ_CHECK(name == nullptr || kernel.endedWell());
            checkName(name, "p2p", returned);
            break;
        }
        default: {
            const int bandwidth = client.getStaBandwidth();
            FUZZ_CHECK(bandwidth >= 0 && bandwidth <= 5);
            FUZZ_CHECK(bandwidth == 0 || kernel.endedWell());
            break;
        }
    }
    kernel.expectClosed();
    for (const auto& [name, text] : returned) {
        FUZZ_CHECK(name == text);
    }
}

}  // namespace

// What libnl calls on its sockets. Some C libraries declare these as not throwing, bionic does not.

extern "C" int socket(int domain, int type, int protocol) noexcept(noexcept(::socket(0, 0, 0))) {
    return domain == AF_NETLINK ? Kernel::instance().connect()
                                : NEXT(socket)(domain, type, protocol);
}

extern "C" int bind(int fd, const sockaddr* address,
                    socklen_t length) noexcept(noexcept(::bind(0, nullptr, 0))) {
    return Kernel::instance().isClient(fd) ? 0 : NEXT(bind)(fd, address, length);
}

extern "C" int getsockname(int fd, sockaddr* address,
                           socklen_t* length) noexcept(noexcept(::getsockname(0, nullptr,
                                                                              nullptr))) {
    if (!Kernel::instance().isClient(fd)) {
        return NEXT(getsockname)(fd, address, length);
    }
    sockaddr_nl netlink{};
    netlink.nl_family = AF_NETLINK;
    netlink.nl_pid = 1;
    *length = sizeof(netlink);
    memcpy(address, &netlink, sizeof(netlink));
    return 0;
}

extern "C" ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    if (!Kernel::instance().isClient(fd)) {
        return NEXT(sendmsg)(fd, message, flags);
    }
    msghdr packet = *message;
    packet.msg_name = nullptr;
    packet.msg_namelen = 0;
    return NEXT(sendmsg)(fd, &packet, flags | MSG_NOSIGNAL);
}

extern "C" ssize_t recvmsg(int fd, msghdr* message, int flags) {
    if (!Kernel::instance().isClient(fd)) {
        return NEXT(recvmsg)(fd, message, flags);
    }
    Kernel::instance().serve();
    msghdr packet = *message;
    packet.msg_name = nullptr;
    packet.msg_namelen = 0;
    const ssize_t length = NEXT(recvmsg)(fd, &packet, flags | MSG_DONTWAIT);
    sockaddr_nl netlink{};
    netlink.nl_family = AF_NETLINK;
    memcpy(message->msg_name, &netlink, sizeof(netlink));
    message->msg_namelen = sizeof(netlink);
    message->msg_controllen = 0;
    message->msg_flags = packet.msg_flags;
    return length;
}

// What recvmsg() did not find will not come: the time is up.
extern "C" int poll(pollfd* waited, nfds_t count, int timeout) {
    const bool silent = count == 1 && Kernel::instance().isClient(waited->fd);
    return silent ? 0 : NEXT(poll)(waited, count, timeout);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    static const bool counted = [] {
        __android_log_set_logger(countErrors);
        return true;
    }();
    (void)counted;
    const uint8_t head = data[0];
    Kernel::instance().play(head, Input(data + 1, size - 1));
    Nl80211Client client;
    std::vector<ReturnedName> returned;
    const uint8_t operation = head & kOperation;
    run(client, operation, returned);
    if ((head & kTwice) != 0) {
        run(client, operation, returned);
    }
    Kernel::instance().stop();
    return 0;
}
