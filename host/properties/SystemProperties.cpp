#include <fcntl.h>

#include <cstring>
#include <optional>
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

/** Every property that was ever found. Grows with the names in use, not with the reads. */
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

/** The value of a property that is set. */
std::optional<std::string> readValue(std::string_view name) {
    if (name.empty() || name.find('/') != std::string_view::npos) {
        return std::nullopt;
    }
    const std::string path = host::rootedPath("/dev/__properties__/").append(name);
    // O_NONBLOCK: a FIFO in the folder is no property, and must not hang its reader.
    const android::base::unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    std::string value;
    if (fd < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) ||
        !android::base::ReadFdToString(fd, &value)) {
        return std::nullopt;
    }
    if (!value.empty() && value.back() == '\n') {
        value.pop_back();
    }
    value.resize(strlen(value.c_str()));  // a value is a C string
    return value;
}

}  // namespace

const prop_info* __system_property_find(const char* name) {
    return readValue(name) ? table().entry(name) : nullptr;
}

void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name,
                                                      const char* value, uint32_t serial),
                                     void* cookie) {
    const std::string value = readValue(property->name).value_or("");
    callback(cookie, property->name.c_str(), value.c_str(), 0);
}

int __system_property_get(const char* name, char* value) {
    const std::string text = readValue(name).value_or("").substr(0, PROP_VALUE_MAX - 1);
    memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}
