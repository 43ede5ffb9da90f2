#include "tools/CommandLine.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tools/Json.h"
#include "tools/Methods.h"
#include "tools/Nearest.h"

namespace Ursa::OS::Wifi::Tools {

using std::chrono::milliseconds;

namespace {

const Word& wordOf(const std::string& name, const std::vector<Word>& table) {
    std::vector<std::string> names;
    for (const Word& word : table) {
        if (word.name == name) {
            return word;
        }
        names.emplace_back(word.name);
    }
    throw UsageError("there is no command " + toLine(name) + didYouMean(name, names) +
                     "; allowed are " + joined(names));
}

/** An option of the word, or of every word. `word` may be null: it was not read yet. */
const Option& optionOf(const std::string& name, const Word* word) {
    std::vector<std::string> names;
    for (const auto* options : {word != nullptr ? &word->options : nullptr, &commonOptions()}) {
        for (const Option& option : options != nullptr ? *options : std::vector<Option>()) {
            names.emplace_back(option.name);
        }
    }
    const auto find = [&name](const std::vector<Option>& options) {
        return std::find_if(options.begin(), options.end(),
                            [&name](const Option& option) { return option.name == name; });
    };
    if (const auto common = find(commonOptions()); common != commonOptions().end()) {
        return *common;
    }
    if (word != nullptr) {
        if (const auto own = find(word->options); own != word->options.end()) {
            return *own;
        }
    }
    throw UsageError("there is no option " + name + didYouMean(name, names) + "; allowed are " +
                     joined(names));
}

std::string plural(size_t count) {
    return std::to_string(count) + (count == 1 ? " argument" : " arguments");
}

void checkArguments(const CommandLine& line) {
    const Word& word = *line.word;
    const size_t count = line.arguments.size();
    if (count >= word.fewest && count <= word.most) {
        return;
    }
    if (word.most == 0) {
        throw UsageError(std::string(word.name) + " takes no arguments");
    }
    const bool fixed = word.fewest == word.most;
    throw UsageError(
        std::string(word.name) + " takes " +
        (fixed ? plural(word.most) : std::to_string(word.fewest) + " to " + plural(word.most)) +
        ", not " + std::to_string(count) + ": " + std::string(word.name) + " " +
        std::string(word.arguments));
}

}  // namespace

std::string CommandLine::value(std::string_view option) const {
    const auto found = options.find(option);
    return found == options.end() ? "" : found->second;
}

milliseconds CommandLine::timeout() const {
    constexpr milliseconds kDefault{15'000};
    return has("--timeout") ? readTime("--timeout", value("--timeout")) : kDefault;
}

const std::vector<Option>& commonOptions() {
    static const std::vector<Option> options = {
        {"--json", "", "one JSON object in place of text"},
        {"--timeout", "SECONDS",
         "how long the service may take to answer (15; 0: for ever); 250ms and 2min are fine too"},
        {"--wait", "", "waits so long for the service if it is not there"},
    };
    return options;
}

CommandLine readCommandLine(const std::vector<std::string>& words, const std::vector<Word>& table) {
    CommandLine line;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        const bool isOption = word.size() > 1 && word[0] == '-';
        const bool mayBeOption = line.word == nullptr || !line.word->argumentsMayBeOptions ||
                                 line.arguments.empty() || word.rfind("--", 0) == 0;
        // A negative number is none.
        if (!isOption || !mayBeOption) {
            if (line.word == nullptr) {
                line.word = &wordOf(word, table);
            } else {
                line.arguments.push_back(word);
            }
            continue;
        }
        // Words that look like options: --version, and --help also behind another word.
        const auto found = std::find_if(table.begin(), table.end(),
                                        [&word](const Word& known) { return known.name == word; });
        if (found != table.end() && (line.word == nullptr || word == "--help")) {
            line.word = &*found;
            line.arguments.clear();
            continue;
        }
        const size_t equals = word.find('=');
        const Option& option = optionOf(word.substr(0, equals), line.word);
        std::string value;
        if (option.value.empty() && equals != std::string::npos) {
            throw UsageError(std::string(option.name) + " takes no value");
        }
        if (!option.value.empty() && equals == std::string::npos && ++i == words.size()) {
            throw UsageError(std::string(option.name) + " needs a value: " +
                             std::string(option.name) + " " + std::string(option.value));
        }
        if (!option.value.empty()) {
            value = equals != std::string::npos ? word.substr(equals + 1) : words[i];
        }
        line.options[std::string(option.name)] = value;
    }
    if (line.word == nullptr) {
        std::vector<std::string> names;
        names.reserve(table.size());
        for (const Word& word : table) {
            names.emplace_back(word.name);
        }
        throw UsageError("a command is missing; allowed are " + joined(names));
    }
    checkArguments(line);
    static_cast<void>(line.timeout());  // wrong is wrong, used or not
    return line;
}

milliseconds readTime(std::string_view name, const std::string& text) {
    char* stop = nullptr;
    const double number = std::strtod(text.c_str(), &stop);
    const std::string unit = stop;
    const double factor = unit == "ms"                  ? 1
                          : unit.empty() || unit == "s" ? 1000
                          : unit == "min"               ? 60'000
                          : unit == "h"                 ? 3'600'000
                                                        : 0;
    constexpr double kLongest = 7 * 24 * 3600 * 1000.0;
    if (stop == text.c_str() || factor == 0 || !(number >= 0) || number * factor > kLongest) {
        throw UsageError(std::string(name) + " is " + toLine(text) +
                         "; allowed is a time such as 15, 1.5s, 250ms or 2min");
    }
    return milliseconds(std::llround(number * factor));
}

}  // namespace Ursa::OS::Wifi::Tools
