#pragma once

#include <string>
#include <vector>

#include "tools/CommandLine.h"

namespace Ursa::OS::Wifi::Tools {

/** Every word of the command line, in the help's order. */
const std::vector<Word>& allWords();

/** What --help prints. */
std::string helpText();

/**
 * The same as a JSON object, of which man page and completions are made: name, summary, words with
 * their options, options of every word, statuses, environment.
 */
std::string helpJson();

}  // namespace Ursa::OS::Wifi::Tools
