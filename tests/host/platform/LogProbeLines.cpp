#include "LogProbeLines.h"

#include <unistd.h>

#include <chrono>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <android/log.h>
#include <sys/wait.h>

namespace {

struct EarlyObject {
    EarlyObject() { __android_log_print(ANDROID_LOG_DEBUG, "Early", "before main"); }
};

const EarlyObject earlyObject;

void logOwnIds() {
    for (int i = 0; i < 2; i++) {
        __android_log_print(ANDROID_LOG_INFO, "CorvidWifi", "%d %d", getpid(), gettid());
    }
}

/** Logs the ids here, in a fork, and here again. */
void logIdsAcrossFork(void (*inFork)()) {
    logOwnIds();
    const pid_t child = fork();
    if (child == 0) {
        logOwnIds();
        inFork();
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    logOwnIds();
}

}  // namespace

void logEveryLevel() {
    for (const char* tag : {"CorvidWifi", "Other"}) {
        for (int level = ANDROID_LOG_VERBOSE; level <= ANDROID_LOG_FATAL; level++) {
            __android_log_print(level, tag, "level %d", level);
        }
    }
}

void logStorm(int count) {
    std::vector<std::thread> threads;
    for (char letter : {'a', 'b', 'c', 'd'}) {
        threads.emplace_back([letter, count] {
            const std::string text(400, letter);
            for (int i = 0; i < count; i++) {
                __android_log_write(ANDROID_LOG_INFO, "CorvidWifi", text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void logSeconds() {
    const time_t start = time(nullptr);
    for (time_t now = start; now < start + 2; now = time(nullptr)) {
        __android_log_print(ANDROID_LOG_INFO, "CorvidWifi", "%lld", static_cast<long long>(now));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void logIds() {
    logIdsAcrossFork([] { std::thread(logOwnIds).join(); });
    // The thread sanitizer allows no thread in the fork of a process that has several.
    std::thread(logIdsAcrossFork, [] {}).join();
}

void logLengths() {
    for (size_t length = 1900; length <= 2100; length++) {
        __android_log_write(ANDROID_LOG_INFO, "CorvidWifi", std::string(length, 'x').c_str());
    }
    __android_log_write(ANDROID_LOG_INFO, "CorvidWifi", std::string(10000, 'x').c_str());
}

void logWithPlace() {
    __android_logger_data data = {};
    data.struct_size = sizeof(data);
    data.buffer_id = LOG_ID_MAIN;
    data.priority = ANDROID_LOG_INFO;
    data.tag = "CorvidWifi";
    data.file = "File.cpp";
    data.line = 12;
    __android_log_write_logger_data(&data, "from a place");
}
