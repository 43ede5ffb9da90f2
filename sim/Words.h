#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/EventLoop.h"
#include "sim/RadioState.h"

namespace sim {

/** A line that is not understood. what() says what was wrong and what is allowed. */
class ScenarioError : public std::runtime_error {
  public:
    ScenarioError(int at, const std::string& message) : std::runtime_error(message), line(at) {}
    int line;
};

/** What a line's reader asks others about. */
struct LineChecks {
    /** What is wrong with a call of the service with these words (method first), or nothing. */
    std::function<std::string(const std::vector<std::string>&)> call;
};

/**
 * The words of one scenario line, read from left to right. Blanks separate words; "..." holds
 * blanks and the escapes \" \\ \n \t \xHH, also after a key and its "="; # outside of quotes begins
 * a comment. A reader that does not find what it is for throws ScenarioError with what is allowed.
 */
class Words {
  public:
    Words(std::string_view line, int number, LineChecks checks = {});

    bool atEnd() const { return position_ >= line_.size(); }
    /** What is not read yet, as it stands, without the comment. */
    std::string_view remainder() const { return line_.substr(position_); }

    /** The next word; `what` names it in the error when there is none. */
    std::string word(std::string_view what);
    /** The next word, which must be one of `allowed`. */
    std::string_view oneOf(std::string_view what, const std::vector<std::string_view>& allowed);
    /** Reads the next word if it is exactly `text`. */
    bool skip(std::string_view text);
    /** Everything that is left: one quoted text, or the words as they stand. */
    std::string textToEnd(std::string_view what);
    /** A quoted text; empty if the next word isn't one. */
    std::optional<std::string> quoted();
    void end();

    /** Reads all words that are left as KEY=VALUE; each key at most once, only those allowed. */
    void readOptions(const std::vector<std::string_view>& allowed);
    /** The value of an option; empty if it was not given. */
    std::optional<std::string> option(std::string_view key) const;
    std::string option(std::string_view key, std::string_view otherwise) const;
    /** The value of an option that must be there; `example` is shown when it isn't. */
    std::string required(std::string_view key, std::string_view example) const;

    /** The value of an option, one of `allowed`; the first when it was not given. */
    std::string_view optionOf(std::string_view key,
                              const std::vector<std::string_view>& allowed) const;

    /** A whole number, decimal or 0x hex, with or without the unit behind it ("MHz", ""). */
    long number(std::string_view what, const std::string& text, std::string_view unit, long lowest,
                long highest) const;
    /** A time of 0 or more with its unit: "1.5s", "250ms", "2min". */
    Duration duration(std::string_view what, const std::string& text) const;
    Width width(const std::string& text) const;

    [[noreturn]] void fail(const std::string& message) const;
    /** The line is played, but whoever wrote it may have meant something else. */
    void warn(std::string message) { warnings_.push_back(std::move(message)); }
    const std::vector<std::string>& warnings() const { return warnings_; }
    const LineChecks& checks() const { return checks_; }

  private:
    struct Option {
        std::string key;
        std::string value;
    };

    void skipBlanks();
    std::string readWord();
    std::string readQuoted();

    std::string_view line_;
    int number_;
    size_t position_ = 0;
    std::vector<Option> options_;
    LineChecks checks_;
    std::vector<std::string> warnings_;
};

}  // namespace sim
