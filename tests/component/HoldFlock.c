// Preloaded into a daemon: its first flock(), by which it takes its service's name, prints "held"
// and waits until somebody opens the FIFO that HOLD_FLOCK names for writing.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <sys/file.h>

int flock(int fd, int operation) {
    const char* path = getenv("HOLD_FLOCK");
    if (path != NULL) {
        static const char kHeld[] = "held\n";
        if (write(STDERR_FILENO, kHeld, sizeof(kHeld) - 1) < 0) {
            _exit(1);
        }
        const int holder = open(path, O_RDONLY | O_CLOEXEC);
        unsetenv("HOLD_FLOCK");
        if (holder >= 0) {
            close(holder);
        }
    }
    int (*next)(int, int) = (int (*)(int, int))dlsym(RTLD_NEXT, "flock");
    return next(fd, operation);
}
