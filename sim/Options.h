#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/** What the command line of corvid-sim asks for. */
struct Options {
    std::string root;
    std::string daemon;
    std::string record;
    std::string scenario;
    double speed = 1;
    std::string logTags;  ///< As ANDROID_LOG_TAGS has them; empty: that, or warnings.
    bool control = false;
    bool check = false;
    bool stats = true;
    bool dump = true;
    bool plain = false;
    bool lines = false;
    bool help = false;
};

/** One option of the command line, for reading it and for the help. */
struct OptionRow {
    std::string_view name;   ///< Without the dashes.
    std::string_view value;  ///< What stands behind it; empty: nothing.
    std::string_view what;
    /** Throws UsageError. */
    void (*set)(Options& options, const std::string& value);
};

/** A command line that is wrong: what() says how. */
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** Every option, in the help's order. */
const std::vector<OptionRow>& optionRows();

/** `words` are those behind the program's name. Throws UsageError. */
Options readOptions(const std::vector<std::string>& words);

/** What --help prints. */
std::string optionsHelp();

}  // namespace sim
