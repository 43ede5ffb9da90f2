#include "client/BssEventFilter.h"

#include <array>
#include <cstdint>

#include <linux/filter.h>
#include <sys/socket.h>

#include "client/StartsWith.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr std::string_view kBssAdded = "CTRL-EVENT-BSS-ADDED ";
constexpr std::string_view kBssRemoved = "CTRL-EVENT-BSS-REMOVED ";

/** The priority tag in front of each event: a digit in angle brackets. */
constexpr uint32_t kTagLength = 3;

/** The value that a BPF load of these 4, 2 or 1 bytes gives (big-endian). */
constexpr uint32_t bytes(std::string_view text) {
    uint32_t value = 0;
    for (const char byte : text) {
        value = (value << 8) | static_cast<uint8_t>(byte);
    }
    return value;
}

constexpr sock_filter loadLength() { return BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0); }

/** Loads `size` (BPF_W, BPF_H, BPF_B) bytes of the event from `offset`. */
constexpr sock_filter load(uint16_t size, uint32_t offset) {
    return BPF_STMT(static_cast<uint16_t>(BPF_LD | BPF_ABS | size), kTagLength + offset);
}

/** Skips `skip` instructions unless the loaded bytes equal `text`. */
constexpr sock_filter unlessEqualSkip(std::string_view text, uint8_t skip) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, bytes(text), 0, skip);
}

/** Skips `skip` instructions if the message is shorter than tag and prefix. */
constexpr sock_filter ifShorterSkip(std::string_view prefix, uint8_t skip) {
    return BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, kTagLength + static_cast<uint32_t>(prefix.size()), 0,
                    skip);
}

}  // namespace

bool isBssEvent(std::string_view event) {
    return startsWith(event, kBssAdded) || startsWith(event, kBssRemoved);
}

bool dropBssEvents(int fd) {
    // Compares word by word. A load beyond the message's end would drop it, hence the length tests.
    std::array program = {
        loadLength(), ifShorterSkip(kBssAdded, 21), load(BPF_W, 0), unlessEqualSkip("CTRL", 19),
        load(BPF_W, 4), unlessEqualSkip("-EVE", 17), load(BPF_W, 8), unlessEqualSkip("NT-B", 15),
        load(BPF_W, 12), unlessEqualSkip("SS-A", 4),
        // CTRL-EVENT-BSS-A
        load(BPF_W, 16), unlessEqualSkip("DDED", 11), load(BPF_B, 20),
        sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ' ', 10, 9)),
        // CTRL-EVENT-BSS-, not A
        unlessEqualSkip("SS-R", 8), loadLength(), ifShorterSkip(kBssRemoved, 6), load(BPF_W, 16),
        unlessEqualSkip("EMOV", 4), load(BPF_H, 20), unlessEqualSkip("ED", 2), load(BPF_B, 22),
        sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ' ', 1, 0)),
        sock_filter(BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF)),  // keep
        sock_filter(BPF_STMT(BPF_RET | BPF_K, 0)),           // drop
    };
    sock_fprog filter = {};
    filter.len = static_cast<uint16_t>(program.size());
    filter.filter = program.data();
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) == 0;
}

}  // namespace Ursa::OS::Wifi
