#include "tools/TraceFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>

#include <sys/stat.h>

namespace Ursa::OS::Wifi::Tools {

using ::android::base::unique_fd;

namespace {

unique_fd openFile(const std::string& path, Existing existing) {
    if (path == "-") {
        return {};
    }
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY |
                      (existing == Existing::Refuse ? O_EXCL : O_TRUNC);
    unique_fd fd(::open(path.c_str(), flags, 0666));
    if (fd < 0 && errno == EEXIST) {
        throw std::runtime_error(path + ": the file is there already; --force writes over it");
    }
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return fd;
}

/** In seconds, to a microsecond. */
template <typename Clock>
double now() {
    const auto time = Clock::now().time_since_epoch();
    using Microseconds = std::chrono::microseconds;
    return static_cast<double>(std::chrono::duration_cast<Microseconds>(time).count()) / 1e6;
}

}  // namespace

TraceFile::TraceFile(const std::string& path, Existing existing, const WakeFd& failed)
    : ownFd_(openFile(path, existing)),
      fd_(ownFd_ >= 0 ? ownFd_.get() : STDOUT_FILENO),
      failed_(failed) {}

void TraceFile::writeHeader(Json header) {
    MutexLock lock(mutex_);
    header["start_wall"] = now<std::chrono::system_clock>();
    append_(header);
}

void TraceFile::write(std::string_view type, const Json& fields) {
    MutexLock lock(mutex_);
    Json line = {{"type", type},
                 {"t", now<std::chrono::steady_clock>()},
                 {"wall", now<std::chrono::system_clock>()}};
    for (const auto& [name, value] : fields.items()) {
        line[name] = value;
    }
    append_(line);
}

int TraceFile::error() {
    MutexLock lock(mutex_);
    return error_;
}

void TraceFile::append_(const Json& line) {
    if (error_ != 0) {
        return;
    }
    const std::string text = toLine(line) + "\n";
    std::string_view left = text;
    while (!left.empty()) {
        const ssize_t count = ::write(fd_, left.data(), left.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            error_ = errno;
            takeBack_(static_cast<off_t>(text.size() - left.size()));
            failed_.wake();
            return;
        }
        left.remove_prefix(static_cast<size_t>(count));
    }
}

void TraceFile::takeBack_(off_t size) const {
    // Standard output may be a file with other text in front. A pipe has no position, and nothing
    // can be taken back from it. Nothing of a line was written: with >> the position may still be
    // 0.
    const off_t end = size > 0 ? ::lseek(fd_, 0, SEEK_CUR) : -1;
    if (end >= size) {
        [[maybe_unused]] const int cut = ::ftruncate(fd_, end - size);
    }
}

}  // namespace Ursa::OS::Wifi::Tools
