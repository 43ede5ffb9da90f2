#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include <android-base/file.h>
#include <android-base/no_destructor.h>
#include <android-base/unique_fd.h>
#include <sys/stat.h>
#include <sys/system_properties.h>
#include <utils/Mutex.h>

#include "HostRoot.h"

struct prop_info {
    std::string name;

    bool operator<(const prop_info& other) const { return name < other.name; }
};

namespace {

/** Every property that was ever found. */
class Table {
  public:
    const prop_info* entry(const char* name) {
        const android::Mutex::Autolock lock(mutex_);
        return &*properties_.insert(prop_info{name}).first;
    }

  private:
    android::Mutex mutex_;
    std::set<prop_info> properties_ GUARDED_BY(mutex_);
};

Table& table() {
    // Never destroyed: its entries are promised for the life of the process.
    static android::base::NoDestructor<Table> theTable;
    return *theTable;
}

constexpr std::string_view kFolder = "/dev/__properties__/";

/** Not a name that would leave the folder. */
bool isUsable(std::string_view name) {
    return !name.empty() && name.find('/') == std::string_view::npos;
}

/**
 * The path of the file that a property is. Empty, which no file's path is, for a name that is not
 * usable or too long. Allocates nothing.
 */
class PropertyPath {
  public:
    explicit PropertyPath(std::string_view name) {
        if (!isUsable(name) || !host::rootedPath(path_, kFolder, name)) {
            path_[0] = '\0';
        }
    }
    const char* c_str() const { return path_.data(); }

  private:
    std::array<char, PATH_MAX> path_;
};

/**
 * Whether a property is set: there is a file that can be read. Most properties that are asked for
 * are not set, and the kernel answers stat(2) quicker than an open(2) that fails.
 */
bool isSet(const PropertyPath& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0;
}

/** A property's file, open for reading. Allocates nothing. */
class PropertyFile {
  public:
    explicit PropertyFile(const char* path)
        // O_NONBLOCK: a FIFO in the folder is no property, and must not hang its reader.
        : fd_(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat status = {};
        if (fd_ >= 0 && fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) {
            size_ = static_cast<size_t>(status.st_size);
        }
    }

    /** In bytes; 0 if the property is not set. */
    size_t size() const { return size_; }

    /** Returns how many bytes it has read: `count`, or fewer if the file has no more. */
    size_t read(char* buffer, size_t count) const {
        size_t length = 0;
        ssize_t more = 1;
        while (length < count && more > 0) {
            more = TEMP_FAILURE_RETRY(::read(fd_, buffer + length, count - length));
            length += more > 0 ? static_cast<size_t>(more) : 0;
        }
        return length;
    }

  private:
    const android::base::unique_fd fd_;
    size_t size_ = 0;
};

/** The value of a property; empty when it is not set. */
std::string readValue(const PropertyPath& path) {
    const PropertyFile file(path.c_str());
    std::string value(file.size(), '\0');
    value.resize(file.read(value.data(), value.size()));
    if (!value.empty() && value.back() == '\n') {
        value.pop_back();
    }
    value.resize(strlen(value.c_str()));  // a value is a C string
    return value;
}

}  // namespace

const prop_info* __system_property_find(const char* name) {
    return isSet(PropertyPath(name)) ? table().entry(name) : nullptr;
}

void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name,
                                                      const char* value, uint32_t serial),
                                     void* cookie) {
    const std::string value = readValue(PropertyPath(property->name));
    callback(cookie, property->name.c_str(), value.c_str(), 0);
}

int __system_property_foreach(void (*callback)(const prop_info* property, void* cookie),
                              void* cookie) {
    const std::string folder = host::rootedPath(kFolder);
    std::set<std::string> names;
    {
        const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(folder.c_str()), closedir);
        if (listing == nullptr) {
            return errno == ENOENT ? 0 : -1;
        }
        while (const dirent* entry = readdir(listing.get())) {
            if (entry->d_name[0] != '.') {
                names.insert(entry->d_name);
            }
        }
    }
    for (const std::string& name : names) {
        if (const prop_info* property = __system_property_find(name.c_str())) {
            callback(property, cookie);
        }
    }
    return 0;
}

int __system_property_set(const char* name, const char* value) {
    if (*name == '\0' || *name == '.' || strchr(name, '/') != nullptr) {
        errno = EINVAL;
        return -1;
    }
    const PropertyPath path(name);
    const std::string draft =
        host::rootedPath(kFolder, "." + std::to_string(getpid()) + "." + name);
    if (!host::createParentFolders(draft) || !android::base::WriteStringToFile(value, draft) ||
        rename(draft.c_str(), path.c_str()) != 0) {
        const int error = errno;
        unlink(draft.c_str());
        errno = error;
        return -1;
    }
    return 0;
}

// Allocates nothing and takes no lock: the log asks it inside a signal handler too.
int __system_property_get(const char* name, char* value) {
    const PropertyFile file(PropertyPath(name).c_str());
    size_t length = file.read(value, std::min<size_t>(file.size(), PROP_VALUE_MAX));
    if (length > 0 && value[length - 1] == '\n') {
        --length;
    }
    value[std::min<size_t>(length, PROP_VALUE_MAX - 1)] = '\0';
    return static_cast<int>(strlen(value));
}
