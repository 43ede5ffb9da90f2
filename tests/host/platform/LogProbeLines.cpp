#include "LogProbeLines.h"

#include <string>
#include <thread>
#include <vector>

#include <android/log.h>

namespace {

struct EarlyObject {
    EarlyObject() { __android_log_print(ANDROID_LOG_DEBUG, "Early", "before main"); }
};

const EarlyObject earlyObject;

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
