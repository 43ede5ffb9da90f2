#pragma once

#include <string>
#include <vector>

namespace sim {

/**
 * Runs the client program at the path `client` to check these words of a `call` (method first)
 * without the service. Returns its error message, or an empty text. Blocks for some milliseconds.
 */
std::string wrongWithCall(const std::string& client, const std::vector<std::string>& words);

}  // namespace sim
