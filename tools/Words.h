#pragma once

#include <string>
#include <vector>

#include "tools/CommandLine.h"

namespace Ursa::OS::Wifi::Tools {

/** Every subcommand, in the order of the help. */
const std::vector<Word>& allWords();

/** What --help prints. */
std::string helpText();

/**
 * The same as a JSON object, from which man page and completions are generated: name, summary,
 * words with their options, common options, exit statuses, environment.
 */
std::string helpJson();

}  // namespace Ursa::OS::Wifi::Tools
