#pragma once

#include <string>
#include <vector>

namespace sim {

/**
 * Asks the client program at the path `client` whether `call` takes these words (method first),
 * without the service. Returns what it says is wrong, or nothing. Blocks some milliseconds.
 */
std::string wrongWithCall(const std::string& client, const std::vector<std::string>& words);

}  // namespace sim
