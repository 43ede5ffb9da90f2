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

/** What stands behind a word, or before it, and begins with "-". */
struct Option {
    std::string_view name;   ///< with its dashes
    std::string_view value;  ///< what stands behind it; empty: nothing
    std::string_view what;
};

struct CommandLine;

/** What corvid-wifi can be asked for. */
struct Word {
    std::string_view name;
    std::string_view arguments;  ///< for people: "METHOD [ARG ...]"
    std::string_view what;
    std::vector<Option> options;  ///< its own, beside those of every word
    size_t fewest = 0;            ///< arguments
    size_t most = 0;
    int (*run)(const CommandLine& line) = nullptr;  ///< returns an ExitStatus, or throws
    /** From the first argument on, everything is one, whatever it begins with. */
    bool argumentsMayBeOptions = false;
};

/** The words behind the program's name, sorted. */
struct CommandLine {
    const Word* word = nullptr;
    std::vector<std::string> arguments;
    std::map<std::string, std::string, std::less<>> options;  ///< by name, with its dashes

    bool has(std::string_view option) const { return options.find(option) != options.end(); }
    /** The option's value; empty if it was not given. */
    std::string value(std::string_view option) const;
    /** --timeout; 0: for ever. */
    std::chrono::milliseconds timeout() const;
};

/** The options that every word takes. */
const std::vector<Option>& commonOptions();

/** Throws UsageError. `words` are those behind the program's name. */
CommandLine readCommandLine(const std::vector<std::string>& words, const std::vector<Word>& table);

/** A time with its unit (250ms, 1s, 2min, 1h) or in seconds; throws UsageError. `name`: whose it
 * is. */
std::chrono::milliseconds readTime(std::string_view name, const std::string& text);

}  // namespace Ursa::OS::Wifi::Tools
