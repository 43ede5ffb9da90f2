#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include <gsl/span>

#include "client/NetInterfaceType.h"

namespace Ursa::OS::Wifi {

/** One attribute of an nl80211 message. The alternative of `value` decides its size on the wire. */
struct Nl80211Attribute {
    /** An NL80211_ATTR_* number or, inside vendor data, the vendor's own attribute number. */
    uint32_t type = 0;

    /**
     * The payload. Integers are sent in the host's byte order. A span is not owned: its bytes must
     * stay valid until the command has been sent. A variant without a value is a programming error:
     * sending it throws std::bad_variant_access.
     */
    std::variant<uint8_t, uint16_t, uint32_t, uint64_t, gsl::span<const uint8_t>> value;
};

/** A generic nl80211 command. */
struct Nl80211GenericCmdInfo {
    /** The interface that the command is for. */
    NetInterfaceType interfaceType = NetInterfaceType::STA;

    /** NL80211_CMD_*: the command byte of the generic netlink header. */
    uint8_t cmd = 0;

    /** Netlink message flags (NLM_F_*), passed on unchanged; 0 for a plain request. */
    int32_t flags = 0;

    /** The interface's current name, set by the facade, never by the caller. Not owned. */
    const char* ifname = nullptr;

    /** Appended behind the interface index, in this order. */
    std::vector<Nl80211Attribute> attributes;
};

/** The OUI of the vendor whose driver takes private commands as text. */
constexpr uint32_t kPrivateCommandVendorId = 0x001018;

/** An NL80211_CMD_VENDOR command, addressed to the Wi-Fi driver. */
struct Nl80211VendorCmdInfo {
    /** The interface that the command is for. */
    NetInterfaceType interfaceType = NetInterfaceType::STA;

    /** The vendor's OUI. */
    uint32_t vendorId = 0;

    /** The vendor's own command number. */
    uint32_t subcmd = 0;

    /** The driver's private command: sent only to kPrivateCommandVendorId, always logged. */
    std::string command;

    /** The interface's current name, set by the facade, never by the caller. Not owned. */
    const char* ifname = nullptr;

    /** Nested in the vendor data, in this order. */
    std::vector<Nl80211Attribute> attributes;
};

}  // namespace Ursa::OS::Wifi
