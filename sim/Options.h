#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/** The options of corvid-sim's command line. */
struct Options {
    std::string root;
    std::string daemon;
    std::string record;
    std::string scenario;
    double speed = 1;
    std::string logTags;  ///< Like ANDROID_LOG_TAGS; empty: that variable, or else warnings.
    bool control = false;
    bool check = false;
    bool stats = true;
    bool dump = true;
    bool plain = false;
    bool lines = false;
    bool help = false;
    bool helpJson = false;
    bool version = false;
};

/** One option of the command line, for reading it and for the help. */
struct OptionRow {
    std::string_view name;   ///< Without the dashes.
    std::string_view value;  ///< The value's name in the help; empty: the option takes none.
    std::string_view what;   ///< Help text.
    /** Throws UsageError. */
    void (*set)(Options& options, const std::string& value);
};

/** A wrong command line: what() says what is wrong. */
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** Every option, in the help's order. */
const std::vector<OptionRow>& optionRows();

/** Parses `words`, those after the program's name. Throws UsageError. */
Options readOptions(const std::vector<std::string>& words);

/** The program's name and version, a line. */
std::string versionText();

/** What --help prints. */
std::string optionsHelp();

/** The same as a JSON object, of which man page and completions are made. */
std::string optionsJson();

}  // namespace sim
