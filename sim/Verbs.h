#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Words.h"

namespace sim {

struct Simulation;

/** Called once when a line is done; `error` is empty unless it failed. */
using Done = std::function<void(const std::string& error)>;

/** Does what a line says. It calls `done` once, before it returns or later. */
using Action = std::function<void(Simulation&, Done done)>;

/** The first word of a scenario's line. */
struct Verb {
    /** One form of the line and what happens; sim/README.md has the same rows. */
    struct Help {
        std::string_view form;
        std::string_view what;
    };
    enum class Effect {
        Changes,  ///< "expect" looks back to the last such line.
        Tells,    ///< Changes nothing.
        Expects,  ///< Changes nothing, and is not recorded.
    };

    std::string_view name;
    /** Reads the rest of the line; throws ScenarioError. */
    Action (*parse)(Words& words);
    std::vector<Help> help;
    Effect effect = Effect::Changes;
    /** Lines right below it in a file are played when it is done. */
    bool waitedFor = false;
};

/** Every verb, in the order in which error messages list them. */
const std::vector<Verb>& verbs();

/** The forms of all lines with what happens, for `corvid-sim --lines`. */
std::string verbsHelp();

}  // namespace sim
