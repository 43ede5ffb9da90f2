#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "host/log/TagFilter.h"
#include "sim/Output.h"
#include "sim/Record.h"

namespace sim {

/**
 * Writes what happens for a person: one line each, in colour if wanted. A line that the daemon
 * causes over and over (twenty times a second while it looks for its supplicant) is written four
 * times, then the number of those left out. What was asked for is always written: the scenario's
 * lines, calls and callbacks with their answers, failures.
 */
class Timeline {
  public:
    struct Look {
        bool colour = false;
        host::TagFilter log;  ///< Lines of the daemon's log that are shown.
    };

    /** `output` must outlive this. */
    Timeline(Output& output, Look look) : output_(output), look_(std::move(look)) {}

    void print(const Record& record);
    /** Writes how often lines came that were left out in the windows that are over at the time `t`.
     */
    void count(double t);
    /** The same for all windows. */
    void finish();

  private:
    enum class Style { Plain, Faint, Bold, Event, Command, Power, Good, Warning, Bad };
    /** Lines with the same words, from the first to a second in which there is none. */
    struct Repeats {
        std::string who;
        std::string text;
        Style style = Style::Plain;
        double since = 0;   ///< The last line about it.
        double last = 0;    ///< The last time it happened.
        double window = 1;  ///< Seconds from one count of it to the next.
        int written = 0;
        int leftOut = 0;
    };

    void line(const Record& record, Style style, std::string_view who, std::string_view text);
    void write(double t, Style style, std::string_view who, std::string_view text);
    /** Whether this line was written often enough and is counted from now on. */
    bool leaveOut(double t, Style style, std::string_view who, std::string_view text);
    void writeCount(double t, Repeats& repeats);
    void command(const Record& record);
    void netlink(const Record& record);
    void log(const Record& record);
    void call(const Record& record);
    void atom(const Record& record);

    Output& output_;
    const Look look_;
    /** By who and text. */
    std::map<std::string, Repeats> repeats_;
    double now_ = 0;
    bool finished_ = false;  ///< The result was written.
    /** The power last set per socket, as the command gave it. */
    std::map<std::string, std::string> power_;
};

}  // namespace sim
