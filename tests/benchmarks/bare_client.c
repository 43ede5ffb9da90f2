#include "bare_client.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <sys/epoll.h>

enum { BUFFER_SIZE = 4096, TAG_LENGTH = 3, MAX_EVENTS = 10, MAX_CLIENTS = 2, WAIT_MS = 300000 };

int bare_open(struct bare_client* client, const char* path) {
    client->monitor = wpa_ctrl_open(path);
    if (client->monitor == NULL) {
        return -1;
    }
    if (wpa_ctrl_attach(client->monitor) != 0) {
        wpa_ctrl_close(client->monitor);
        return -1;
    }
    client->command = wpa_ctrl_open(path);
    if (client->command == NULL) {
        wpa_ctrl_close(client->monitor);
        return -1;
    }
    return 0;
}

void bare_close(struct bare_client* client) {
    wpa_ctrl_close(client->monitor);
    wpa_ctrl_close(client->command);
}

long bare_count(const struct bare_client* client, const char* last) {
    static char buffer[BUFFER_SIZE];
    const size_t last_length = strlen(last);
    long count = 0;
    for (;;) {
        size_t length = sizeof(buffer) - 1;
        if (wpa_ctrl_recv(client->monitor, buffer, &length) != 0) {
            struct pollfd monitor = {.fd = wpa_ctrl_get_fd(client->monitor), .events = POLLIN};
            if (errno != EAGAIN || poll(&monitor, 1, -1) < 0) {
                return -1;
            }
            continue;
        }
        ++count;
        if (length >= TAG_LENGTH + last_length &&
            memcmp(buffer + TAG_LENGTH, last, last_length) == 0) {
            return count;
        }
    }
}

static int answer_one(const struct bare_client* client, const char* prefix, size_t prefix_length,
                      const char* command) {
    static char event[BUFFER_SIZE];
    static char reply[BUFFER_SIZE];
    size_t length = sizeof(event) - 1;
    if (wpa_ctrl_recv(client->monitor, event, &length) != 0) {
        return -1;
    }
    event[length] = '\0';
    if (length < TAG_LENGTH || strncmp(event + TAG_LENGTH, prefix, prefix_length) != 0) {
        return 0;
    }
    length = sizeof(reply) - 1;
    return wpa_ctrl_request(client->command, command, strlen(command), reply, &length, NULL);
}

static int watch(int epoll_fd, int fd, size_t index) {
    struct epoll_event event = {0};
    event.events = EPOLLIN;
    event.data.u64 = index;
    return epoll_ctl(epoll_fd, EPOLL_CTL_ADD, fd, &event);
}

int bare_answer(const struct bare_client* clients, size_t count, const char* prefix,
                const char* command, int stop_fd) {
    const size_t prefix_length = strlen(prefix);
    const int epoll_fd = epoll_create1(EPOLL_CLOEXEC);
    for (size_t i = 0; i < count; ++i) {
        watch(epoll_fd, wpa_ctrl_get_fd(clients[i].monitor), i);
    }
    if (stop_fd >= 0) {
        watch(epoll_fd, stop_fd, count);
    }
    int result = 0;
    int running = 1;
    while (running && result == 0) {
        struct epoll_event ready[MAX_EVENTS];
        const int ready_count = epoll_wait(epoll_fd, ready, MAX_EVENTS, WAIT_MS);
        for (int i = 0; i < ready_count && result == 0; ++i) {
            if (ready[i].data.u64 == count) {
                running = 0;
            } else {
                result = answer_one(&clients[ready[i].data.u64], prefix, prefix_length, command);
            }
        }
    }
    close(epoll_fd);
    return result;
}

int bare_monitor(int argc, char** argv) {
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
