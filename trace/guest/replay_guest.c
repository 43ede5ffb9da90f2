/*
 * The first and only process of the machine in which corvid-trace replays walks. It plays
 * /warm-up.scn, so that what every play needs has been read and linked once, and stops the machine:
 * there its snapshot is taken. When the machine goes on, it plays the scenario that it finds in the
 * machine's firmware configuration, writes what came of it to the debug port, and ends the machine.
 *
 * All devices are read and written in this process's own time, so that nothing depends on the host:
 * the same scenario gives the same plays. The output is the play's records of the kinds below, and
 * a last line "end STATUS" with the simulator's exit status, after its errors as lines with "! ".
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <sys/io.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/wait.h>

enum {
    DEBUG_PORT = 0xe9,
    PANIC_PORT = 0x505,  /* pvpanic: QEMU pauses the machine */
    SELECT_PORT = 0x510, /* fw_cfg */
    DATA_PORT = 0x511,
    DIRECTORY = 0x19,
    DIRECTORY_ENTRY = 64,
};

#define DAEMON "/bin/vendor.corvid.hardware.wifi@1.0-service"
#define ROOT "/tmp/headset"
#define SCENARIO "/tmp/scenario"
#define RECORD "/tmp/record"
#define ERRORS "/tmp/errors"

/* What the caller wants to know; the rest would only cost time. */
static const char* const KINDS[] = {"command", "atom", "log", "netlink", "program", "error"};

static void say(const char* text, size_t length) {
    __asm__ volatile("rep outsb" : "+S"(text), "+c"(length) : "d"((uint16_t)DEBUG_PORT) : "memory");
}

static void read_configuration(void* to, size_t length) {
    __asm__ volatile("rep insb" : "+D"(to), "+c"(length) : "d"((uint16_t)DATA_PORT) : "memory");
}

static uint32_t big_endian(const unsigned char* bytes) {
    return (uint32_t)bytes[0] << 24 | (uint32_t)bytes[1] << 16 | (uint32_t)bytes[2] << 8 | bytes[3];
}

/* The file `name` of the firmware configuration, ended by a zero; NULL if there is none. */
static char* configuration(const char* name, size_t* length) {
    /* size, key, reserved, name */
    unsigned char entry[DIRECTORY_ENTRY] = {0};
    outw(DIRECTORY, SELECT_PORT);
    read_configuration(entry, sizeof(uint32_t));
    for (uint32_t left = big_endian(entry); left > 0; --left) {
        read_configuration(entry, sizeof(entry));
        if (strcmp((const char*)entry + 8, name) == 0) {
            *length = big_endian(entry);
            char* text = malloc(*length + 1);
            if (text != NULL) {
                outw((unsigned short)(entry[4] << 8 | entry[5]), SELECT_PORT);
                read_configuration(text, *length);
                text[*length] = '\0';
            }
            return text;
        }
    }
    return NULL;
}

/* The number behind the word `name` of `options`. */
static long option(const char* options, const char* name) {
    const char* found = options != NULL ? strstr(options, name) : NULL;
    return found != NULL ? strtol(found + strlen(name), NULL, 10) : 0;
}

static void set(const char* path, const char* value) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, value, strlen(value)) < 0) {
        perror(path);
    }
    close(fd);
}

static int remove_one(const char* path, const struct stat* status, int type, struct FTW* where) {
    (void)status;
    (void)type;
    (void)where;
    return remove(path);
}

static void become_simulator(const char* scenario) {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int errors = open(ERRORS, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
    execl("/bin/corvid-sim", "corvid-sim", "--root", ROOT, "--daemon", DAEMON, "--record", RECORD,
          "--no-dump", "--plain", scenario, (char*)NULL);
    _exit(127);
}

/* Plays at most `limit` seconds; the simulator's exit status. */
static int play(const char* scenario, long limit) {
    const pid_t simulator = fork();
    if (simulator == 0) {
        become_simulator(scenario);
    }
    struct timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += limit;
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended == simulator) {
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        struct timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (now.tv_sec >= until.tv_sec) {
            kill(simulator, SIGTERM);
            until.tv_sec = now.tv_sec + limit;
        }
        if (ended == 0) {
            sigset_t child;
            sigemptyset(&child);
            sigaddset(&child, SIGCHLD);
            const struct timespec wait = {until.tv_sec - now.tv_sec, 0};
            sigtimedwait(&child, NULL, &wait);
        }
    }
}

static int is_wanted(const char* line) {
    const char* kind = strstr(line, "\"kind\":\"");
    for (size_t i = 0; kind != NULL && i < sizeof(KINDS) / sizeof(KINDS[0]); ++i) {
        const size_t length = strlen(KINDS[i]);
        if (strncmp(kind + 8, KINDS[i], length) == 0 && kind[8 + length] == '"') {
            return 1;
        }
    }
    return 0;
}

static void say_lines(const char* path, int (*wanted)(const char*), const char* before) {
    FILE* file = fopen(path, "re");
    char* line = NULL;
    size_t capacity = 0;
    ssize_t length = 0;
    while (file != NULL && (length = getline(&line, &capacity, file)) > 0) {
        if (wanted == NULL || wanted(line)) {
            say(before, strlen(before));
            say(line, (size_t)length);
        }
    }
    free(line);
    if (file != NULL) {
        fclose(file);
    }
}

static int save(const char* path, const char* text, size_t length) {
    FILE* file = fopen(path, "we");
    if (file == NULL) {
        return -1;
    }
    const size_t written = fwrite(text, 1, length, file);
    return fclose(file) == 0 && written == length ? 0 : -1;
}

/* Plays the caller's scenario; the machine's clock and the limit are in its options. */
static int play_configured(void) {
    size_t length = 0;
    char* options = configuration("opt/corvid/options", &length);
    char* scenario = configuration("opt/corvid/scenario", &length);
    if (scenario == NULL || save(SCENARIO, scenario, length) != 0) {
        return 127;
    }
    free(scenario);
    const struct timespec wall = {option(options, "wall "), 0};
    clock_settime(CLOCK_REALTIME, &wall);
    return play(SCENARIO, option(options, "limit "));
}

int main(void) {
    mount("proc", "/proc", "proc", 0, NULL);
    mount("dev", "/dev", "devtmpfs", 0, NULL);
    mount("tmp", "/tmp", "tmpfs", 0, NULL);
    iopl(3);
    /* A clock that jumps over idle time makes each wake-up of an idle kernel count. */
    set("/proc/sys/vm/compaction_proactiveness", "0");
    set("/proc/sys/vm/stat_interval", "1000000");
    set("/proc/sys/vm/dirty_writeback_centisecs", "0");
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, NULL);

    int status = play("/warm-up.scn", 100);
    nftw(ROOT, remove_one, 16, FTW_DEPTH | FTW_PHYS);
    if (status == 0) {
        outb(1, PANIC_PORT);
        status = play_configured();
        say_lines(RECORD, is_wanted, "");
    }
    say_lines(ERRORS, NULL, "! ");
    char end[32];
    say(end, (size_t)snprintf(end, sizeof(end), "end %d\n", status));
    reboot(RB_AUTOBOOT);
    return 0;
}
