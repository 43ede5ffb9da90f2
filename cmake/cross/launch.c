// launch: runs a program of another architecture by an emulator. It stands in the place of the
// program and is called as the program is, so that tests can start it by its path; the program is
// beside it, with a dot before its name. Linked statically: LD_PRELOAD is the program's, and its
// libraries are not of this machine's architecture.
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int count, char** arguments) {
    static char path[PATH_MAX];
    static char preload[PATH_MAX * 4];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 2);
    if (length <= 0) {
        perror("launch: /proc/self/exe");
        return 126;
    }
    char* const name = strrchr(path, '/') + 1;
    memmove(name + 1, name, strlen(name) + 1);
    *name = '.';

    char** const command = calloc((size_t)count + 10, sizeof(*command));
    if (command == NULL) {
        return 126;
    }
    int used = 0;
    command[used++] = EMULATOR;
    command[used++] = "-L";
    command[used++] = SYSTEM_ROOT;
    command[used++] = "-0";
    command[used++] = arguments[0];
    const char* const libraries = getenv("LD_PRELOAD");
    if (libraries != NULL && *libraries != '\0') {
        snprintf(preload, sizeof(preload), "LD_PRELOAD=%s", libraries);
        // The emulator takes a comma for the end of a variable.
        command[used++] = "-E";
        command[used++] = preload;
        unsetenv("LD_PRELOAD");
    }
    command[used++] = path;
    for (int i = 1; i < count; ++i) {
        command[used++] = arguments[i];
    }
    execvp(command[0], command);
    fprintf(stderr, "launch: %s: %s\n", command[0], strerror(errno));
    return 127;
}
