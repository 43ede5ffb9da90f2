/*
 * Gives an unmodified wpa_supplicant a vendor driver's private commands: loaded into it by
 * LD_PRELOAD, this answers the "DRIVER ..." requests of its control sockets, which Debian's
 * supplicant would call unknown. Everything else passes.
 *
 * Each request of a control socket is a line in the file that LAB_REQUEST_LOG names, after its time
 * in ms since the machine's start and its socket's interface:
 *     4312 wlan0 SIGNAL_POLL
 *     4390 wlan0 DRIVER SET_TXPOWER 9 -> OK
 * The answer is OK. "SET_TXPOWER dBm" really sets the interface's transmit power, and its answer is
 * FAIL where that fails. With LAB_NUMBERED_ANSWERS in the environment each answer has a number
 * behind it, process and request ("OK 170.3"), by which it can be told from another request's.
 *
 * The file that LAB_ANSWERS_TIME names, if it is there, has what these answers have cost the
 * supplicant: nanoseconds of a processor.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

enum { REQUEST_SIZE = 4096, ANSWER_SIZE = 64 };

static const char PREFIX[] = "DRIVER ";

/* The interface is the name of the socket's file. */
static int interface_of(int fd, char* name, size_t size) {
    struct sockaddr_un address;
    socklen_t length = sizeof(address);
    memset(&address, 0, sizeof(address));
    if (getsockname(fd, (struct sockaddr*)&address, &length) != 0 ||
        address.sun_family != AF_UNIX) {
        return -1;
    }
    const char* slash = strrchr(address.sun_path, '/');
    if (slash == NULL) {
        return -1;
    }
    snprintf(name, size, "%s", slash + 1);
    return 0;
}

static const char* set_power(const char* interface, int dbm) {
    char centi_dbm[16];
    snprintf(centi_dbm, sizeof(centi_dbm), "%d", dbm * 100);
    char* arguments[] = {"iw", "dev", (char*)interface, "set", "txpower", "fixed", centi_dbm, NULL};
    /* Without LD_PRELOAD: iw is not to load this library. */
    char* environment[] = {"PATH=/usr/sbin:/usr/bin", NULL};
    pid_t child;
    int status = 0;
    if (posix_spawnp(&child, "iw", NULL, NULL, arguments, environment) != 0 ||
        waitpid(child, &status, 0) != child || status != 0) {
        return "FAIL";
    }
    return "OK";
}

/* The answer brings the line's end; NULL where the supplicant itself answers. */
static void record(const char* interface, const char* request, const char* answer) {
    const char* path = getenv("LAB_REQUEST_LOG");
    FILE* log = path != NULL && path[0] != '\0' ? fopen(path, "ae") : NULL;
    if (log != NULL) {
        struct timespec now;
        clock_gettime(CLOCK_BOOTTIME, &now);
        fprintf(log, "%ld %s %s%s%s", (long)now.tv_sec * 1000 + now.tv_nsec / 1000000, interface,
                request, answer != NULL ? " -> " : "", answer != NULL ? answer : "\n");
        fclose(log);
    }
}

static long processor_time_ns(void) {
    struct timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return (long)time.tv_sec * 1000000000 + time.tv_nsec;
}

/* The supplicant has one thread. */
static void add_to_time(long spent_ns) {
    static int file = -1;
    static long sum_ns;
    const char* path = getenv("LAB_ANSWERS_TIME");
    if (path == NULL || (file == -1 && (file = open(path, O_WRONLY | O_CLOEXEC)) == -1)) {
        return;
    }
    sum_ns += spent_ns;
    dprintf(file, "%ld\n", sum_ns);
    lseek(file, 0, SEEK_SET);
}

static void answer_driver_command(int fd, const char* interface, const char* request,
                                  const struct sockaddr* from, socklen_t length) {
    const char* command = request + strlen(PREFIX);
    const char* answer = "OK";
    int dbm;
    if (sscanf(command, "SET_TXPOWER %d", &dbm) == 1) {
        answer = set_power(interface, dbm);
    }
    char text[ANSWER_SIZE];
    const char* numbered = getenv("LAB_NUMBERED_ANSWERS");
    if (numbered != NULL && numbered[0] != '\0') {
        /* Of this supplicant, by its process: the next one counts from the start again. */
        static long count;
        snprintf(text, sizeof(text), "%s %d.%ld\n", answer, (int)getpid(), ++count);
    } else {
        snprintf(text, sizeof(text), "%s\n", answer);
    }
    record(interface, request, text);
    sendto(fd, text, strlen(text), 0, from, length);
}

ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, struct sockaddr* from,
                 socklen_t* length) {
    static ssize_t (*real)(int, void*, size_t, int, struct sockaddr*, socklen_t*);
    if (real == NULL) {
        *(void**)&real = dlsym(RTLD_NEXT, "recvfrom");
    }
    const ssize_t received = real(fd, buffer, size, flags, from, length);
    char interface[sizeof(((struct sockaddr_un*)0)->sun_path)];
    if (received <= 0 || received >= REQUEST_SIZE || from == NULL || from->sa_family != AF_UNIX ||
        interface_of(fd, interface, sizeof(interface)) != 0) {
        return received;
    }
    char request[REQUEST_SIZE];
    memcpy(request, buffer, (size_t)received);
    request[received] = '\0';
    if (strncmp(request, PREFIX, strlen(PREFIX)) != 0) {
        record(interface, request, NULL);
        return received;
    }
    const long start_ns = processor_time_ns();
    answer_driver_command(fd, interface, request, from, *length);
    add_to_time(processor_time_ns() - start_ns);
    /* To the supplicant, nothing came. */
    errno = EAGAIN;
    return -1;
}
