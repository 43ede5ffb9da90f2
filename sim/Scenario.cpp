#include "sim/Scenario.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

/** The next line of `text` from `position` on, without its newline; moves `position` behind it. */
std::string_view nextLine(std::string_view text, size_t& position) {
    const size_t newline = std::min(text.find('\n', position), text.size());
    const std::string_view line = text.substr(position, newline - position);
    position = newline + 1;
    return line;
}

/** What the words ask for, without the time before them. */
Step parseStep(Words& words, int line) {
    static const std::vector<std::string_view> kNames = [] {
        std::vector<std::string_view> names;
        for (const Verb& verb : verbs()) {
            names.push_back(verb.name);
        }
        return names;
    }();
    Step step;
    step.line = line;
    step.text = words.remainder();
    const std::string_view name = words.oneOf("word", kNames);
    step.verb = &*std::find_if(verbs().begin(), verbs().end(),
                               [name](const Verb& verb) { return verb.name == name; });
    step.action = step.verb->parse(words);
    step.warnings = words.warnings();
    return step;
}

/** Reads the time behind "at", which may count from `before`. */
Duration parseTime(Words& words, Duration before) {
    const std::string time = words.word("the time after 'at'");
    const bool relative = time[0] == '+';
    const Duration given = words.duration("the time", relative ? time.substr(1) : time);
    const Duration at = relative ? before + given : given;
    if (at < before) {
        words.fail("time goes backwards: " + time + " comes after " +
                   std::to_string(std::chrono::duration<double>(before).count()) +
                   "s; a time of its own or a later one is allowed");
    }
    if (words.atEnd()) {
        words.fail("what happens at " + time + " is missing");
    }
    return at;
}

}  // namespace

Scenario parseScenario(std::string name, std::string_view text, const LineChecks& checks) {
    Scenario scenario{std::move(name), {}, {}};
    Duration now{0};
    bool prepare = true;
    bool ended = false;
    int number = 0;
    for (size_t position = 0; position < text.size();) {
        const std::string_view line = nextLine(text, position);
        try {
            Words words(line, ++number, checks);
            if (words.atEnd()) {
                continue;
            }
            if (std::exchange(ended, false)) {
                words.fail("nothing may follow 'end'");
            }
            if (words.skip("at")) {
                prepare = false;
                now = parseTime(words, now);
            }
            Step step = parseStep(words, number);
            step.at = now;
            step.prepare = prepare;
            ended = step.verb->name == "end";
            scenario.steps.push_back(std::move(step));
        } catch (const ScenarioError& error) {
            scenario.errors.push_back(error);
        }
    }
    return scenario;
}

std::optional<Step> parseLine(std::string_view text, int line) {
    Words words(text, line);
    if (words.atEnd()) {
        return std::nullopt;
    }
    if (words.skip("at")) {
        words.fail("a time is for scenario files; a line given by hand is played at once");
    }
    return parseStep(words, line);
}

}  // namespace sim
