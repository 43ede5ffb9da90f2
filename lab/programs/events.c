/*
 * lab-events SOCKET: writes every event of a supplicant's control socket as a line, from "attached"
 * on, until the supplicant says that it terminates. Unlike wpa_cli it loses none at the end.
 */
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <wpa_ctrl.h>

enum { EVENT_SIZE = 4096, RETRY_US = 20000 };

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: lab-events SOCKET\n");
        return 2;
    }
    /* A socket's name is there a moment before the socket can be connected to. */
    struct wpa_ctrl* control;
    while ((control = wpa_ctrl_open(argv[1])) == NULL) {
        usleep(RETRY_US);
    }
    if (wpa_ctrl_attach(control) != 0) {
        fprintf(stderr, "%s: ATTACH had no answer, or not the right one\n", argv[1]);
        return 1;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    puts("attached");
    char event[EVENT_SIZE];
    size_t length;
    do {
        length = sizeof(event) - 1;
        /* The library's socket does not block. */
        struct pollfd readable = {.fd = wpa_ctrl_get_fd(control), .events = POLLIN};
        if (poll(&readable, 1, -1) < 0 || wpa_ctrl_recv(control, event, &length) != 0) {
            fprintf(stderr, "%s: the connection is lost\n", argv[1]);
            return 1;
        }
        event[length] = '\0';
        puts(event);
    } while (strstr(event, WPA_EVENT_TERMINATING) == NULL);
    wpa_ctrl_close(control);
    return 0;
}
