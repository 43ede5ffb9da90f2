/*
 * lab-sample SOCKET COUNT: asks a supplicant for the signal COUNT times, every 5 s, and does
 * nothing with the answers. Prints what one has cost this program: nanoseconds of a processor. That
 * is the least that a daemon can spend which samples as often.
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <wpa_ctrl.h>

enum { ANSWER_SIZE = 4096, INTERVAL_S = 5 };

static const char REQUEST[] = "SIGNAL_POLL";

static long processor_time_ns(void) {
    struct timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return (long)time.tv_sec * 1000000000 + time.tv_nsec;
}

int main(int argc, char** argv) {
    const long count = argc == 3 ? strtol(argv[2], NULL, 10) : 0;
    if (count < 1) {
        fprintf(stderr, "usage: lab-sample SOCKET COUNT\n");
        return 2;
    }
    struct wpa_ctrl* control = wpa_ctrl_open(argv[1]);
    if (control == NULL) {
        fprintf(stderr, "%s: cannot be connected to\n", argv[1]);
        return 1;
    }
    const long start_ns = processor_time_ns();
    for (long i = 0; i < count; ++i) {
        char answer[ANSWER_SIZE];
        size_t length = sizeof(answer);
        sleep(INTERVAL_S);
        if (wpa_ctrl_request(control, REQUEST, sizeof(REQUEST) - 1, answer, &length, NULL) != 0) {
            fprintf(stderr, "%s: %s had no answer\n", argv[1], REQUEST);
            return 1;
        }
    }
    printf("%ld\n", (processor_time_ns() - start_ns) / count);
    wpa_ctrl_close(control);
    return 0;
}
