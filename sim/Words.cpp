#include "sim/Words.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "sim/Nearest.h"

namespace sim {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

/** The line without its comment: a # that stands outside of quotes, at a word's beginning. */
std::string_view withoutComment(std::string_view line) {
    bool inQuotes = false;
    for (size_t i = 0; i < line.size(); ++i) {
        if (inQuotes && line[i] == '\\') {
            ++i;
        } else if (line[i] == '"') {
            inQuotes = !inQuotes;
        } else if (!inQuotes && line[i] == '#' && (i == 0 || isBlank(line[i - 1]))) {
            line = line.substr(0, i);
            break;
        }
    }
    while (!line.empty() && isBlank(line.back())) {
        line.remove_suffix(1);
    }
    return line;
}

std::string listed(const std::vector<std::string_view>& words) {
    std::string out;
    for (const std::string_view word : words) {
        out.append(out.empty() ? "" : ", ").append(word);
    }
    return out;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const int lower = std::tolower(static_cast<unsigned char>(c));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string quote(std::string_view text) { return "'" + std::string(text) + "'"; }

}  // namespace

Words::Words(std::string_view line, int number, LineChecks checks)
    : line_(withoutComment(line)), number_(number), checks_(std::move(checks)) {
    skipBlanks();
}

void Words::fail(const std::string& message) const { throw ScenarioError(number_, message); }

void Words::skipBlanks() {
    while (position_ < line_.size() && isBlank(line_[position_])) {
        ++position_;
    }
}

std::string Words::readQuoted() {
    std::string out;
    ++position_;
    while (true) {
        if (position_ >= line_.size()) {
            fail("a text is not ended: the closing \" is missing");
        }
        const char c = line_[position_++];
        if (c == '"') {
            return out;
        }
        if (c != '\\') {
            out += c;
            continue;
        }
        const char escape = position_ < line_.size() ? line_[position_++] : '\0';
        switch (escape) {
            case '"':
            case '\\':
                out += escape;
                break;
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'x': {
                const int high = position_ < line_.size() ? hexDigit(line_[position_]) : -1;
                const int low = position_ + 1 < line_.size() ? hexDigit(line_[position_ + 1]) : -1;
                if (high < 0 || low < 0) {
                    fail("\\x must be followed by two hexadecimal digits");
                }
                out += static_cast<char>(high * 16 + low);
                position_ += 2;
                break;
            }
            default:
                fail("unknown escape \\" + std::string(1, escape) +
                     "; allowed: \\\" \\\\ \\n \\t \\xHH");
        }
    }
}

std::string Words::readWord() {
    std::string out;
    while (position_ < line_.size() && !isBlank(line_[position_])) {
        if (line_[position_] == '"') {
            out += readQuoted();
        } else {
            out += line_[position_++];
        }
    }
    skipBlanks();
    return out;
}

std::string Words::word(std::string_view what) {
    if (atEnd()) {
        fail(std::string(what) + " is missing");
    }
    return readWord();
}

std::string_view Words::oneOf(std::string_view what, const std::vector<std::string_view>& allowed) {
    if (atEnd()) {
        fail(std::string(what) + " is missing; allowed: " + listed(allowed));
    }
    const std::string found = readWord();
    for (const std::string_view word : allowed) {
        if (found == word) {
            return word;
        }
    }
    fail("unknown " + std::string(what) + " " + quote(found) + didYouMean(found, allowed) +
         "; allowed: " + listed(allowed));
}

bool Words::skip(std::string_view text) {
    const size_t before = position_;
    if (!atEnd() && line_[position_] != '"' && readWord() == text) {
        return true;
    }
    position_ = before;
    return false;
}

std::string Words::textToEnd(std::string_view what) {
    if (atEnd()) {
        fail(std::string(what) + " is missing");
    }
    if (auto text = quoted()) {
        end();
        return *text;
    }
    std::string text(line_.substr(position_));
    position_ = line_.size();
    return text;
}

std::optional<std::string> Words::quoted() {
    if (atEnd() || line_[position_] != '"') {
        return std::nullopt;
    }
    return readWord();
}

void Words::end() {
    if (!atEnd()) {
        fail("unexpected " + quote(remainder()) + " at the end of the line");
    }
}

void Words::readOptions(const std::vector<std::string_view>& allowed) {
    while (!atEnd()) {
        const size_t equals = line_.find('=', position_);
        const size_t blank = line_.find_first_of(" \t", position_);
        std::string key(line_.substr(position_, std::min(equals, blank) - position_));
        bool known = false;
        for (const std::string_view candidate : allowed) {
            known = known || key == candidate;
        }
        if (!known || equals > blank) {
            fail((known ? quote(key) + " needs a value: " + key + "=VALUE"
                        : "unknown word " + quote(key) + didYouMean(key, allowed)) +
                 (allowed.empty() ? "; nothing is allowed here"
                                  : "; allowed (as KEY=VALUE): " + listed(allowed)));
        }
        if (option(key)) {
            fail(quote(key) + " is given twice");
        }
        position_ = equals + 1;
        std::string value = readWord();
        if (value.empty()) {
            fail(quote(key) + " needs a value: " + key + "=VALUE");
        }
        options_.push_back({std::move(key), std::move(value)});
    }
}

std::optional<std::string> Words::option(std::string_view key) const {
    for (const Option& option : options_) {
        if (option.key == key) {
            return option.value;
        }
    }
    return std::nullopt;
}

std::string Words::option(std::string_view key, std::string_view otherwise) const {
    return option(key).value_or(std::string(otherwise));
}

std::string Words::required(std::string_view key, std::string_view example) const {
    const auto value = option(key);
    if (!value) {
        fail(quote(key) + " is missing, for example " + std::string(key) + "=" +
             std::string(example));
    }
    return *value;
}

std::string_view Words::optionOf(std::string_view key,
                                 const std::vector<std::string_view>& allowed) const {
    const auto value = option(key);
    if (!value) {
        return allowed.front();
    }
    for (const std::string_view word : allowed) {
        if (*value == word) {
            return word;
        }
    }
    fail(std::string(key) + " " + quote(*value) + " is unknown" + didYouMean(*value, allowed) +
         "; allowed: " + listed(allowed));
}

long Words::number(std::string_view what, const std::string& text, std::string_view unit,
                   long lowest, long highest) const {
    const bool hex = text.rfind("0x", 0) == 0;
    const bool startsWell = !text.empty() && (std::isdigit(static_cast<unsigned char>(text[0])) ||
                                              text[0] == '-' || text[0] == '+');
    char* stop = nullptr;
    errno = 0;
    const long value = startsWell ? std::strtol(text.c_str(), &stop, hex ? 16 : 10) : 0;
    const bool digits = startsWell && stop != text.c_str();
    const std::string_view behind = digits ? std::string_view(stop) : std::string_view();
    if (!digits || errno != 0 || !(behind.empty() || behind == unit) || value < lowest ||
        value > highest) {
        fail(std::string(what) + " " + quote(text) + " is not a whole number from " +
             std::to_string(lowest) + " to " + std::to_string(highest) +
             (unit.empty() ? "" : " (" + std::string(unit) + ")"));
    }
    return value;
}

Duration Words::duration(std::string_view what, const std::string& text) const {
    const auto bad = [&] {
        fail(std::string(what) + " " + quote(text) +
             " is not a time; a time is a number with its unit: 250ms, 1.5s, 2min");
    };
    const size_t digits = text.find_first_not_of("0123456789.");
    if (digits == 0 || digits == std::string::npos || text[0] == '.') {
        bad();
    }
    char* stop = nullptr;
    const std::string number = text.substr(0, digits);
    const double value = std::strtod(number.c_str(), &stop);
    const std::string unit = text.substr(digits);
    const double nanoseconds = unit == "ms" ? 1e6 : unit == "s" ? 1e9 : unit == "min" ? 6e10 : 0;
    if (*stop != '\0' || nanoseconds == 0 || value * nanoseconds > 1e15) {
        bad();
    }
    return Duration(std::llround(value * nanoseconds));
}

Width Words::width(const std::string& text) const {
    std::string number = text;
    if (number.size() > 3 && number.substr(number.size() - 3) == "MHz") {
        number.resize(number.size() - 3);
    }
    for (const Width candidate :
         {Width::MHz20, Width::MHz40, Width::MHz80, Width::MHz80Plus80, Width::MHz160}) {
        if (number == widthText(candidate)) {
            return candidate;
        }
    }
    fail("width " + quote(text) + " is unknown; allowed (MHz): 20, 40, 80, 80+80, 160");
}

}  // namespace sim
