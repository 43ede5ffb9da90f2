#pragma once

#include <string>

#include <linux/netlink.h>
#include <net/if.h>

#include "tests/support/Netlink.h"

namespace test {

/**
 * Everything behind the header of a private command to the driver, as it is on the wire: one nest
 * of vendor data with one attribute. `text` is the whole text, its padding included.
 */
inline Bytes privateCommandBytes(const char* ifname, const std::string& text) {
    constexpr uint16_t kIfindex = 3;
    constexpr uint16_t kVendorId = 195;
    constexpr uint16_t kVendorSubcmd = 196;
    constexpr uint16_t kVendorData = 197 | NLA_F_NESTED;
    return concat({attribute(kIfindex, number32(if_nametoindex(ifname))),
                   attribute(kVendorId, number32(0x001018)), attribute(kVendorSubcmd, number32(2)),
                   attribute(kVendorData, attribute(0, terminatedText(text)))});
}

}  // namespace test
