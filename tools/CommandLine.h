#pragma once

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Ursa::OS::Wifi::Tools {

/** Exit statuses; scripts rely on them. */
enum ExitStatus {
    kSuccess = 0,
    kFailure = 1,
    kUsage = 2,
    kNoService = 3,
    kServiceDied = 4,
    kNoAnswer = 5,
};

/** An option of the command line: "--wait", "--timeout TIME". */
struct Option {
    std::string_view name;   ///< with its dashes
    std::string_view value;  ///< the value's name in the help; empty: the option takes none
    std::string_view what;   ///< help text
};

struct CommandLine;

/** A subcommand of corvid-wifi, such as `dump` or `call`. */
struct Word {
    std::string_view name;
    std::string_view arguments;                     ///< for the help: "METHOD [ARG ...]"
    std::string_view what;                          ///< help text
    std::vector<Option> options;                    ///< in addition to commonOptions()
    size_t fewest = 0;                              ///< least number of arguments
    size_t most = 0;                                ///< greatest number of arguments
    int (*run)(const CommandLine& line) = nullptr;  ///< returns an ExitStatus, or throws
    /** From the first argument on, words are arguments even if they begin with "-". */
    bool argumentsMayBeOptions = false;
    std::vector<std::string> choices = {};  ///< what an argument can be; empty: anything
};

/** A parsed command line. */
struct CommandLine {
    const Word* word = nullptr;
    std::vector<std::string> arguments;
    std::map<std::string, std::string, std::less<>> options;  ///< by name, with its dashes

    bool has(std::string_view option) const { return options.find(option) != options.end(); }
    /** The option's value; empty if it was not given. */
    std::string value(std::string_view option) const;
    /** The value of --timeout; 0: no limit. */
    std::chrono::milliseconds timeout() const;
};

/** The options that every word takes. */
const std::vector<Option>& commonOptions();

/** Parses `words`, those after the program's name, by the `table` of words. Throws UsageError. */
CommandLine readCommandLine(const std::vector<std::string>& words, const std::vector<Word>& table);

/** Parses a time with its unit (250ms, 1s, 2min, 1h) or in seconds; throws UsageError. */
std::chrono::milliseconds readTime(std::string_view name, const std::string& text);

}  // namespace Ursa::OS::Wifi::Tools
