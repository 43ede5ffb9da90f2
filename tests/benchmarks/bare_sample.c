#include "bare_sample.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <sys/stat.h>
#include <sys/syscall.h>

enum { BUFFER_SIZE = 4096, LINE_SIZE = 1024, UPPER = 20, MIDDLE = 9, LOWER = 5 };

static void __attribute__((format(printf, 1, 2))) log_line(const char* format, ...) {
    char line[LINE_SIZE];
    char when[32];
    const time_t now = time(NULL);
    struct tm local;
    localtime_r(&now, &local);
    strftime(when, sizeof(when), "%m-%d %H:%M:%S", &local);
    int length = snprintf(line, sizeof(line), "CorvidWifi I %s %5d %5d TxPowerManager: ", when,
                          getpid(), (int)syscall(SYS_gettid));
    va_list arguments;
    va_start(arguments, format);
    length += vsnprintf(line + length, sizeof(line) - (size_t)length, format, arguments);
    va_end(arguments);
    line[length++] = '\n';
    if (write(STDERR_FILENO, line, (size_t)length) < 0) {
        abort();
    }
}

static int value_of(const char* reply, const char* name, int* value) {
    const char* found = strstr(reply, name);
    if (found == NULL) {
        return -1;
    }
    *value = atoi(found + strlen(name));
    return 0;
}

static int choose_step(int current, int rssi) {
    if (current == UPPER) {
        return rssi > -55 ? LOWER : rssi > -65 ? MIDDLE : UPPER;
    }
    if (current == MIDDLE) {
        return rssi < -70 ? UPPER : rssi > -55 ? LOWER : MIDDLE;
    }
    if (current == LOWER) {
        return rssi < -70 ? UPPER : rssi < -60 ? MIDDLE : LOWER;
    }
    return UPPER;
}

static void request(const struct bare_client* client, const char* command, char* reply) {
    size_t length = BUFFER_SIZE - 1;
    if (wpa_ctrl_request(client->command, command, strlen(command), reply, &length, NULL) != 0) {
        abort();
    }
    reply[length] = '\0';
}

void bare_sample(const struct bare_client* client, const char* property) {
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static char reply[BUFFER_SIZE];
    int current = 0;
    for (;;) {
        int rssi;
        int freq;
        request(client, "SIGNAL_POLL", reply);
        if (value_of(reply, "RSSI=", &rssi) != 0 || value_of(reply, "FREQUENCY=", &freq) != 0) {
            return;
        }
        pthread_mutex_lock(&mutex);
        struct stat status;
        const int adapted = freq >= 5000 && stat(property, &status) != 0;
        const int step = adapted ? choose_step(current, rssi) : UPPER;
        if (step != current) {
            char command[64];
            log_line("StaManager event(CONNECTED) rssi:%d freq:%d", rssi, freq);
            snprintf(command, sizeof(command), "DRIVER SET_TXPOWER %d", step);
            request(client, command, reply);
            log_line("STA cmd:%s reply:%s", command, reply);
            current = step;
        }
        pthread_mutex_unlock(&mutex);
    }
}
