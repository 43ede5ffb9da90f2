#pragma once

#include <string>
#include <vector>

namespace Ursa::OS::Wifi::Tools {

/**
 * " (did you mean "NAME"?)" with the one of the `known` words that differs least from `word`,
 * ignoring case. Empty if all differ in more than three letters, or in more than a third of them.
 */
std::string didYouMean(const std::string& word, const std::vector<std::string>& known);

/** The words with ", " between them. */
std::string joined(const std::vector<std::string>& words);

}  // namespace Ursa::OS::Wifi::Tools
