/*
 * bare_monitor WAIT_MS PATH...: waits, attaches to each control socket, and follows their events.
 * The least that a program in the daemon's place could be.
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "bare_client.h"

enum { MAX_CLIENTS = 2 };

int main(int argc, char** argv) {
    if (argc < 3 || argc > 2 + MAX_CLIENTS) {
        fprintf(stderr, "bare_monitor WAIT_MS PATH [PATH]\n");
        return 2;
    }
    const struct timespec wait = {.tv_sec = 0, .tv_nsec = atol(argv[1]) * 1000000L};
    nanosleep(&wait, NULL);

    struct bare_client clients[MAX_CLIENTS];
    const size_t count = (size_t)argc - 2;
    for (size_t i = 0; i < count; ++i) {
        if (bare_open(&clients[i], argv[2 + i]) != 0) {
            return 1;
        }
    }
    return bare_answer(clients, count, "CTRL-EVENT-CONNECTED ", "SIGNAL_POLL", -1) == 0 ? 0 : 1;
}
