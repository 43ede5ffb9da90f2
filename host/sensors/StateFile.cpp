#include "StateFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <android/log.h>

#include "HostRoot.h"

namespace Ursa::Sensors {

using android::base::unique_fd;

StateFile::StateFile(const std::string& name)
    : path_(host::rootedPath("/data/vendor/sensors/" + name)) {}

bool StateFile::read(std::string& content) const {
    content.clear();
    return android::base::ReadFileToString(path_, &content) || errno == ENOENT || failed_("read");
}

bool StateFile::replace(const std::string& content) const {
    if (!host::createParentFolders(path_)) {
        return failed_("create the folder of");
    }
    std::string temporary = path_ + ".XXXXXX";
    const unique_fd fd(mkostemp(temporary.data(), O_CLOEXEC));
    if (fd < 0) {
        return failed_("write");
    }
    if (fchmod(fd, 0644) == 0 && android::base::WriteStringToFd(content, fd) &&
        rename(temporary.c_str(), path_.c_str()) == 0) {
        return true;
    }
    const bool result = failed_("write");
    unlink(temporary.c_str());
    return result;
}

bool StateFile::append(const std::string& line) const {
    if (!host::createParentFolders(path_)) {
        return failed_("create the folder of");
    }
    const unique_fd fd(open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    return (fd >= 0 && android::base::WriteStringToFd(line + "\n", fd)) || failed_("write");
}

bool StateFile::failed_(const char* what) const {
    __android_log_print(ANDROID_LOG_ERROR, "VrSensors", "cannot %s %s: %s", what, path_.c_str(),
                        strerror(errno));
    return false;
}

}  // namespace Ursa::Sensors
