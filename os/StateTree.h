#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "os/Moment.h"

namespace Ursa::OS {

/**
 * A state for a report: a value, a list, or named parts in order. Written as JSON or as indented
 * text. Strings may contain any bytes: JSON escapes them and replaces invalid UTF-8, the text form
 * replaces control characters. One thread at a time.
 */
class StateTree {
  public:
    /** Nothing: null in JSON, "-" in the text form. */
    StateTree() = default;
    StateTree(bool value) : value_(value) {}  // NOLINT(google-explicit-constructor)
    StateTree(std::string value) : value_(std::move(value)) {}         // NOLINT
    StateTree(std::string_view value) : value_(std::string(value)) {}  // NOLINT
    StateTree(const char* value) : value_(std::string(value)) {}       // NOLINT
    /** In JSON its age and both clocks, in the text form momentText(). Nothing for "never". */
    StateTree(const Moment& moment) {  // NOLINT(google-explicit-constructor)
        if (moment) {
            value_ = moment;
        }
    }
    template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>, typename = void>
    StateTree(T value) : value_(static_cast<int64_t>(value)) {}  // NOLINT
    template <typename T>
    StateTree(const std::optional<T>& value) {  // NOLINT(google-explicit-constructor)
        if (value) {
            *this = StateTree(*value);
        }
    }

    static StateTree list() { return StateTree(Elements{}); }
    /**
     * A list whose elements `make(0)`, `make(1)`, ... are made one at a time while it is written,
     * so that a long one takes little memory.
     */
    static StateTree list(size_t count, std::function<StateTree(size_t)> make) {
        return StateTree(LaterElements{count, std::move(make)});
    }
    static StateTree parts() { return StateTree(Parts{}); }

    /** Only on parts(). Returns the new part; valid until the next one is added. */
    StateTree& set(std::string_view name, StateTree value);
    /** Only on list() without arguments. */
    StateTree& add(StateTree value);

    bool isNothing() const { return std::holds_alternative<std::monostate>(value_); }

    /** The text form is this line instead of the contents. */
    StateTree& asLine(std::string line) {
        line_ = std::move(line);
        return *this;
    }

    /** One line, without a newline. */
    std::string json() const;
    /** Lines, each with its newline; deeper parts are indented. */
    std::string text() const;

  private:
    using Elements = std::vector<StateTree>;
    using Parts = std::vector<std::pair<std::string, StateTree>>;

    struct LaterElements {
        size_t count;
        std::function<StateTree(size_t)> make;
    };

    explicit StateTree(Elements elements) : value_(std::move(elements)) {}
    explicit StateTree(LaterElements elements) : value_(std::move(elements)) {}
    explicit StateTree(Parts parts) : value_(std::move(parts)) {}

    void writeJson_(std::string& out, const Moment& now) const;
    /** Appends the value after "name:", on the same line if it is short, else on further lines. */
    void writeText_(std::string& out, size_t indent, const Moment& now) const;
    std::string shortText_(const Moment& now) const;
    bool isShort_() const;

    std::variant<std::monostate, bool, int64_t, std::string, Moment, Elements, LaterElements, Parts>
        value_;
    std::string line_;
};

/** Nothing for -1, which stands for an unknown number. */
inline StateTree knownOrNothing(int64_t value) {
    return value == -1 ? StateTree() : StateTree(value);
}

/** A duration in nanoseconds as text: "0.4 ms", "4.2 s", "3 min". */
std::string durationText(int64_t ns);
/** "4.2 s ago (07:03:22.123)", or "never". The time of day is UTC. */
std::string momentText(const Moment& moment, const Moment& now = Moment::now());
/** `text` on one line: newlines become " / ", other control characters blanks. */
std::string oneLine(std::string_view text);

}  // namespace Ursa::OS
