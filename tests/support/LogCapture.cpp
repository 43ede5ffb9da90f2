#include "tests/support/LogCapture.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include <android/log.h>

namespace test {

namespace {

// liblog's logger is a function without an argument of ours, so what is collected is global.
struct Collected {
    std::mutex mutex;
    std::condition_variable grown;
    std::vector<LogCapture::Line> lines;
    bool capturing = false;
    int priorityBefore = ANDROID_LOG_DEFAULT;  ///< the capture's own, not guarded
};

/** Never destroyed: threads may log while the process ends. */
Collected& collected() {
    static auto* instance = new Collected;
    return *instance;
}

void collect(const __android_logger_data* data, const char* message) {
    Collected& all = collected();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.lines.push_back({data->priority, data->tag != nullptr ? data->tag : "", message});
    all.grown.notify_all();
}

bool isMessage(const LogCapture::Line& line, std::string_view message) {
    return line.message == message;
}

}  // namespace

LogCapture::LogCapture() {
    Collected& all = collected();
    {
        const std::lock_guard<std::mutex> lock(all.mutex);
        if (all.capturing) {
            abort();  // two of them would take each other's lines
        }
        all.capturing = true;
        all.lines.clear();
    }
    // Without our lock: liblog holds one of its own, also while it calls collect().
    all.priorityBefore = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(collect);
}

LogCapture::~LogCapture() {
    Collected& all = collected();
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(all.priorityBefore);
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.capturing = false;
}

std::vector<LogCapture::Line> LogCapture::lines() const {
    Collected& all = collected();
    const std::lock_guard<std::mutex> lock(all.mutex);
    return all.lines;
}

std::vector<std::string> LogCapture::messages(int priority) const {
    std::vector<std::string> found;
    for (const Line& line : lines()) {
        if (line.priority == priority) {
            found.push_back(line.message);
        }
    }
    return found;
}

size_t LogCapture::count(int priority, std::string_view message) const {
    const std::vector<Line> all = lines();
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const Line& line) {
        return line.priority == priority && isMessage(line, message);
    }));
}

bool LogCapture::waitFor(std::string_view message, std::chrono::milliseconds timeout) const {
    Collected& all = collected();
    std::unique_lock<std::mutex> lock(all.mutex);
    return all.grown.wait_for(lock, timeout, [&] {
        return std::any_of(all.lines.begin(), all.lines.end(),
                           [&](const Line& line) { return isMessage(line, message); });
    });
}

void LogCapture::clear() {
    Collected& all = collected();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.lines.clear();
}

}  // namespace test
