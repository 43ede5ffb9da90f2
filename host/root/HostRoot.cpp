#include "HostRoot.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace host {

std::string rootedPath(std::string_view path, std::string_view name) {
    const char* variable = std::getenv("CORVID_WIFI_ROOT");
    std::string_view root = variable != nullptr ? variable : "";
    while (!root.empty() && root.back() == '/') {
        root.remove_suffix(1);
    }
    std::string rooted;
    rooted.reserve(root.size() + path.size() + name.size());
    return rooted.append(root).append(path).append(name);
}

bool createParentFolders(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    errno = error.value();
    return !error;
}

}  // namespace host
