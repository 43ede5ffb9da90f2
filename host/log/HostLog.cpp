#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include <android-base/no_destructor.h>
#include <android-base/stringprintf.h>
#include <android/log.h>

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

/**
 * The line as liblog itself prints it on a host. liblog goes through stdio, which promises neither
 * that a line leaves in one piece nor that a thread which is ended in the middle lets go of the
 * stream's lock; a line from here is one write(2), so lines of several threads and programs that
 * share a standard error do not mix.
 */
void printLine(const __android_logger_data* data, const char* message) {
    const char* tag = data->tag != nullptr ? data->tag : "";
    if (!tagFilter().shows(data->priority, tag)) {
        return;
    }
    static constexpr char kLetters[] = "??VDIWEFS";
    const bool known = data->priority >= 0 && data->priority <= ANDROID_LOG_SILENT;
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    char when[32];
    strftime(when, sizeof(when), "%m-%d %H:%M:%S", &local);
    std::string line = android::base::StringPrintf(
        "%s %c %s %5d %5d ", tag, known ? kLetters[data->priority] : '?', when, getpid(), gettid());
    if (data->file != nullptr) {
        line += android::base::StringPrintf("%s:%u] ", data->file, data->line);
    }
    line += message;
    line += '\n';
    const int savedErrno = errno;
    for (size_t written = 0; written < line.size();) {
        const ssize_t count = write(STDERR_FILENO, line.data() + written, line.size() - written);
        if (count < 0 && errno != EINTR) {
            break;  // there is nobody left to tell
        }
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
    errno = savedErrno;
}

}  // namespace

/** Runs before the constructors of the program's own static objects, which may log already. */
extern "C" [[gnu::constructor(101)]] void hostLogStart() {
    __android_log_set_minimum_priority(tagFilter().lowestShown());
    __android_log_set_logger(printLine);
}
