#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include <android-base/no_destructor.h>
#include <android-base/stringprintf.h>
#include <android/log.h>

#include "PolledProperty.h"
#include "TagFilter.h"

namespace {

const host::TagFilter& tagFilter() {
    // Never destroyed: other static objects may log while they are destroyed.
    static const android::base::NoDestructor<host::TagFilter> filter([] {
        const char* words = std::getenv("ANDROID_LOG_TAGS");
        return host::TagFilter(words != nullptr ? words : "");
    }());
    return *filter;
}

constexpr std::string_view kDaemonTag = "CorvidWifi";

/** The lowest level shown for the daemon's tag; 0: what ANDROID_LOG_TAGS says. */
host::PolledProperty daemonLevel("log.tag.CorvidWifi", host::TagFilter::levelOf);

/** What ANDROID_LOG_TAGS says of the daemon's tag, which is asked for three times a line. */
int daemonDefault() {
    static const int lowest = tagFilter().lowest(kDaemonTag);
    return lowest;
}

bool isShown(int priority, std::string_view tag) {
    if (tag != kDaemonTag) {
        return tagFilter().shows(priority, tag);
    }
    const int lowest = daemonLevel.value();
    return priority >= (lowest != 0 ? lowest : daemonDefault());
}

/**
 * "MM-DD HH:MM:SS PID TID ", between the level and the text of a thread's lines. Each thread keeps
 * its own for a second, since making it costs more than the rest of a line.
 */
class Stamp {
  public:
    /** The stamp of a line that is written now. Valid until the thread's next line. */
    std::string_view now() {
        const time_t time = ::time(nullptr);
        if (time != second_) {
            makeTime_(time);
        }
        if (length_ == 0) {
            length_ = kTimeLength +
                      static_cast<size_t>(snprintf(text_ + kTimeLength, sizeof(text_) - kTimeLength,
                                                   "%5d %5d ", getpid(), gettid()));
        }
        return {text_, length_};
    }

    /** The child of a fork is another process, and its thread another thread. */
    void forget() { *this = {}; }

  private:
    static constexpr size_t kTimeLength = sizeof("MM-DD HH:MM:SS ") - 1;
    static constexpr size_t kIdsLength = sizeof("-2147483648 -2147483648 ") - 1;

    void makeTime_(time_t time) {
        // localtime_r() takes a lock: a signal handler that logs must not interrupt it.
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before);
        struct tm local = {};
        localtime_r(&time, &local);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        char when[kTimeLength + 1];
        strftime(when, sizeof(when), "%m-%d %H:%M:%S ", &local);
        std::copy_n(when, kTimeLength, text_);  // without the NUL
        second_ = time;
    }

    time_t second_ = -1;  ///< of the time in the text
    size_t length_ = 0;   ///< of the text; 0 until the ids are in it
    char text_[kTimeLength + kIdsLength + 1] = {};
};

// Has no destructor: a thread may log until its very end.
thread_local Stamp stamp;

/** In one write(2), unless the descriptor takes only a part. */
void writeAll(std::string_view text) {
    const int savedErrno = errno;
    while (!text.empty()) {
        const ssize_t count = write(STDERR_FILENO, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            break;  // nowhere to report the error
        }
        text.remove_prefix(count > 0 ? static_cast<size_t>(count) : 0);
    }
    errno = savedErrno;
}

/**
 * Prints the line as liblog does on a host, but in one write(2) instead of through stdio: lines of
 * several threads and programs do not mix, and a thread that is ended holds no stream's lock.
 */
void printLine(const __android_logger_data* data, const char* message) {
    const char* tag = data->tag != nullptr ? data->tag : "";
    if (!isShown(data->priority, tag)) {
        return;
    }
    static constexpr char kLetters[] = "??VDIWEFS";
    const bool known = data->priority >= 0 && data->priority <= ANDROID_LOG_SILENT;
    const char level[] = {' ', known ? kLetters[data->priority] : '?', ' '};
    std::string place;
    if (data->file != nullptr) {
        place = android::base::StringPrintf("%s:%u] ", data->file, data->line);
    }
    const std::string_view parts[] = {tag, {level, sizeof(level)}, stamp.now(), place, message,
                                      "\n"};
    size_t size = 0;
    for (const std::string_view part : parts) {
        size += part.size();
    }
    char usual[2048];  // liblog cuts what it formats at 1 KiB, but takes a text of any length
    std::unique_ptr<char[]> longer;
    char* line = usual;
    if (size > sizeof(usual)) {
        longer = std::make_unique<char[]>(size);
        line = longer.get();
    }
    char* end = line;
    for (const std::string_view part : parts) {
        end = std::copy(part.begin(), part.end(), end);
    }
    writeAll({line, size});
}

}  // namespace

/**
 * In the place of liblog's own, for liblog too: a line that is not shown is not formatted, whatever
 * the property says by now.
 */
extern "C" int __android_log_is_loggable(int priority, const char* tag, int /*defaultPriority*/) {
    return isShown(priority, tag != nullptr ? tag : "") ? 1 : 0;
}

/** Runs before the constructors of the program's own static objects, which may log already. */
extern "C" [[gnu::constructor(101)]] void hostLogStart() {
    pthread_atfork(nullptr, nullptr, [] { stamp.forget(); });
    // These allocate, and the first line may be a signal handler's.
    daemonDefault();
    tzset();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(printLine);
}
