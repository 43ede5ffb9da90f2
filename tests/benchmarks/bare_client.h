/* What a C program would do with the supplicant's client library: the measure of the daemon. */
#pragma once

#include <stddef.h>

#include <wpa_ctrl.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Two connections to one control interface, as the daemon keeps them. */
struct bare_client {
    struct wpa_ctrl* monitor;
    struct wpa_ctrl* command;
};

/** Opens the monitor, attaches it, opens the command connection. 0, or -1 with nothing open. */
int bare_open(struct bare_client* client, const char* path);

/** Closes without detaching. */
void bare_close(struct bare_client* client);

/** Receives and counts events until one contains `last`. Returns how many, or -1. */
long bare_count(const struct bare_client* client, const char* last);

/**
 * An epoll loop, with the daemon's time-out, over `count` monitors: an event that begins with
 * `prefix` behind its priority tag is answered with `command`. Ends when `stop_fd` becomes
 * readable; -1: never. Returns 0, or -1.
 */
int bare_answer(const struct bare_client* clients, size_t count, const char* prefix,
                const char* command, int stop_fd);

/**
 * A program of these: waits WAIT_MS, attaches to each control socket and answers "connected" with
 * SIGNAL_POLL for ever. Arguments and result are those of main().
 */
int bare_monitor(int argc, char** argv);

#ifdef __cplusplus
}
#endif
