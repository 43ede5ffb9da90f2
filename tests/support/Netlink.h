#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

// Builds and parses netlink messages byte by byte, so that a test of a netlink client does not
// depend on the library that the client uses.

namespace test {

using Bytes = std::vector<uint8_t>;

/** A generic netlink request as it was received. */
struct NetlinkRequest {
    uint16_t type = 0;   ///< the family
    uint16_t flags = 0;  ///< NLM_F_*
    uint32_t sequence = 0;
    uint32_t port = 0;
    uint8_t cmd = 0;
    uint8_t version = 0;
    Bytes attributes;  ///< everything behind the generic netlink header
    Bytes bytes;       ///< the whole message
};

/** Takes a packet apart that holds one request. Bytes that are missing read as zeros. */
NetlinkRequest parseRequest(const Bytes& packet);

struct NetlinkAttribute {
    uint16_t type = 0;  ///< with the NLA_F_* bits
    Bytes payload;

    /** The payload as the integer it is, in the host's byte order. */
    uint64_t number() const;
};

/** The attributes in `bytes`, up to the first that is cut short. */
std::vector<NetlinkAttribute> parseAttributes(const Bytes& bytes);

Bytes concat(const std::vector<Bytes>& parts);

/** The text's characters, without a NUL. */
Bytes text(std::string_view characters);
/** The text's characters and a NUL. */
Bytes terminatedText(std::string_view characters);

Bytes number8(uint8_t value);
Bytes number16(uint16_t value);
Bytes number32(uint32_t value);

/** Header, payload and padding of one attribute. */
Bytes attribute(uint16_t type, const Bytes& payload);

/** One netlink message that answers `request`. */
Bytes message(const NetlinkRequest& request, uint16_t type, uint16_t flags, const Bytes& payload);

/** One entry of a dump: a generic netlink message with `attributes`. */
Bytes dumpEntry(const NetlinkRequest& request, uint8_t cmd, const Bytes& attributes);

/** A message that follows a request without ending it, as a vendor command's reply does. */
Bytes reply(const NetlinkRequest& request, uint8_t cmd, const Bytes& attributes);

/** The end of a dump; with a negative errno, the refusal of a dump that had begun. */
Bytes done(const NetlinkRequest& request, int error = 0);

/** Success. */
Bytes ack(const NetlinkRequest& request);

/** A refusal with `error` (a negative errno), which echoes the request. */
Bytes error(const NetlinkRequest& request, int error);

/**
 * A refusal that explains itself with `attributes` (NLMSGERR_ATTR_*). `capped`: only the request's
 * header is echoed.
 */
Bytes explainedError(const NetlinkRequest& request, int error, const Bytes& attributes,
                     bool capped);

}  // namespace test
