#include "HostRoot.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace host {

namespace {

std::string_view rootFolder() {
    const char* variable = std::getenv("CORVID_WIFI_ROOT");
    std::string_view root = variable != nullptr ? variable : "";
    while (!root.empty() && root.back() == '/') {
        root.remove_suffix(1);
    }
    return root;
}

}  // namespace

std::string rootedPath(std::string_view path, std::string_view name) {
    const std::string_view root = rootFolder();
    std::string rooted;
    rooted.reserve(root.size() + path.size() + name.size());
    return rooted.append(root).append(path).append(name);
}

bool rootedPath(std::array<char, PATH_MAX>& buffer, std::string_view path, std::string_view name) {
    size_t length = 0;
    for (const std::string_view part : {rootFolder(), path, name}) {
        if (part.size() >= buffer.size() - length) {
            return false;
        }
        length += part.copy(buffer.data() + length, part.size());
    }
    buffer[length] = '\0';
    return true;
}

bool createParentFolders(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    errno = error.value();
    return !error;
}

}  // namespace host
