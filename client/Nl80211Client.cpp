#include "client/Nl80211Client.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#include <sys/socket.h>

#include "client/NetlinkHandles.h"
#include "os/Log.h"
#include "os/Trace.h"

namespace Ursa::OS::Wifi {

namespace {

// The highest attribute numbers in the headers of the headset's kernel, fixed here so that they do
// not depend on the build's kernel headers.
constexpr int kNl80211AttrMax = 301;      // NL80211_ATTR_MAX
constexpr int kStaInfoMax = 43;           // NL80211_STA_INFO_MAX
constexpr int kRateInfoMax = 17;          // NL80211_RATE_INFO_MAX
constexpr int kExtendedAckAttrMax = 4;    // NLMSGERR_ATTR_MAX
constexpr int kSocketBufferBytes = 8192;  // for sending, and for receiving

/** The largest packet that the kernel builds for a dump. */
constexpr size_t kMaxPacketBytes = 32768;

/** After an exchange's deadline at most this many packets are still read: more than fit into
 * kSocketBufferBytes, but a limit for a peer that keeps sending. */
constexpr int kMaxLateReceives = 64;

/** The driver expects at least this many characters, without the NUL, in a private command. */
constexpr size_t kPrivateCommandMinLength = 25;
/** The text's attribute number inside the vendor data. */
constexpr int kPrivateCommandAttr = 0;

/** An attribute's length field has 16 bits and counts the attribute's header. */
constexpr size_t kMaxPayloadBytes = UINT16_MAX - NLA_HDRLEN;

/** One request and the state of its answer. The argument of libnl's callbacks. */
struct Exchange {
    int status = 1;  ///< 1: not completely answered, 0: done, negative: failed
    uint32_t sequence = 0;
    std::chrono::milliseconds timeout{};
    /** Set at the first receive, because the kernel does its work while the request is sent. */
    std::optional<std::chrono::steady_clock::time_point> deadline = std::nullopt;
    int lateReceives = 0;      ///< packets read after the deadline
    bool endReceived = false;  ///< a received packet contained the end of the dump
};

/**
 * This thread's exchange, for receive(), which libnl calls without an argument, and for the
 * socket's own callbacks, which outlive an exchange.
 */
thread_local Exchange* currentExchange = nullptr;

/** Makes `exchange` the current one for a scope. */
class CurrentExchange {
  public:
    explicit CurrentExchange(Exchange& exchange) { currentExchange = &exchange; }
    ~CurrentExchange() { currentExchange = nullptr; }
    CurrentExchange(const CurrentExchange&) = delete;
    CurrentExchange& operator=(const CurrentExchange&) = delete;
};

/**
 * Sets the deadline at the first receive. After the deadline queued packets may still be received,
 * because they may have arrived in time while the process was stopped. Returns false once
 * kMaxLateReceives of them were.
 */
bool mayReceive(Exchange& exchange) {
    const auto now = std::chrono::steady_clock::now();
    if (!exchange.deadline) {
        exchange.deadline = now + exchange.timeout;
    }
    return now < *exchange.deadline || ++exchange.lateReceives <= kMaxLateReceives;
}

/** Waits until something can be received. Returns false at the exchange's deadline. */
bool waitForPacket(nl_sock* socket, const Exchange& exchange) {
    using std::chrono::milliseconds;
    while (true) {
        const milliseconds left =
            std::chrono::ceil<milliseconds>(*exchange.deadline - std::chrono::steady_clock::now());
        pollfd waited = {nl_socket_get_fd(socket), POLLIN, 0};
        const int ready =
            poll(&waited, 1, static_cast<int>(std::max<milliseconds::rep>(left.count(), 0)));
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}

/** What a packet contains of an exchange. */
struct Contents {
    bool message = false;  ///< a message of it
    bool end = false;      ///< the end of its dump
};

Contents contentsOf(unsigned char* packet, int length, uint32_t sequence) {
    Contents contents;
    auto* header = reinterpret_cast<nlmsghdr*>(packet);
    for (; nlmsg_ok(header, length) != 0; header = nlmsg_next(header, &length)) {
        if (header->nlmsg_seq == sequence) {
            contents.message = true;
            contents.end = contents.end || header->nlmsg_type == NLMSG_DONE;
        }
    }
    return contents;
}

/** Frees a packet from nl_recv(). */
void dropPacket(unsigned char** bytes, ucred** credentials) {
    free(*bytes);
    free(*credentials);
    *bytes = nullptr;
    *credentials = nullptr;
}

/**
 * Receives for nl_recvmsgs the next packet that contains a message of the exchange. (libnl's own
 * request for a family would take any packet for the reply.) nl_recvmsgs goes on until the status
 * is set, which otherwise only an answer does, so these end the exchange here:
 *  - The deadline has passed.
 *  - The connection is broken, or the kernel dropped the answer (ENOBUFS: on a socket that is in no
 *    multicast group, a lost packet is the answer to the one pending request).
 *  - An error reply in the middle of a dump has set the status, but libnl waits for the dump's end.
 *  - A handler has dropped the rest of a packet, and the dump's end with it, and has logged why.
 * A packet too large for the buffer does not: it was consumed, and the next one is read.
 */
int receive(nl_sock* socket, sockaddr_nl* peer, unsigned char** bytes, ucred** credentials) {
    Exchange& exchange = *currentExchange;
    if (exchange.status > 0 && exchange.endReceived) {
        exchange.status = -EBADMSG;
    }
    if (exchange.status <= 0) {
        return -NLE_FAILURE;
    }
    int received = -NLE_AGAIN;
    while (mayReceive(exchange)) {
        // Does not block: libnl would restart the wait after each signal that this thread handles.
        received = nl_recv(socket, peer, bytes, credentials);
        if (received > 0) {
            const Contents contents = contentsOf(*bytes, received, exchange.sequence);
            if (contents.message) {
                exchange.endReceived = contents.end;
                return received;
            }
            dropPacket(bytes, credentials);
        } else if (received == -NLE_AGAIN) {
            if (!waitForPacket(socket, exchange)) {
                break;
            }
        } else if (received != -NLE_MSG_TRUNC) {
            break;
        }
        received = -NLE_AGAIN;
    }
    if (received == -NLE_AGAIN) {
        WIFI_LOGE("Failed to receive netlink response: timed out");
        exchange.status = -ETIMEDOUT;
    } else {
        WIFI_LOGE("Failed to receive netlink response: %s",
                  received == 0 ? "connection closed" : nl_geterror(received));
        exchange.status = -EIO;
    }
    return received;
}

/** A callback of the socket: notes the sequence number of the request that is being sent. */
int noteRequest(nl_msg* message, void* /*arg*/) {
    currentExchange->sequence = nlmsg_hdr(message)->nlmsg_seq;
    return NL_OK;
}

/** A message with its netlink and generic netlink headers; null, and logged, without memory. */
NetlinkMessage newMessage(int family, int flags, uint8_t cmd) {
    NetlinkMessage message(nlmsg_alloc());
    // Port and sequence number are filled in when it is sent. A fresh message has room for headers.
    // The acknowledgement is asked for here because the socket does not (initState_).
    if (message == nullptr || genlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0,
                                          flags | NLM_F_ACK, cmd, 0) == nullptr) {
        WIFI_LOGE("Failed to allocate netlink message.");
        return nullptr;
    }
    return message;
}

/** nla_put for any length: libnl takes an int and does not check that it fits an attribute. */
int putBytes(nl_msg* message, int type, const void* bytes, size_t length) {
    if (length > kMaxPayloadBytes) {
        return -NLE_RANGE;
    }
    return nla_put(message, type, static_cast<int>(length), bytes);
}

/** Appends `attribute`. Returns 0 or a libnl error code, for example when the message is full. */
int putAttribute(nl_msg* message, const Nl80211Attribute& attribute) {
    struct Put {
        nl_msg* message;
        int type;
        int operator()(uint8_t value) const { return nla_put_u8(message, type, value); }
        int operator()(uint16_t value) const { return nla_put_u16(message, type, value); }
        int operator()(uint32_t value) const { return nla_put_u32(message, type, value); }
        int operator()(uint64_t value) const { return nla_put_u64(message, type, value); }
        int operator()(gsl::span<const uint8_t> value) const {
            return putBytes(message, type, value.data(), value.size());
        }
    };
    return std::visit(Put{message, static_cast<int>(attribute.type)}, attribute.value);
}

/** Logs that attribute `type` could not be appended and returns -1. */
int putFailed(uint32_t type) {
    WIFI_LOGE("Failed to add attribute %u to message", type);
    return -1;
}

/** Appends `attributes` in order. Returns 0, or -1 after logging at the first that fails. */
int putAttributes(nl_msg* message, const std::vector<Nl80211Attribute>& attributes) {
    for (const Nl80211Attribute& attribute : attributes) {
        if (putAttribute(message, attribute) < 0) {
            return putFailed(attribute.type);
        }
    }
    return 0;
}

/** Starts the nested attribute for a vendor command's data; null after logging. */
nlattr* startVendorData(nl_msg* message) {
    nlattr* nest = nla_nest_start(message, NL80211_ATTR_VENDOR_DATA);
    if (nest == nullptr) {
        WIFI_LOGE("Failed to start nested netlink attribute.");
    }
    return nest;
}

/** Appends a private command in the form that the driver of kPrivateCommandVendorId expects. */
int putPrivateCommand(nl_msg* message, const char* ifname, const std::string& command) {
    std::string text = std::string("ifname=") + ifname + " " + command;
    if (text.size() < kPrivateCommandMinLength) {
        text.resize(kPrivateCommandMinLength, ' ');
    }
    nlattr* nest = startVendorData(message);
    if (nest == nullptr) {
        return -1;
    }
    // A C string to the driver: it ends at the first NUL, which is sent too.
    if (putBytes(message, kPrivateCommandAttr, text.c_str(), strlen(text.c_str()) + 1) < 0) {
        return putFailed(NL80211_ATTR_VENDOR_DATA);
    }
    nla_nest_end(message, nest);
    return 0;
}

/** The outcome of an interface dump. */
struct FoundInterface {
    std::string_view prefix;  ///< of the names that match
    std::string name;         ///< of the last interface that matched; empty: none did
};

/** A copy of an interface's name, valid until this thread's next call. */
const char* threadCopy(const std::string& name) {
    thread_local std::array<char, IFNAMSIZ> copy;
    copy[name.copy(copy.data(), copy.size() - 1)] = '\0';
    return copy.data();
}

/** The outcome of a station dump. */
struct StationResult {
    int bandwidth = 0;  ///< a code as getStaBandwidth returns it
    int error = 1;      ///< 0 once a station was read, else what was wrong with the last one
};

/** The sizes that the kernel writes; a shorter attribute means a malformed record. */
constexpr std::array<nla_policy, kStaInfoMax + 1> kStaInfoPolicy = [] {
    std::array<nla_policy, kStaInfoMax + 1> policy{};
    for (int counter :
         {NL80211_STA_INFO_INACTIVE_TIME, NL80211_STA_INFO_RX_BYTES, NL80211_STA_INFO_TX_BYTES,
          NL80211_STA_INFO_RX_PACKETS, NL80211_STA_INFO_TX_PACKETS}) {
        policy[counter].type = NLA_U32;
    }
    policy[NL80211_STA_INFO_SIGNAL].type = NLA_U8;
    policy[NL80211_STA_INFO_TX_BITRATE].type = NLA_NESTED;
    return policy;
}();
constexpr std::array<nla_policy, kRateInfoMax + 1> kRateInfoPolicy = [] {
    std::array<nla_policy, kRateInfoMax + 1> policy{};
    policy[NL80211_RATE_INFO_BITRATE].type = NLA_U16;
    policy[NL80211_RATE_INFO_BITRATE32].type = NLA_U32;
    for (int flag : {NL80211_RATE_INFO_40_MHZ_WIDTH, NL80211_RATE_INFO_80_MHZ_WIDTH,
                     NL80211_RATE_INFO_80P80_MHZ_WIDTH, NL80211_RATE_INFO_160_MHZ_WIDTH}) {
        policy[flag].type = NLA_FLAG;
    }
    return policy;
}();

/** The code of the widest channel flagged in a transmit rate; std::nullopt if it is malformed. */
std::optional<int> bandwidthCode(nlattr* rateInfo) {
    std::array<nlattr*, kRateInfoMax + 1> rate{};
    if (nla_parse_nested(rate.data(), kRateInfoMax, rateInfo, kRateInfoPolicy.data()) < 0) {
        return std::nullopt;
    }
    if (rate[NL80211_RATE_INFO_160_MHZ_WIDTH] != nullptr) {
        return 5;
    }
    if (rate[NL80211_RATE_INFO_80P80_MHZ_WIDTH] != nullptr) {
        return 4;
    }
    if (rate[NL80211_RATE_INFO_80_MHZ_WIDTH] != nullptr) {
        return 3;
    }
    if (rate[NL80211_RATE_INFO_40_MHZ_WIDTH] != nullptr) {
        return 2;
    }
    return 1;
}

}  // namespace

/** Freed in reverse order: message, callbacks, socket. */
struct Nl80211Client::Request {
    NetlinkSocket socket;
    NetlinkCallbacks callbacks;
    NetlinkMessage message;
    NetlinkStats::Result result;
};

// The operations

int Nl80211Client::sendGenericCommand(const Nl80211GenericCmdInfo& info, int* error) {
    const MutexLock lock(mutex_);
    const auto send = [&](Request& request) {
        if (initState_(request) != 0 || constructGenericMsg_(request, info) != 0) {
            return -1;
        }
        return sendMsg_(request);
    };
    return noted_("command " + std::to_string(info.cmd), send, error);
}

template <typename Operation>
int Nl80211Client::noted_(const std::string& text, Operation operation, int* error) {
    const TraceSlice slice([&] { return TraceName("nl80211", text); });
    Request request;
    const NetlinkStats::Pending pending(stats_, text, request.result);
    const int result = operation(request);
    if (error != nullptr) {
        *error = request.result.code;
    }
    return result;
}

int Nl80211Client::sendVendorCommand(const Nl80211VendorCmdInfo& info, int* error) {
    const MutexLock lock(mutex_);
    const std::string text =
        "vendor command " + std::to_string(info.subcmd) + (info.command.empty() ? "" : " ");
    const auto send = [&](Request& request) {
        if (initState_(request) != 0 || constructVendorMsg_(request, info) != 0) {
            return -1;
        }
        return sendMsg_(request);
    };
    return noted_(text + info.command, send, error);
}

const char* Nl80211Client::getNetInterfaceName(NetInterfaceType type) {
    const MutexLock lock(mutex_);
    if (type != NetInterfaceType::STA && type != NetInterfaceType::P2P) {
        return nullptr;
    }
    InterfaceSlot& slot = slots_[static_cast<size_t>(type)];
    if (type == NetInterfaceType::STA && !slot.name.empty()) {
        return slot.name.c_str();
    }

    FoundInterface found = {slot.prefix, {}};
    const int result = noted_("interfaces", [&](Request& request) {
        if (initState_(request) != 0) {
            return -1;
        }
        request.message = newMessage(request.result.family, NLM_F_DUMP, NL80211_CMD_GET_INTERFACE);
        if (request.message == nullptr) {
            return -1;
        }
        nl_cb_set(request.callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, findIfaceHandler, &found);
        return sendMsg_(request);
    });
    if (!found.name.empty()) {
        slot.name = found.name;
        stats_.setName(type, slot.name);
    }
    // A P2P name stays in its slot when its interface has gone (see the header).
    if (result != 0 || slot.name.empty()) {
        return nullptr;
    }
    if (type == NetInterfaceType::STA) {
        return slot.name.c_str();  // written once
    }
    const char* kept = names_.add(slot.name);
    return kept != nullptr ? kept : threadCopy(slot.name);
}

int Nl80211Client::getStaBandwidth() {
    // Before the lock, which it takes itself. A STA name, once found, does not change any more.
    const char* ifname = getNetInterfaceName(NetInterfaceType::STA);
    if (ifname == nullptr) {
        WIFI_LOGE("STA interface name not available");
        return 0;
    }

    const MutexLock lock(mutex_);
    StationResult result;
    const int sent = noted_("stations", [&](Request& request) {
        if (initState_(request) != 0) {
            return -1;
        }
        request.message = newMessage(request.result.family, NLM_F_DUMP, NL80211_CMD_GET_STATION);
        if (request.message == nullptr) {
            return -1;
        }
        if (nla_put_u32(request.message.get(), NL80211_ATTR_IFINDEX, if_nametoindex(ifname)) < 0) {
            WIFI_LOGE("Failed to add interface index to message");
            return -1;
        }
        nl_cb_set(request.callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, stationHandler, &result);
        return sendMsg_(request);
    });
    return sent == 0 && result.error == 0 ? result.bandwidth : 0;
}

// Connection

int Nl80211Client::initState_(Request& request) const {
    request.socket.reset(nl_socket_alloc());
    nl_sock* socket = request.socket.get();
    if (socket == nullptr) {
        WIFI_LOGE("Failed to allocate netlink socket.");
        return -1;
    }
    // libnl versions that refuse this on a socket without a connection give it their own default.
    nl_socket_set_buffer_size(socket, kSocketBufferBytes, kSocketBufferBytes);
    // By default libnl peeks at every packet for its size, a second system call. A buffer for the
    // kernel's largest packet makes that unnecessary.
    nl_socket_set_msg_buf_size(socket, kMaxPacketBytes);
    nl_socket_disable_msg_peek(socket);
    // Otherwise libnl asks for an acknowledgement of the family look-up too, which has a reply, and
    // receives it with one more system call.
    nl_socket_disable_auto_ack(socket);
    if (genl_connect(socket) < 0) {
        WIFI_LOGE("Failed to connect to generic netlink.");
        return -1;
    }
    nl_socket_set_nonblocking(socket);
    // Not checked: if the family does not exist, the kernel answers the request with an error.
    request.result.family = resolveFamily_(socket);
    request.callbacks.reset(nl_cb_alloc(NL_CB_DEFAULT));
    if (request.callbacks == nullptr) {
        WIFI_LOGE("Failed to allocate netlink callback.");
        return -1;
    }
    return 0;
}

int Nl80211Client::resolveFamily_(nl_sock* socket) const {
    const NetlinkCallbacks callbacks(nl_socket_get_cb(socket));
    nl_cb_set(callbacks.get(), NL_CB_MSG_OUT, NL_CB_CUSTOM, noteRequest, nullptr);
    nl_cb_set(callbacks.get(), NL_CB_SEQ_CHECK, NL_CB_CUSTOM, sequenceHandler, nullptr);
    nl_cb_overwrite_recv(callbacks.get(), receive);
    Exchange exchange;
    exchange.timeout = answerTimeout_;
    const CurrentExchange current(exchange);
    return genl_ctrl_resolve(socket, "nl80211");
}

// Messages

int Nl80211Client::constructGenericMsg_(Request& request, const Nl80211GenericCmdInfo& info) {
    request.message = newMessage(request.result.family, info.flags, info.cmd);
    nl_msg* message = request.message.get();
    if (message == nullptr) {
        return -1;
    }
    if (nla_put_u32(message, NL80211_ATTR_IFINDEX, if_nametoindex(info.ifname)) < 0) {
        return putFailed(NL80211_ATTR_IFINDEX);
    }
    return putAttributes(message, info.attributes);
}

int Nl80211Client::constructVendorMsg_(Request& request, const Nl80211VendorCmdInfo& info) {
    request.message = newMessage(request.result.family, 0, NL80211_CMD_VENDOR);
    nl_msg* message = request.message.get();
    if (message == nullptr) {
        return -1;
    }
    if (nla_put_u32(message, NL80211_ATTR_IFINDEX, if_nametoindex(info.ifname)) < 0) {
        return putFailed(NL80211_ATTR_IFINDEX);
    }
    if (nla_put_u32(message, NL80211_ATTR_VENDOR_ID, info.vendorId) < 0) {
        return putFailed(NL80211_ATTR_VENDOR_ID);
    }
    if (nla_put_u32(message, NL80211_ATTR_VENDOR_SUBCMD, info.subcmd) < 0) {
        return putFailed(NL80211_ATTR_VENDOR_SUBCMD);
    }
    if (info.vendorId == kPrivateCommandVendorId &&
        putPrivateCommand(message, info.ifname, info.command) != 0) {
        return -1;
    }
    if (info.attributes.empty()) {
        return 0;
    }
    // A second nested attribute with the same number, if there was a private command.
    nlattr* nest = startVendorData(message);
    if (nest == nullptr || putAttributes(message, info.attributes) != 0) {
        return -1;
    }
    nla_nest_end(message, nest);
    return 0;
}

// Exchange

int Nl80211Client::sendMsg_(Request& request) const {
    Exchange exchange;
    exchange.timeout = answerTimeout_;
    const CurrentExchange current(exchange);
    if (nl_send_auto_complete(request.socket.get(), request.message.get()) < 0) {
        WIFI_LOGE("Failed to nl_send_auto_complete.\n");
        return -1;
    }

    nl_cb* callbacks = request.callbacks.get();
    nl_cb_err(callbacks, NL_CB_CUSTOM, errorHandler, &exchange);
    nl_cb_set(callbacks, NL_CB_SEQ_CHECK, NL_CB_CUSTOM, sequenceHandler, nullptr);
    nl_cb_set(callbacks, NL_CB_FINISH, NL_CB_CUSTOM, finishHandler, &exchange);
    nl_cb_set(callbacks, NL_CB_ACK, NL_CB_CUSTOM, ackHandler, &exchange);
    nl_cb_set(callbacks, NL_CB_INVALID, NL_CB_CUSTOM, invalidHandler, &exchange);
    nl_cb_set(callbacks, NL_CB_SKIPPED, NL_CB_CUSTOM, controlHandler, &exchange);
    nl_cb_set(callbacks, NL_CB_OVERRUN, NL_CB_CUSTOM, controlHandler, &exchange);
    nl_cb_overwrite_recv(callbacks, receive);

    // But for that, only the status counts: nl_recvmsgs also returns an error for a packet that is
    // none of this request's, and returns success before the request is answered.
    while (exchange.status > 0) {
        if (nl_recvmsgs(request.socket.get(), callbacks) == -NLE_NOMEM && exchange.status > 0) {
            WIFI_LOGE("Failed to receive netlink response: %s", nl_geterror(-NLE_NOMEM));
            exchange.status = -ENOMEM;  // a message is lost that may have been the end
        }
    }

    request.message.reset();
    request.result.code = exchange.status;
    return exchange.status == 0 ? 0 : -1;
}

// Answers

// libnl's own check expects a number that it counts up at every error, end and NOOP.
int Nl80211Client::sequenceHandler(nl_msg* message, void* /*arg*/) {
    return nlmsg_hdr(message)->nlmsg_seq == currentExchange->sequence ? NL_OK : NL_SKIP;
}

// A dump that the kernel rejects or aborts ends with a negative errno. It still counts as answered,
// by the entries before its end.
int Nl80211Client::finishHandler(nl_msg* message, void* arg) {
    static_cast<Exchange*>(arg)->status = 0;
    const nlmsghdr* header = nlmsg_hdr(message);
    int code = 0;
    if (header->nlmsg_len >= NLMSG_LENGTH(sizeof(code))) {
        memcpy(&code, nlmsg_data(header), sizeof(code));
    }
    if (code < 0) {
        WIFI_LOGE("nl80211 dump ended with error code %d", code);
    }
    return NL_SKIP;
}

int Nl80211Client::ackHandler(nl_msg* /*message*/, void* arg) {
    static_cast<Exchange*>(arg)->status = 0;
    return NL_STOP;
}

// An error reply too short for its record.
int Nl80211Client::invalidHandler(nl_msg* /*message*/, void* arg) {
    WIFI_LOGE("nl80211 response has no error code");
    static_cast<Exchange*>(arg)->status = -EBADMSG;
    return NL_STOP;
}

// NLMSG_NOOP and NLMSG_OVERRUN. The kernel never answers a request with either; the answer in
// whose place they stand is lost.
int Nl80211Client::controlHandler(nl_msg* message, void* arg) {
    WIFI_LOGE("nl80211 response is a netlink control message of type %d",
              nlmsg_hdr(message)->nlmsg_type);
    static_cast<Exchange*>(arg)->status = -EBADMSG;
    return NL_STOP;
}

int Nl80211Client::errorHandler(sockaddr_nl* /*peer*/, nlmsgerr* err, void* arg) {
    // The code should be negative. Any other counts as an error too, and must not leave the status
    // at "not answered".
    static_cast<Exchange*>(arg)->status = std::min(err->error, -1);
    WIFI_LOGE("nl80211 response has error code %d", err->error);

    // libnl has checked that the message holds a whole nlmsgerr, which its header precedes.
    nlmsghdr* header = reinterpret_cast<nlmsghdr*>(err) - 1;
    if ((header->nlmsg_flags & NLM_F_ACK_TLVS) == 0) {
        return NL_SKIP;
    }
    // The extended acknowledgement follows the error record. That record echoes the request: only
    // its header if capped, else all of it. The peer states its length, hence 64 bits.
    uint64_t offset = sizeof(nlmsghdr) + sizeof(nlmsgerr);
    if ((header->nlmsg_flags & NLM_F_CAPPED) == 0) {
        offset = sizeof(nlmsghdr) + sizeof(err->error) + uint64_t{err->msg.nlmsg_len};
    }
    if (header->nlmsg_len <= offset) {
        return NL_STOP;
    }
    auto* extendedAck = reinterpret_cast<nlattr*>(reinterpret_cast<char*>(header) + offset);
    std::array<nlattr*, kExtendedAckAttrMax + 1> attributes{};
    nla_parse(attributes.data(), kExtendedAckAttrMax, extendedAck,
              static_cast<int>(header->nlmsg_len - offset), nullptr);
    if (const nlattr* reason = attributes[NLMSGERR_ATTR_MSG]; reason != nullptr) {
        const auto* text = static_cast<const char*>(nla_data(reason));
        // The length is a field width, which does not end an unterminated text: the copy does.
        const std::string terminated(text, strnlen(text, static_cast<size_t>(nla_len(reason))));
        WIFI_LOGW("nl80211: kernel reports: %*s", static_cast<int>(terminated.size()),
                  terminated.c_str());
    }
    return NL_SKIP;
}

int Nl80211Client::findIfaceHandler(nl_msg* message, void* arg) {
    auto* found = static_cast<FoundInterface*>(arg);
    std::array<nlattr*, kNl80211AttrMax + 1> attributes{};
    genlmsg_parse(nlmsg_hdr(message), 0, attributes.data(), kNl80211AttrMax, nullptr);
    const nlattr* attribute = attributes[NL80211_ATTR_IFNAME];
    if (attribute == nullptr) {
        return NL_SKIP;
    }
    const auto* text = static_cast<const char*>(nla_data(attribute));
    const std::string_view name(text, strnlen(text, static_cast<size_t>(nla_len(attribute))));
    if (name.substr(0, found->prefix.size()) == found->prefix) {
        found->name = name.substr(0, IFNAMSIZ - 1);
    }
    return NL_SKIP;
}

int Nl80211Client::stationHandler(nl_msg* message, void* arg) {
    auto* result = static_cast<StationResult*>(arg);

    std::array<nlattr*, kNl80211AttrMax + 1> attributes{};
    const int error =
        genlmsg_parse(nlmsg_hdr(message), 0, attributes.data(), kNl80211AttrMax, nullptr);
    if (error < 0) {
        WIFI_LOGE("Error parsing netlink response: %d", error);
        result->error = error;
        return NL_STOP;
    }
    if (attributes[NL80211_ATTR_STA_INFO] == nullptr) {
        WIFI_LOGE("No STA info in netlink response");
        result->error = -1;
        return NL_STOP;
    }

    std::array<nlattr*, kStaInfoMax + 1> station{};
    if (nla_parse_nested(station.data(), kStaInfoMax, attributes[NL80211_ATTR_STA_INFO],
                         kStaInfoPolicy.data()) < 0) {
        WIFI_LOGE("Failed to parse STA info in netlink response");
        result->error = -1;
        return NL_STOP;
    }
    if (station[NL80211_STA_INFO_TX_BITRATE] == nullptr) {
        WIFI_LOGE("No NL80211_STA_INFO_TX_BITRATE");
        result->error = -1;
        return NL_STOP;
    }

    const std::optional<int> bandwidth = bandwidthCode(station[NL80211_STA_INFO_TX_BITRATE]);
    if (!bandwidth) {
        WIFI_LOGE("Failed to parse bit rate info in netlink response");
        result->error = -1;
        // Unlike after the other failures, the next station in the packet is still read.
        return NL_SKIP;
    }
    result->error = 0;
    result->bandwidth = *bandwidth;
    return NL_SKIP;
}

}  // namespace Ursa::OS::Wifi
