#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/**
 * The one of the `known` words that differs least from `word`, ignoring case. Empty if all differ
 * in more than three letters, or in more than a third of them.
 */
std::string_view nearest(std::string_view word, const std::vector<std::string_view>& known);

/** " (did you mean NAME?)" to append to an error, or an empty text. */
std::string didYouMean(std::string_view word, const std::vector<std::string_view>& known);

}  // namespace sim
