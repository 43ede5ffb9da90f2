/*
 * Loaded into a program, makes its time pass CORVID_SIM_SPEED times as fast: what it reads from a
 * monotonic clock, and how long it waits. The time of day stays. It covers the calls by which the
 * daemon and its libraries wait; any thread may make them.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <math.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <linux/futex.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>

#define EXPORT __attribute__((visibility("default")))
/* The function that the program would call without this library. */
#define REAL(function) ((__typeof__(&function))find(#function))

static const double kNanosecondsPerSecond = 1e9;

static double speed = 1;
/* Where the clocks stood at the start: from there they run faster. */
static struct timespec monotonicStart;
static struct timespec boottimeStart;

static void* find(const char* name) { return dlsym(RTLD_NEXT, name); }

static double toNanoseconds(const struct timespec* time) {
    return (double)time->tv_sec * kNanosecondsPerSecond + (double)time->tv_nsec;
}

static struct timespec toTimespec(double nanoseconds) {
    struct timespec time;
    time.tv_sec = (time_t)floor(nanoseconds / kNanosecondsPerSecond);
    time.tv_nsec = (long)(nanoseconds - (double)time.tv_sec * kNanosecondsPerSecond);
    return time;
}

__attribute__((constructor(101))) static void start(void) {
    const char* value = getenv("CORVID_SIM_SPEED");
    const double wanted = value != NULL ? strtod(value, NULL) : 0;
    speed = wanted > 0 ? wanted : 1;
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &monotonicStart);
    syscall(SYS_clock_gettime, CLOCK_BOOTTIME, &boottimeStart);
}

/* The clock's start, or NULL for a clock that keeps its pace. */
static const struct timespec* startOf(clockid_t clock) {
    switch (clock) {
        case CLOCK_MONOTONIC:
        case CLOCK_MONOTONIC_COARSE:
        case CLOCK_MONOTONIC_RAW:
            return &monotonicStart;
        case CLOCK_BOOTTIME:
            return &boottimeStart;
        default:
            return NULL;
    }
}

/* A length of the program's time in ours. An end of 0 nanoseconds stays, a wait never becomes 0. */
static struct timespec shortened(const struct timespec* length) {
    const double nanoseconds = toNanoseconds(length);
    return toTimespec(nanoseconds > 0 ? fmax(1, nanoseconds / speed) : nanoseconds);
}

/* A time of the program's clock in ours. */
static struct timespec realTime(clockid_t clock, const struct timespec* time) {
    const struct timespec* begin = startOf(clock);
    if (begin == NULL) {
        return *time;
    }
    const double beginning = toNanoseconds(begin);
    return toTimespec(beginning + (toNanoseconds(time) - beginning) / speed);
}

static int shortenedMilliseconds(int timeout) {
    return timeout > 0 ? (int)ceil(timeout / speed) : timeout;
}

static struct timeval shortenedTimeval(const struct timeval* length) {
    const struct timespec whole = {length->tv_sec, length->tv_usec * 1000};
    const struct timespec less = shortened(&whole);
    const struct timeval result = {less.tv_sec, (less.tv_nsec + 999) / 1000};
    return result;
}

EXPORT int clock_gettime(clockid_t clock, struct timespec* time) {
    const int result = REAL(clock_gettime)(clock, time);
    const struct timespec* begin = startOf(clock);
    if (result == 0 && begin != NULL) {
        const double beginning = toNanoseconds(begin);
        *time = toTimespec(beginning + (toNanoseconds(time) - beginning) * speed);
    }
    return result;
}

EXPORT int timerfd_settime(int fd, int flags, const struct itimerspec* wanted,
                           struct itimerspec* before) {
    struct itimerspec timer = *wanted;
    if ((flags & TFD_TIMER_ABSTIME) == 0) {
        timer.it_value = shortened(&wanted->it_value);
    } else if (toNanoseconds(&wanted->it_value) > 0) {
        timer.it_value = realTime(CLOCK_MONOTONIC, &wanted->it_value);
    }
    timer.it_interval = shortened(&wanted->it_interval);
    return REAL(timerfd_settime)(fd, flags, &timer, before);
}

EXPORT int epoll_wait(int fd, struct epoll_event* events, int count, int timeout) {
    return REAL(epoll_wait)(fd, events, count, shortenedMilliseconds(timeout));
}

EXPORT int poll(struct pollfd* fds, nfds_t count, int timeout) {
    return REAL(poll)(fds, count, shortenedMilliseconds(timeout));
}

EXPORT int select(int count, fd_set* readable, fd_set* writable, fd_set* failed,
                  struct timeval* timeout) {
    if (timeout == NULL) {
        return REAL(select)(count, readable, writable, failed, NULL);
    }
    struct timeval less = shortenedTimeval(timeout);
    return REAL(select)(count, readable, writable, failed, &less);
}

EXPORT int nanosleep(const struct timespec* length, struct timespec* left) {
    const struct timespec less = shortened(length);
    return REAL(nanosleep)(&less, left);
}

EXPORT int clock_nanosleep(clockid_t clock, int flags, const struct timespec* time,
                           struct timespec* left) {
    const struct timespec real =
        (flags & TIMER_ABSTIME) != 0 ? realTime(clock, time) : shortened(time);
    return REAL(clock_nanosleep)(clock, flags, &real, left);
}

EXPORT int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  clockid_t clock, const struct timespec* end) {
    const struct timespec real = realTime(clock, end);
    return REAL(pthread_cond_clockwait)(condition, mutex, clock, &real);
}

EXPORT int setsockopt(int fd, int level, int name, const void* value, socklen_t length) {
    if (level == SOL_SOCKET && (name == SO_RCVTIMEO || name == SO_SNDTIMEO) &&
        length == sizeof(struct timeval)) {
        const struct timeval less = shortenedTimeval(value);
        return REAL(setsockopt)(fd, level, name, &less, sizeof(less));
    }
    return REAL(setsockopt)(fd, level, name, value, length);
}

/* std::future waits by this call, until a time of the monotonic clock. */
EXPORT long syscall(long number, ...) {
    va_list list;
    va_start(list, number);
    long words[6];
    for (int i = 0; i < 6; ++i) {
        words[i] = va_arg(list, long);
    }
    va_end(list);
    struct timespec real;
    if (number == SYS_futex && words[3] != 0 &&
        (words[1] & ~FUTEX_PRIVATE_FLAG) == FUTEX_WAIT_BITSET) {
        real = realTime(CLOCK_MONOTONIC, (const struct timespec*)words[3]);
        words[3] = (long)&real;
    }
    return REAL(syscall)(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}
