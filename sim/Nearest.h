#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/**
 * Which of the `known` words was probably meant by `word`: the one with the fewest letters
 * different (a third of them and three at most), whatever their case. Empty if none is so near.
 */
std::string_view nearest(std::string_view word, const std::vector<std::string_view>& known);

/** " (did you mean NAME?)" behind an error, or nothing. */
std::string didYouMean(std::string_view word, const std::vector<std::string_view>& known);

}  // namespace sim
