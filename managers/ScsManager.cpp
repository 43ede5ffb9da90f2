#include "managers/ScsManager.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <linux/nl80211.h>
#include <netinet/ether.h>

#include "client/CorvidWifiClient.h"
#include "client/SupplicantParser.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

/**
 * Where the fields are in the frame (IEEE 802.11: management header, SCS Request, SCS Descriptor
 * element, Intra-Access Category Priority element, TCLAS element). A remove request ends behind
 * the request type.
 */
enum Offset : size_t {
    kFrameControl = 0,  // two bytes, then the duration, 0
    kAddress1 = 4,      // access point
    kAddress2 = 10,     // station
    kAddress3 = 16,     // access point, then the sequence control, 0
    kCategory = 24,
    kAction = 25,
    kDialogToken = 26,
    kDescriptorId = 27,
    kDescriptorLength = 28,
    kScsId = 29,
    kRequestType = 30,
    kPriorityId = 31,
    kPriorityLength = 32,
    kPriority = 33,
    kTclasId = 34,
    kTclasLength = 35,
    kTclasPriority = 36,
    kClassifierType = 37,
    kClassifierMask = 38,
    kIpVersion = 39,
    kSourceIp = 40,
    kDestinationIp = 44,
    kSourcePort = 48,
    kDestinationPort = 50,
    kDscp = 52,
    kProtocol = 53,
    kReserved = 54,
};

constexpr size_t kAddFrameSize = kReserved + 1;
constexpr size_t kRemoveFrameSize = kRequestType + 1;
static_assert(kAddFrameSize == requestFrame::kMaxSize);

constexpr uint8_t kActionFrame = 0xD0;  ///< management type, action subtype
constexpr uint8_t kRobustAvStreaming = 19;
constexpr uint8_t kScsRequest = 0;
constexpr uint8_t kFixedDialogToken = 251;
constexpr uint8_t kScsDescriptorElement = 185;
constexpr uint8_t kFixedScsId = 10;
constexpr uint8_t kRequestAdd = 0;
constexpr uint8_t kRequestRemove = 1;
constexpr uint8_t kIntraAccessCategoryPriorityElement = 184;
constexpr uint8_t kUserPriority = 4;
constexpr uint8_t kTclasElement = 14;
constexpr uint8_t kIpAndHigherLayers = 4;
/** Which fields classify: version, both addresses, both ports, and the protocol. */
constexpr uint8_t kClassifiedFields = 0x5F;
constexpr uint8_t kIpv4 = 4;

constexpr uint8_t kActionSubtype = 13;  ///< of management frames, for the kernel

void putBytes(requestFrame& frame, size_t offset, const void* bytes, size_t size) {
    memcpy(frame.bytes.data() + offset, bytes, size);
}

/** A frame with the fields that do not depend on the link or the profile. */
requestFrame makeFrame(bool add) {
    requestFrame frame;
    frame.size = add ? kAddFrameSize : kRemoveFrameSize;
    auto& bytes = frame.bytes;
    bytes[kFrameControl] = kActionFrame;
    bytes[kCategory] = kRobustAvStreaming;
    bytes[kAction] = kScsRequest;
    bytes[kDialogToken] = kFixedDialogToken;
    bytes[kDescriptorId] = kScsDescriptorElement;
    // An element's length counts what follows its length field.
    bytes[kDescriptorLength] = static_cast<uint8_t>(frame.size - kScsId);
    bytes[kScsId] = kFixedScsId;
    bytes[kRequestType] = add ? kRequestAdd : kRequestRemove;
    if (add) {
        bytes[kPriorityId] = kIntraAccessCategoryPriorityElement;
        bytes[kPriorityLength] = kTclasId - kPriority;
        bytes[kPriority] = kUserPriority;
        bytes[kTclasId] = kTclasElement;
        bytes[kTclasLength] = kAddFrameSize - kTclasPriority;
        bytes[kClassifierType] = kIpAndHigherLayers;
        bytes[kClassifierMask] = kClassifiedFields;
        bytes[kIpVersion] = kIpv4;
    }
    return frame;
}

/** An address that does not parse is written as 0.0.0.0. */
void putIp(requestFrame& frame, size_t offset, const std::string& text) {
    in_addr address = {};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        address = {};
    }
    putBytes(frame, offset, &address, sizeof(address));
}

/** A port above 65535 is written as 0. */
void putPort(requestFrame& frame, size_t offset, uint32_t port) {
    const uint16_t value = htons(port <= UINT16_MAX ? static_cast<uint16_t>(port) : 0);
    putBytes(frame, offset, &value, sizeof(value));
}

/** Fills in the link's addresses from the reply to "STATUS". Returns false when not associated. */
bool putLink(requestFrame& frame, const std::string& status) {
    std::string bssidText;
    std::string addressText;
    if (!getValueFromWpaCmdStatusReply(status, "bssid", bssidText) ||
        !getValueFromWpaCmdStatusReply(status, "address", addressText)) {
        WIFI_LOGW("Cannot parse bssid from wpa_supplicant STATUS reply.");
        return false;
    }
    ether_addr bssid = {};
    if (ether_aton_r(bssidText.c_str(), &bssid) == nullptr) {
        WIFI_LOGW("Cannot convert bssid string to array.");
        return false;
    }
    ether_addr address = {};
    if (ether_aton_r(addressText.c_str(), &address) == nullptr) {
        WIFI_LOGW("Cannot convert device address string to array.");
        return false;
    }
    putBytes(frame, kAddress1, &bssid, sizeof(bssid));
    putBytes(frame, kAddress2, &address, sizeof(address));
    putBytes(frame, kAddress3, &bssid, sizeof(bssid));
    return true;
}

/** Fills in the fields that classify the stream. */
void putStream(requestFrame& frame, const ScsProfile& profile) {
    putIp(frame, kSourceIp, profile.remoteIp);
    putIp(frame, kDestinationIp, profile.localIp);
    putPort(frame, kSourcePort, profile.remotePort);
    putPort(frame, kDestinationPort, profile.localPort);
    frame.bytes[kTclasPriority] = frame.bytes[kPriority];
    frame.bytes[kDscp] = profile.dscp;
    frame.bytes[kProtocol] = profile.protocol;
}

/** Aborts, as gsl::span does when its size precondition fails. */
[[noreturn]] void endForSizeOfNoSpan() {
    // Crash reports are matched by this text, so it is the same wherever the library is installed.
    constexpr char kMessage[] =
        "GSL Precondition failure at external/Microsoft-GSL/include/gsl/span: 372 "
        "`size != dynamic_extent`";
    fprintf(stderr, "%s\n", kMessage);
    __android_log_write(ANDROID_LOG_FATAL, LOG_TAG, kMessage);
    std::terminate();
}

}  // namespace

ScsManager::ScsManager(std::shared_ptr<CorvidWifiClient> client) : client_(std::move(client)) {
    registerCallbacks();
}

ScsManager::~ScsManager() = default;

void ScsManager::registerCallbacks() {
    const std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_STA_DISCONNECTED, NetInterfaceType::STA,
         "ScsManager.onStaDisconnected",
         [this](const std::string& event) {
             WIFI_LOGI("STA event(DISCONNECTED %s)", event.c_str());
             profiles_.removeAll();
         }},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

int ScsManager::set(ScsProfile& profile) {
    if (profile.ipVersion != 0) {
        WIFI_LOGE("IP version (%s) is not supported.", profile.ipVersion == 1 ? "V6" : "Unknown");
        return -1;
    }
    const int id = profiles_.add(profile);
    if (id == -1) {
        WIFI_LOGE("Failed to allocate profile.");
        return -1;
    }
    if (!constructAndSendRequestFrame(&profile)) {
        profiles_.remove(id);
        WIFI_LOGE("Failed to construct and send request frame.");
        return -2;
    }
    return id;
}

StateTree ScsManager::describe() const {
    StateTree state = StateTree::parts();
    StateTree& profiles = state.set("profiles", StateTree::list());
    for (const auto& [id, profile] : profiles_.all()) {
        StateTree& entry = profiles.add(StateTree::parts());
        entry.set("id", id);
        entry.set("localIp", profile.localIp);
        entry.set("localPort", profile.localPort);
        entry.set("remoteIp", profile.remoteIp);
        entry.set("remotePort", profile.remotePort);
        entry.set("dscp", profile.dscp);
        entry.set("protocol", profile.protocol);
        entry.asLine(std::to_string(id) + ": " + profile.remoteIp + " port " +
                     std::to_string(profile.remotePort) + " to " + profile.localIp + " port " +
                     std::to_string(profile.localPort) + ", dscp " + std::to_string(profile.dscp) +
                     ", protocol " + std::to_string(profile.protocol));
    }
    return state;
}

bool ScsManager::clear(int id) {
    if (!profiles_.exist(id)) {
        WIFI_LOGW("ScsProfileId %d not found.", id);
        return false;
    }
    if (!constructAndSendRequestFrame(nullptr)) {
        WIFI_LOGE("Failed to construct and send request frame.");
        return false;
    }
    if (!profiles_.remove(id)) {
        WIFI_LOGE("Failed to de-allocate profile.");
        return false;
    }
    return true;
}

bool ScsManager::constructAndSendRequestFrame(ScsProfile* profile) {
    requestFrame frame = makeFrame(profile != nullptr);
    if (!constructRequestFrameV4(profile, frame)) {
        WIFI_LOGE("Failed to construct request frame.");
        return false;
    }
    if (!sendRequestFrameToDriver(frame)) {
        WIFI_LOGE("Failed to send request frame via nl80211.");
        return false;
    }
    return true;
}

bool ScsManager::constructRequestFrameV4(ScsProfile* profile, requestFrame& frame) {
    std::string status;
    if (!client_->sendWpaCtrlCmd("STATUS", status, NetInterfaceType::STA)) {
        WIFI_LOGW("Cannot send STATUS command to wpa_supplicant.");
        return false;
    }
    if (!putLink(frame, status)) {
        return false;
    }
    if (profile == nullptr) {
        return true;
    }
    // The supplicant's address replaces the client's, which is used only if STATUS has none.
    if (!getValueFromWpaCmdStatusReply(status, "ip_address", profile->localIp)) {
        WIFI_LOGW("Cannot parse ip_address from wpa_supplicant STATUS reply.");
    }
    putStream(frame, *profile);
    const uint8_t* ip = frame.bytes.data() + kDestinationIp;
    WIFI_LOGD("set IP %d.%d.%d.%d", ip[0], ip[1], ip[2], ip[3]);
    return true;
}

bool ScsManager::sendRequestFrameToDriver(const requestFrame& frame) {
    // Not gsl::dynamic_extent, which is a smaller number where words have 32 bits.
    if (frame.size == std::numeric_limits<uint64_t>::max()) {
        endForSizeOfNoSpan();
    }
    if (frame.size > requestFrame::kMaxSize) {
        WIFI_LOGE("A frame of %" PRIu64 " bytes is too long.", frame.size);
        return false;
    }
    Nl80211GenericCmdInfo info;
    info.interfaceType = NetInterfaceType::STA;
    info.cmd = NL80211_CMD_FRAME;
    info.attributes = {
        {NL80211_ATTR_MGMT_SUBTYPE, kActionSubtype},
        {NL80211_ATTR_FRAME,
         gsl::span<const uint8_t>(frame.bytes.data(), static_cast<size_t>(frame.size))},
    };
    return client_->sendGenericNlCmd(info);
}

}  // namespace Ursa::OS::Wifi
