#include "HostRoot.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace host {

std::string rootedPath(std::string_view path) {
    const char* root = std::getenv("CORVID_WIFI_ROOT");
    std::string rooted = root != nullptr ? root : "";
    while (!rooted.empty() && rooted.back() == '/') {
        rooted.pop_back();
    }
    return rooted.append(path);
}

bool createParentFolders(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    errno = error.value();
    return !error;
}

}  // namespace host
