#pragma once

#include <string>
#include <string_view>

namespace host {

/**
 * The path on this machine that stands for an absolute path of the device: `path` inside the
 * folder that the environment variable CORVID_WIFI_ROOT names, or `path` itself when the variable
 * is unset or empty. The variable is read at each call. `name` is put behind it.
 */
std::string rootedPath(std::string_view path, std::string_view name = {});

/**
 * Creates the folders that lead to `path`, as `mkdir -p $(dirname path)` does.
 * Returns false, with errno set, when that is not possible.
 */
bool createParentFolders(const std::string& path);

}  // namespace host
