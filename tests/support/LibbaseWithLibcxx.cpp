// The functions of libbase that take or give a string, compiled with libc++: Debian's library has
// them with libstdc++'s string, under other names. Only those that are called here.

#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <sys/stat.h>

namespace android::base {

std::string StringPrintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    std::string result(length < 0 ? "" : text);
    free(text);
    return result;
}

bool ReadFdToString(borrowed_fd fd, std::string* content) {
    content->clear();
    char part[4096];
    ssize_t size = 0;
    while ((size = TEMP_FAILURE_RETRY(read(fd.get(), part, sizeof(part)))) > 0) {
        content->append(part, static_cast<size_t>(size));
    }
    return size == 0;
}

bool ReadFileToString(const std::string& path, std::string* content, bool followSymlinks) {
    const unique_fd fd(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | (followSymlinks ? 0 : O_NOFOLLOW)));
    content->clear();
    return fd >= 0 && ReadFdToString(fd, content);
}

bool WriteStringToFd(const std::string& content, borrowed_fd fd) {
    for (size_t written = 0; written < content.size();) {
        const ssize_t size =
            TEMP_FAILURE_RETRY(write(fd.get(), content.data() + written, content.size() - written));
        if (size < 0) {
            return false;
        }
        written += static_cast<size_t>(size);
    }
    return true;
}

bool WriteStringToFile(const std::string& content, const std::string& path, bool followSymlinks) {
    const unique_fd fd(
        open(path.c_str(),
             O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (followSymlinks ? 0 : O_NOFOLLOW), 0666));
    return fd >= 0 && WriteStringToFd(content, fd);
}

std::vector<std::string> Split(const std::string& text, const std::string& delimiters) {
    std::vector<std::string> parts;
    size_t begin = 0;
    while (true) {
        const size_t end = text.find_first_of(delimiters, begin);
        parts.push_back(text.substr(begin, end - begin));
        if (end == std::string::npos) {
            return parts;
        }
        begin = end + 1;
    }
}

template std::string Join(const std::vector<std::string>&, char);

std::string Basename(const std::string& path) { return std::filesystem::path(path).filename(); }

std::string GetExecutablePath() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error);
}

}  // namespace android::base
