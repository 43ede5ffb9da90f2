#include "sim/FakeNl80211Kernel.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <linux/genetlink.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace sim {

namespace {

/** Room for the longest message that a netlink socket's default send buffer takes. */
constexpr size_t kLongestPacket = 256UL * 1024;

/** Numbers of the interfaces in dumps: the kernel gives 1 to the loopback interface. */
constexpr uint32_t kFirstIfIndex = 2;

std::string number(uint64_t value) { return std::to_string(value); }

std::string hexNumber(uint32_t value, int digits) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%0*x", digits, value);
    return text;
}

using Attributes = std::array<nlattr*, NL80211_ATTR_MAX + 1>;

/** A 32-bit attribute's value; 0 when it is missing or too short. */
uint32_t u32(const Attributes& attributes, int type) {
    nlattr* attribute = attributes[static_cast<size_t>(type)];
    return attribute != nullptr && nla_len(attribute) >= 4 ? nla_get_u32(attribute) : 0;
}

/**
 * A vendor command's data in words. Attribute 0 is a private command's text with its NUL; others
 * are shown as numbers and bytes.
 */
std::string vendorDataText(nlattr* data) {
    std::string out;
    int left = 0;
    nlattr* attribute = nullptr;
    nla_for_each_nested(attribute, data, left) {
        const auto* bytes = static_cast<const char*>(nla_data(attribute));
        const auto length = static_cast<size_t>(nla_len(attribute));
        const bool text =
            nla_type(attribute) == 0 && length > 0 && bytes[length - 1] == '\0' &&
            std::all_of(bytes, bytes + length - 1, [](char c) { return c >= ' ' && c <= '~'; });
        out += " " + number(static_cast<uint64_t>(nla_type(attribute))) + "=";
        out += text ? "\"" + std::string(bytes, length - 1) + "\"" : hexText(bytes, length);
    }
    return out;
}

/** All nests of vendor data in the message, in order: a command may carry two. */
std::string vendorText(const nlmsghdr& header) {
    Attributes attributes{};
    genlmsg_parse(const_cast<nlmsghdr*>(&header), 0, attributes.data(), NL80211_ATTR_MAX, nullptr);
    std::string out = "VENDOR ifindex=" + number(u32(attributes, NL80211_ATTR_IFINDEX)) +
                      " oui=" + hexNumber(u32(attributes, NL80211_ATTR_VENDOR_ID), 6) +
                      " subcmd=" + number(u32(attributes, NL80211_ATTR_VENDOR_SUBCMD));
    auto* generic = static_cast<genlmsghdr*>(nlmsg_data(&header));
    int left = 0;
    nlattr* attribute = nullptr;
    nla_for_each_attr(attribute, genlmsg_attrdata(generic, 0), genlmsg_attrlen(generic, 0), left) {
        if (nla_type(attribute) == NL80211_ATTR_VENDOR_DATA) {
            out += " data:" + vendorDataText(attribute);
        }
    }
    return out;
}

std::string frameText(const nlmsghdr& header) {
    std::string out = "FRAME";
    auto* generic = static_cast<genlmsghdr*>(nlmsg_data(&header));
    int left = 0;
    nlattr* attribute = nullptr;
    nla_for_each_attr(attribute, genlmsg_attrdata(generic, 0), genlmsg_attrlen(generic, 0), left) {
        const auto length = static_cast<size_t>(nla_len(attribute));
        if (nla_type(attribute) == NL80211_ATTR_IFINDEX && length >= 4) {
            out += " ifindex=" + number(nla_get_u32(attribute));
        } else if (nla_type(attribute) == NL80211_ATTR_FRAME) {
            out += " frame(" + number(length) + ")=" + hexText(nla_data(attribute), length);
        } else {
            out += " " + number(static_cast<uint64_t>(nla_type(attribute))) + "=" +
                   hexText(nla_data(attribute), length);
        }
    }
    return out;
}

/** Sends the packets, and waits while the client does not read. */
void sendScripted(int fd, const NetlinkAnswer& answer) {
    bool sent = true;
    do {
        for (const std::string& packet : answer.packets) {
            pollfd writable{fd, POLLOUT, 0};
            (void)poll(&writable, 1, -1);
            // A client that has gone in the meantime is its own business.
            sent = send(fd, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 && sent;
        }
    } while (answer.endless && sent);
}

bool genericHeaderFits(const nlmsghdr& header) {
    return header.nlmsg_len >= NLMSG_LENGTH(GENL_HDRLEN);
}

}  // namespace

struct FakeNl80211Kernel::Request {
    const nlmsghdr* header;
    NetlinkRequest kind;
    bool known;
    std::string text;
};

FakeNl80211Kernel::FakeNl80211Kernel(EventLoop& loop, Recorder& recorder, const RadioState& radio,
                                     std::string path)
    : loop_(loop),
      recorder_(recorder),
      radio_(radio),
      path_(std::move(path)),
      buffer_(kLongestPacket / sizeof(uint32_t)) {}

FakeNl80211Kernel::~FakeNl80211Kernel() {
    close();
    removePath();
}

std::string FakeNl80211Kernel::listen() {
    if (listener_.ok()) {
        return "";
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof(address.sun_path)) {
        return "the socket's path is too long: " + path_;
    }
    std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    android::base::unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    unlink(path_.c_str());
    if (!fd.ok() || bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ||
        ::listen(fd.get(), 16) != 0) {
        return "cannot listen on " + path_ + ": " + std::strerror(errno);
    }
    listener_ = std::move(fd);
    loop_.watch(listener_.get(), [this] { onConnection(); });
    return "";
}

void FakeNl80211Kernel::close() {
    if (listener_.ok()) {
        loop_.forget(listener_.get());
        listener_.reset();
    }
    while (!connections_.empty()) {
        hangUp(connections_.begin()->first);
    }
}

void FakeNl80211Kernel::removePath() { unlink(path_.c_str()); }

void FakeNl80211Kernel::removeRules(NetlinkRequest request) {
    rules_.remove_if([request](const NetlinkRule& rule) {
        return request == NetlinkRequest::Any || rule.request == request;
    });
}

void FakeNl80211Kernel::onConnection() {
    android::base::unique_fd fd(
        accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd.ok()) {
        const int number = fd.get();
        connections_[number] = std::move(fd);
        loop_.watch(number, [this, number] { onPacket(number); });
        tellConnections();
    }
}

void FakeNl80211Kernel::hangUp(int fd) {
    loop_.forget(fd);
    connections_.erase(fd);
    tellConnections();
}

void FakeNl80211Kernel::tellConnections() const {
    if (onConnections_) {
        onConnections_(connections_.size());
    }
}

void FakeNl80211Kernel::onPacket(int fd) {
    const ssize_t length = recv(fd, buffer_.data(), kLongestPacket, 0);
    if (length <= 0) {
        if (length == 0 || (errno != EAGAIN && errno != EINTR)) {
            hangUp(fd);
        }
        return;
    }
    auto* header = reinterpret_cast<nlmsghdr*>(buffer_.data());
    int left = static_cast<int>(length);
    for (; nlmsg_ok(header, left); header = nlmsg_next(header, &left)) {
        if (!handle(fd, *header)) {
            hangUp(fd);
            return;
        }
    }
}

FakeNl80211Kernel::Request FakeNl80211Kernel::describe(const nlmsghdr& header) const {
    Request request{&header, NetlinkRequest::Any, false, ""};
    const int type = header.nlmsg_type;
    if (!genericHeaderFits(header) || (type != GENL_ID_CTRL && (family_ == 0 || type != family_))) {
        request.text = "message of type " + number(header.nlmsg_type);
        return request;
    }
    const auto* generic = static_cast<const genlmsghdr*>(nlmsg_data(&header));
    request.known = true;
    const bool dump = (header.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
    if (type == GENL_ID_CTRL && generic->cmd == CTRL_CMD_GETFAMILY) {
        std::array<nlattr*, CTRL_ATTR_MAX + 1> attributes{};
        genlmsg_parse(const_cast<nlmsghdr*>(&header), 0, attributes.data(), CTRL_ATTR_MAX, nullptr);
        nlattr* name = attributes[CTRL_ATTR_FAMILY_NAME];
        request.kind = NetlinkRequest::Family;
        request.text = "GETFAMILY ";
        if (name != nullptr) {
            const auto* text = static_cast<const char*>(nla_data(name));
            request.text.append(text, strnlen(text, static_cast<size_t>(nla_len(name))));
        }
    } else if (type != GENL_ID_CTRL && generic->cmd == NL80211_CMD_GET_INTERFACE && dump) {
        request.kind = NetlinkRequest::InterfaceDump;
        request.text = "GET_INTERFACE dump";
    } else if (type != GENL_ID_CTRL && generic->cmd == NL80211_CMD_GET_STATION && dump) {
        Attributes attributes{};
        genlmsg_parse(const_cast<nlmsghdr*>(&header), 0, attributes.data(), NL80211_ATTR_MAX,
                      nullptr);
        request.kind = NetlinkRequest::StationDump;
        request.text = "GET_STATION dump ifindex=" + number(u32(attributes, NL80211_ATTR_IFINDEX));
    } else if (type != GENL_ID_CTRL && generic->cmd == NL80211_CMD_VENDOR) {
        request.kind = NetlinkRequest::Vendor;
        request.text = vendorText(header);
    } else if (type != GENL_ID_CTRL && generic->cmd == NL80211_CMD_FRAME) {
        request.kind = NetlinkRequest::Frame;
        request.text = frameText(header);
    } else {
        request.known = false;
        request.text =
            "command " + number(generic->cmd) + " of family " + number(header.nlmsg_type);
    }
    return request;
}

const NetlinkRule* FakeNl80211Kernel::useRule(const Request& request) {
    for (auto rule = rules_.begin(); rule != rules_.end(); ++rule) {
        if (rule->request != NetlinkRequest::Any && rule->request != request.kind) {
            continue;
        }
        usedRule_ = *rule;
        if (rule->times > 0 && --rule->times == 0) {
            rules_.erase(rule);
        }
        return &usedRule_;
    }
    return nullptr;
}

bool FakeNl80211Kernel::handle(int fd, const nlmsghdr& header) {
    if (const auto scripted = script_ ? script_(header) : std::nullopt) {
        sendScripted(fd, *scripted);
        return !scripted->hangUp;
    }
    const Request request = describe(header);
    const NetlinkRule* rule = useRule(request);
    const std::vector<NetlinkPacket> packets = answer(request, rule);

    std::string outcome = "ok";
    if (rule != nullptr && rule->fault == NetlinkRule::Fault::HangUp) {
        outcome = "hung up";
    } else if (packets.empty()) {
        outcome = "none";
    } else if (rule != nullptr && rule->fault != NetlinkRule::Fault::Error) {
        outcome = "spoilt";
    } else if (const auto* first = reinterpret_cast<const nlmsghdr*>(packets[0].bytes().data());
               first->nlmsg_type == NLMSG_ERROR || first->nlmsg_type == NLMSG_DONE) {
        int error = 0;
        std::memcpy(&error, NLMSG_DATA(first), sizeof(error));
        outcome = error == 0 ? "ok" : "error " + std::to_string(error);
    }
    recorder_.add(Record("netlink", request.text)
                      .with("answer", outcome)
                      .with("hex", hexText(&header, header.nlmsg_len)));

    for (const NetlinkPacket& packet : packets) {
        (void)::send(fd, packet.bytes().data(), packet.bytes().size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    return rule == nullptr || rule->fault != NetlinkRule::Fault::HangUp;
}

std::vector<NetlinkPacket> FakeNl80211Kernel::answer(const Request& request,
                                                     const NetlinkRule* rule) const {
    const nlmsghdr& header = *request.header;
    const bool wantsAck = (header.nlmsg_flags & NLM_F_ACK) != 0;
    std::vector<NetlinkPacket> packets;
    const auto add = [&packets](const NetlinkMessage& message) {
        packets.emplace_back();
        packets.back().append(message);
    };
    using Fault = NetlinkRule::Fault;
    if (rule != nullptr && (rule->fault == Fault::Silent || rule->fault == Fault::HangUp)) {
        return packets;
    }
    if (rule != nullptr && rule->fault == Fault::Error) {
        add(rule->atEnd ? dumpEnd(header, rule->error)
                        : errorAnswer(header, rule->error, rule->extAck, rule->capped));
        return packets;
    }
    if (rule != nullptr && rule->fault == Fault::Garbage) {
        packets.emplace_back();
        packets.back().bytes().assign(64, '\xA5');
        return packets;
    }

    if (!request.known) {
        const bool knownFamily = header.nlmsg_type == GENL_ID_CTRL || header.nlmsg_type == family_;
        add(errorAnswer(header, knownFamily ? -EOPNOTSUPP : -ENOENT));
        return packets;
    }
    switch (request.kind) {
        case NetlinkRequest::Family:
            if (family_ == 0 || request.text != "GETFAMILY nl80211") {
                add(errorAnswer(header, -ENOENT));
                return packets;
            }
            packets.push_back(familyReply(request));
            break;
        case NetlinkRequest::InterfaceDump:
            packets.push_back(interfaceDump(request));
            break;
        case NetlinkRequest::StationDump:
            packets.push_back(stationDump(request, rule));
            break;
        case NetlinkRequest::Frame: {
            const NetlinkMessage message = genericAnswerTo(header, family_, 0, NL80211_CMD_FRAME);
            nla_put_u64(message.get(), NL80211_ATTR_COOKIE, 1);
            add(message);
            break;
        }
        default:
            break;
    }
    const bool dump = request.kind == NetlinkRequest::InterfaceDump ||
                      request.kind == NetlinkRequest::StationDump;
    // The kernel leaves the acknowledgement of a dump to its end.
    if (dump) {
        if (packets[0].bytes().empty()) {
            packets.clear();
        }
        add(dumpEnd(header));
    } else if (wantsAck) {
        add(errorAnswer(header, 0));
    }
    if (rule != nullptr && rule->fault == Fault::Truncated && !packets.empty()) {
        // The header's length is made to fit what is left, so that only the inside ends too early.
        std::string& bytes = packets[0].bytes();
        auto* first = reinterpret_cast<nlmsghdr*>(bytes.data());
        first->nlmsg_len -= std::min<uint32_t>(6, first->nlmsg_len - NLMSG_HDRLEN);
        bytes.resize(first->nlmsg_len);
    }
    return packets;
}

NetlinkPacket FakeNl80211Kernel::familyReply(const Request& request) const {
    const NetlinkMessage message =
        genericAnswerTo(*request.header, GENL_ID_CTRL, 0, CTRL_CMD_NEWFAMILY);
    nla_put_string(message.get(), CTRL_ATTR_FAMILY_NAME, "nl80211");
    nla_put_u16(message.get(), CTRL_ATTR_FAMILY_ID, static_cast<uint16_t>(family_));
    nla_put_u32(message.get(), CTRL_ATTR_VERSION, 1);
    nla_put_u32(message.get(), CTRL_ATTR_HDRSIZE, 0);
    nla_put_u32(message.get(), CTRL_ATTR_MAXATTR, NL80211_ATTR_MAX);
    NetlinkPacket packet;
    packet.append(message);
    return packet;
}

NetlinkPacket FakeNl80211Kernel::interfaceDump(const Request& request) const {
    NetlinkPacket packet;
    uint32_t index = kFirstIfIndex;
    for (const std::string& name : radio_.interfaces) {
        const bool group = radio_.group && radio_.group->ifname == name;
        const uint32_t type = group && radio_.group->groupOwner ? NL80211_IFTYPE_P2P_GO
                              : group                           ? NL80211_IFTYPE_P2P_CLIENT
                                                                : NL80211_IFTYPE_STATION;
        const NetlinkMessage message =
            genericAnswerTo(*request.header, family_, NLM_F_MULTI, NL80211_CMD_NEW_INTERFACE);
        nla_put_u32(message.get(), NL80211_ATTR_IFINDEX, index);
        nla_put_string(message.get(), NL80211_ATTR_IFNAME, name.c_str());
        nla_put_u32(message.get(), NL80211_ATTR_WIPHY, 0);
        nla_put_u32(message.get(), NL80211_ATTR_IFTYPE, type);
        nla_put_u64(message.get(), NL80211_ATTR_WDEV, index - 1);
        if (group) {
            nla_put_u32(message.get(), NL80211_ATTR_WIPHY_FREQ,
                        static_cast<uint32_t>(radio_.group->frequencyMHz));
        } else if (name == "wlan0" && radio_.sta) {
            nla_put_u32(message.get(), NL80211_ATTR_WIPHY_FREQ,
                        static_cast<uint32_t>(radio_.sta->frequencyMHz));
        }
        packet.append(message);
        ++index;
    }
    return packet;
}

NetlinkPacket FakeNl80211Kernel::stationDump(const Request& request,
                                             const NetlinkRule* rule) const {
    NetlinkPacket packet;
    if (!radio_.sta) {
        return packet;
    }
    const StaLink& sta = *radio_.sta;
    const NetlinkMessage message =
        genericAnswerTo(*request.header, family_, NLM_F_MULTI, NL80211_CMD_NEW_STATION);
    nl_msg* out = message.get();
    nla_put_u32(out, NL80211_ATTR_IFINDEX, kFirstIfIndex);
    std::array<unsigned, 6> mac{};
    std::sscanf(sta.bssid.c_str(), "%x:%x:%x:%x:%x:%x", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4],
                &mac[5]);
    const std::string address(mac.begin(), mac.end());
    nla_put(out, NL80211_ATTR_MAC, static_cast<int>(address.size()), address.data());
    if (rule == nullptr || rule->fault != NetlinkRule::Fault::NoStationInfo) {
        nlattr* info = nla_nest_start(out, NL80211_ATTR_STA_INFO);
        const int dbm = radio_.signal.dbm(EventLoop::Clock::now());
        nla_put_u8(out, NL80211_STA_INFO_SIGNAL, static_cast<uint8_t>(dbm));
        if (rule == nullptr || rule->fault != NetlinkRule::Fault::NoBitrate) {
            nlattr* rate = nla_nest_start(out, NL80211_STA_INFO_TX_BITRATE);
            // In units of 100 kbit/s.
            nla_put_u32(out, NL80211_RATE_INFO_BITRATE32,
                        static_cast<uint32_t>(widthMHz(sta.width) * 100));
            if (sta.width == Width::MHz40) {
                nla_put_flag(out, NL80211_RATE_INFO_40_MHZ_WIDTH);
            } else if (sta.width == Width::MHz80) {
                nla_put_flag(out, NL80211_RATE_INFO_80_MHZ_WIDTH);
            } else if (sta.width == Width::MHz80Plus80) {
                nla_put_flag(out, NL80211_RATE_INFO_80P80_MHZ_WIDTH);
            } else if (sta.width == Width::MHz160) {
                nla_put_flag(out, NL80211_RATE_INFO_160_MHZ_WIDTH);
            }
            nla_nest_end(out, rate);
        }
        nla_nest_end(out, info);
    }
    packet.append(message);
    return packet;
}

}  // namespace sim
