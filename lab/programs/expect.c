/*
 * lab-expect FILE START PLACE TEXT SECONDS: waits for a line of a log that other programs write,
 * and prints the offset behind it, a space and the line.
 *
 * It reads from the byte START on. PLACE says where the line has TEXT: "anywhere", or as the whole
 * "message" behind the six fields of a log line (tag, level, date, time, process, thread). After
 * SECONDS it ends with status 1. The file may be missing at first.
 */
#define _GNU_SOURCE
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <sys/inotify.h>

enum {
    FIELDS_BEFORE_MESSAGE = 6,
    RETRY_MS = 20, /* while there is no file */
    MS_PER_S = 1000,
    NS_PER_MS = 1000000,
    EVENTS_SIZE = 4096,
};

static long long now_ms(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (long long)now.tv_sec * MS_PER_S + now.tv_nsec / NS_PER_MS;
}

static const char* message_of(const char* line) {
    for (int field = 0; field < FIELDS_BEFORE_MESSAGE; ++field) {
        line += strcspn(line, " ");
        line += strspn(line, " ");
    }
    return line;
}

static int fits(const char* line, const char* place, const char* text) {
    return strcmp(place, "message") == 0 ? strcmp(message_of(line), text) == 0
                                         : strstr(line, text) != NULL;
}

/* Reads the whole lines from *offset on; true at one that fits, which is printed. */
static int find(const char* path, long* offset, const char* place, const char* text) {
    FILE* file = fopen(path, "re");
    if (file == NULL) {
        return 0;
    }
    char* line = NULL;
    size_t size = 0;
    ssize_t length;
    int found = 0;
    fseek(file, *offset, SEEK_SET);
    while (!found && (length = getline(&line, &size, file)) > 0 && line[length - 1] == '\n') {
        *offset += length;
        line[length - 1] = '\0';
        found = fits(line, place, text);
    }
    if (found) {
        printf("%ld %s\n", *offset, line);
    }
    free(line);
    fclose(file);
    return found;
}

int main(int argc, char** argv) {
    if (argc != 6) {
        fprintf(stderr, "usage: lab-expect FILE START anywhere|message TEXT SECONDS\n");
        return 2;
    }
    const char* path = argv[1];
    long offset = atol(argv[2]);
    const long long deadline = now_ms() + atoll(argv[5]) * MS_PER_S;
    const int watch = inotify_init1(IN_CLOEXEC);
    int is_watched = 0;
    for (;;) {
        /* Before the look into the file: what is written after that look wakes the poll below. */
        is_watched = is_watched || inotify_add_watch(watch, path, IN_MODIFY) >= 0;
        if (find(path, &offset, argv[3], argv[4])) {
            return 0;
        }
        const long long left = deadline - now_ms();
        if (left <= 0) {
            return 1;
        }
        struct pollfd written = {.fd = watch, .events = POLLIN};
        if (poll(&written, 1, is_watched ? (int)left : RETRY_MS) > 0) {
            char events[EVENTS_SIZE];
            (void)!read(watch, events, sizeof(events));
        }
    }
}
