#pragma once

#include <array>
#include <climits>
#include <string>
#include <string_view>

namespace host {

/**
 * The path that stands for an absolute path of the device: inside the folder that CORVID_WIFI_ROOT
 * names, or `path` itself if the variable is unset or empty; it is read at each call. `name` is
 * appended.
 */
std::string rootedPath(std::string_view path, std::string_view name = {});

/**
 * As above, as a C string in `buffer`. Allocates nothing, so that a signal handler may call it.
 * Returns false if it does not fit.
 */
bool rootedPath(std::array<char, PATH_MAX>& buffer, std::string_view path, std::string_view name);

/** Creates the folders above `path`. Returns false, with errno set, on failure. */
bool createParentFolders(const std::string& path);

}  // namespace host
