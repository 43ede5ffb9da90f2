/*
 * lab-traffic INTERFACE ADDRESS COUNT: sends that many frames of a kilobyte that nobody reads, one
 * a millisecond. A radio chooses its rate by what it sends; without traffic it stays with the
 * lowest.
 */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/ether.h>
#include <sys/socket.h>

enum {
    /* An EtherType that IEEE 802 keeps free for local experiments. */
    ETHERTYPE_LOCAL = 0x88b5,
    /* 802.1D priority 7, voice, as cfg80211 takes it from a socket. Voice is not aggregated: the
     * simulated radios report nothing of aggregated frames, from which a rate could be chosen. */
    PRIORITY = 256 + 7,
    FRAME_SIZE = 1024,
    INTERVAL_US = 1000,
};

int main(int argc, char** argv) {
    const struct ether_addr* receiver = argc == 4 ? ether_aton(argv[2]) : NULL;
    if (receiver == NULL) {
        fprintf(stderr, "usage: lab-traffic INTERFACE ADDRESS COUNT\n");
        return 2;
    }
    struct sockaddr_ll address = {
        .sll_family = AF_PACKET,
        .sll_protocol = htons(ETHERTYPE_LOCAL),
        .sll_ifindex = (int)if_nametoindex(argv[1]),
        .sll_halen = sizeof(*receiver),
    };
    for (size_t i = 0; i < sizeof(*receiver); ++i) {
        address.sll_addr[i] = receiver->ether_addr_octet[i];
    }
    const int fd = socket(AF_PACKET, SOCK_DGRAM, 0);
    const int priority = PRIORITY;
    setsockopt(fd, SOL_SOCKET, SO_PRIORITY, &priority, sizeof(priority));
    const char frame[FRAME_SIZE] = {0};
    for (int left = atoi(argv[3]); left > 0; --left) {
        if (sendto(fd, frame, sizeof(frame), 0, (const struct sockaddr*)&address, sizeof(address)) <
            0) {
            perror(argv[1]);
            return 1;
        }
        usleep(INTERVAL_US);
    }
}
