#include "sim/Root.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <sys/file.h>

#include "sim/DeviceFiles.h"

namespace sim {

namespace {

namespace fs = std::filesystem;

/** Holds the process id of the simulator that uses the folder, and stays when that has ended. */
constexpr const char* kLockFile = "/.corvid-sim";

std::string temporaryFolder() {
    char path[] = "/tmp/corvid-sim-XXXXXX";
    if (mkdtemp(path) == nullptr) {
        throw std::runtime_error(std::string("no temporary folder: ") + std::strerror(errno));
    }
    return path;
}

}  // namespace

Root::Root(const std::string& given) {
    const char* set = std::getenv("CORVID_WIFI_ROOT");
    path_ = !given.empty() ? given : set != nullptr ? set : "";
    temporary_ = path_.empty();
    if (temporary_) {
        path_ = temporaryFolder();
    }
    path_ = fs::absolute(path_);
    lock();
    setenv("CORVID_WIFI_ROOT", path_.c_str(), 1);
}

void Root::lock() {
    std::error_code error;
    fs::create_directories(path_, error);
    const std::string file = path_ + kLockFile;
    const bool usedBefore = fs::exists(file);
    lock_.reset(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!lock_.ok()) {
        throw std::runtime_error("cannot use " + path_ + ": " + std::strerror(errno));
    }
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        char owner[16] = {};
        const ssize_t length = read(lock_.get(), owner, sizeof(owner) - 1);
        throw std::runtime_error("another simulator plays in " + path_ +
                                 (length > 0 ? " (process " + std::string(owner) + ")" : ""));
    }
    const std::string self = std::to_string(getpid());
    if (ftruncate(lock_.get(), 0) != 0 ||
        write(lock_.get(), self.data(), self.size()) != static_cast<ssize_t>(self.size())) {
        throw std::runtime_error("cannot write " + file + ": " + std::strerror(errno));
    }
    if (usedBefore) {
        removeWhatWasLeft();
    }
}

void Root::removeWhatWasLeft() const {
    for (const std::string_view folder : DeviceFiles::folders()) {
        std::error_code error;
        fs::remove_all(path_ + std::string(folder), error);
        if (error) {
            throw std::runtime_error("cannot remove " + path_ + std::string(folder) + ": " +
                                     error.message());
        }
    }
}

Root::~Root() {
    if (temporary_) {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
}

}  // namespace sim
