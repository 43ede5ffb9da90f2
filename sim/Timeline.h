#pragma once

#include <map>
#include <string>
#include <string_view>

#include "sim/Record.h"

namespace sim {

/**
 * Prints what happens for a person: one line each, in colour if wanted. A line that the daemon
 * causes over and over (twenty times a second while it looks for its supplicant) is printed twice a
 * second, with the number of those left out.
 */
class Timeline {
  public:
    /** Daemon log lines of `lowestLevel` ('V', 'D', 'I', 'W', 'E') and above are shown. */
    Timeline(bool colour, char lowestLevel) : colour_(colour), lowestLevel_(lowestLevel) {}

    void print(const Record& record);

  private:
    enum class Style { Plain, Faint, Bold, Event, Command, Power, Good, Warning, Bad };

    void line(const Record& record, Style style, std::string_view who, std::string_view text);
    /** Whether this line was printed twice within the last second. */
    bool tooOften(double t, const std::string& text);
    void command(const Record& record);
    void netlink(const Record& record);
    void log(const Record& record);
    void atom(const Record& record);

    const bool colour_;
    const char lowestLevel_;
    struct Repeats {
        double since = 0;
        int printed = 0;
        int leftOut = 0;
    };
    /** By the line's text. */
    std::map<std::string, Repeats> repeats_;
    /** The power last set per socket, as the command gave it. */
    std::map<std::string, std::string> power_;
};

}  // namespace sim
