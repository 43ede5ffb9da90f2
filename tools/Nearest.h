#pragma once

#include <string>
#include <vector>

namespace Ursa::OS::Wifi::Tools {

/**
 * " (did you mean "NAME"?)" for that of the `known` words which differs from `word` in the fewest
 * letters (a third of them and three at most), whatever their case. Empty if none is so near.
 */
std::string didYouMean(const std::string& word, const std::vector<std::string>& known);

/** The words with ", " between them. */
std::string joined(const std::vector<std::string>& words);

}  // namespace Ursa::OS::Wifi::Tools
