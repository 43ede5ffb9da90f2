/*
 * lab-capture INTERFACE: writes each 802.11 action frame that is on the air of an interface with
 * radiotap headers (hwsim0 sees what every simulated radio sends) as a line of its own, in hex,
 * from its frame control on; there is no checksum at its end. It says "ready" first and runs until
 * it is killed.
 */
#include <stdint.h>
#include <stdio.h>

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

enum {
    MAX_FRAME = 4096,
    RADIOTAP_LENGTH_AT = 2, /* 16 bits, little endian */
    MAC_HEADER_SIZE = 24,
    ACTION_FRAME = 0xd0, /* frame control: version 0, management (00), subtype 13 */
};

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: lab-capture INTERFACE\n");
        return 2;
    }
    const struct sockaddr_ll address = {
        .sll_family = AF_PACKET,
        .sll_protocol = htons(ETH_P_ALL),
        .sll_ifindex = (int)if_nametoindex(argv[1]),
    };
    const int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    if (fd < 0 || address.sll_ifindex == 0 ||
        bind(fd, (const struct sockaddr*)&address, sizeof(address)) != 0) {
        perror(argv[1]);
        return 1;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    puts("ready");
    uint8_t packet[MAX_FRAME];
    for (;;) {
        const ssize_t received = recv(fd, packet, sizeof(packet), 0);
        if (received < RADIOTAP_LENGTH_AT + 2) {
            continue;
        }
        const ssize_t radiotap = packet[RADIOTAP_LENGTH_AT] | packet[RADIOTAP_LENGTH_AT + 1] << 8;
        const uint8_t* frame = packet + radiotap;
        const ssize_t length = received - radiotap;
        if (length < MAC_HEADER_SIZE || frame[0] != ACTION_FRAME) {
            continue;
        }
        for (ssize_t i = 0; i < length; ++i) {
            printf("%02x", frame[i]);
        }
        putchar('\n');
    }
}
