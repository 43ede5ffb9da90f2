#define LOG_TAG "CorvidWifi"

#include "TraceFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include <android-base/file.h>
#include <log/log.h>
#include <sys/stat.h>

#include "HostRoot.h"

namespace host {

namespace {

constexpr std::string_view kArrayBegin = "[";
constexpr std::string_view kArrayEnd = "\n]\n";
/** An event with the separator before it and the array's end. */
constexpr size_t kLargestAddition = TraceEvent::kMaxSize + 8;

time_t secondsNow() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

bool writeAt(int fd, std::string_view text, off_t offset) {
    const ssize_t written = pwrite(fd, text.data(), text.size(), offset);
    if (written >= 0 && static_cast<size_t>(written) < text.size()) {
        errno = ENOSPC;
    }
    return written == static_cast<ssize_t>(text.size());
}

}  // namespace

TraceFile::TraceFile(std::string path, size_t limit)
    : devicePath_(std::move(path)), limit_(limit) {}

void TraceFile::add(const TraceEvent& event) {
    if (prepare_()) {
        append_(event);
    }
}

bool TraceFile::prepare_() {
    const bool isFull = end_ + kLargestAddition > limit_;
    if (fd_.ok() && !isFull && !isDeleted_()) {
        return true;
    }
    const time_t now = secondsNow();
    if (!fd_.ok() && now < nextTry_) {
        return false;
    }
    begin_();
    nextTry_ = fd_.ok() ? 0 : now + 1;
    return fd_.ok();
}

void TraceFile::begin_() {
    close();
    path_ = rootedPath(devicePath_);
    if (rename(path_.c_str(), previousPath(path_).c_str()) != 0 && errno != ENOENT) {
        logFailure_("rename");
        return;
    }
    const auto create = [this] {
        // Only a file of its own: nothing that somebody else has put there.
        return open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    };
    android::base::unique_fd fd(create());
    if (!fd.ok() && errno == ENOENT && createParentFolders(path_)) {
        fd.reset(create());
    }
    if (!fd.ok() || !writeAt(fd.get(), std::string(kArrayBegin).append(kArrayEnd), 0)) {
        logFailure_("create");
        return;
    }
    fd_ = std::move(fd);
    end_ = kArrayBegin.size();
    failed_ = false;
    append_(TraceEvent::processName(android::base::Basename(android::base::GetExecutablePath())));
}

bool TraceFile::isDeleted_() const {
    struct stat status = {};
    return fstat(fd_.get(), &status) != 0 || status.st_nlink == 0;
}

void TraceFile::append_(const TraceEvent& event) {
    const std::string_view separator = end_ == kArrayBegin.size() ? "\n" : ",\n";
    char text[kLargestAddition];
    size_t size = separator.copy(text, separator.size());
    size += event.json().copy(text + size, event.json().size());
    const size_t withEnd = size + kArrayEnd.copy(text + size, kArrayEnd.size());
    if (writeAt(fd_.get(), {text, withEnd}, static_cast<off_t>(end_))) {
        end_ += size;
        return;
    }
    logFailure_("write");
    // The part that was written goes, and the array gets its end back.
    if (ftruncate(fd_.get(), static_cast<off_t>(end_)) == 0) {
        writeAt(fd_.get(), kArrayEnd, static_cast<off_t>(end_));
    }
}

void TraceFile::close() {
    fd_.reset();
    end_ = 0;
    nextTry_ = 0;
}

void TraceFile::logFailure_(const char* what) {
    if (!failed_) {
        ALOGW("Trace: cannot %s %s: %s", what, path_.c_str(), strerror(errno));
    }
    failed_ = true;
}

}  // namespace host
