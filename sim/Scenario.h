#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/EventLoop.h"
#include "sim/Verbs.h"

namespace sim {

/** A line of a scenario. */
struct Step {
    Duration at{0};        ///< Since the start of the play; 0 for the preparation.
    bool prepare = false;  ///< Stands before the first time: played before the daemon is started.
    int line = 0;
    std::string text;  ///< The line without its time and comment.
    const Verb* verb = nullptr;
    Action action;
    std::vector<std::string> warnings;
};

struct Scenario {
    std::string name;  ///< The file's name as it was given.
    std::vector<Step> steps;
    std::vector<ScenarioError> errors;  ///< One for each line that is not understood.
};

/** Parses a whole scenario. It can be played if it has no errors. */
Scenario parseScenario(std::string name, std::string_view text, const LineChecks& checks = {});

/**
 * Parses one line without a time. Empty when the line is blank or a comment; throws ScenarioError
 * (with `line`) when it is not understood.
 */
std::optional<Step> parseLine(std::string_view text, int line);

}  // namespace sim
