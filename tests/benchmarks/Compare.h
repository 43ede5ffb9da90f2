#pragma once

#include <sched.h>

#include <ctime>
#include <limits>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace corvid::benchmarks {

/** Which time is compared. */
enum class Clock {
    ThreadCpu,   ///< of the calling thread: what runs on it alone, whatever else the machine does
    ProcessCpu,  ///< of all threads: what a peer process does is not counted
    Wall,        ///< what somebody waits for
};

/** Nanoseconds since some fixed moment. */
double now(Clock clock);

/** Nanoseconds of the two sides in each round; the figures are medians over the rounds. */
class Rounds {
  public:
    /** Ends an iteration of `state` (registered with UseManualTime()), the round's time being its.
     */
    void add(benchmark::State& state, double subject, double baseline);
    /** Leaves the iteration to other figures of the same round. */
    void add(double subject, double baseline);

    /** The median of the rounds' own ratios: a disturbance hits one round, not the figure. */
    double ratio() const;
    double subject() const;
    double baseline() const;

  private:
    double roundStart_ = now(Clock::Wall);
    std::vector<double> subject_;
    std::vector<double> baseline_;
};

/**
 * Keeps the calling thread, and those that it starts meanwhile, on one processor. Two threads that
 * wait for each other then take the same road every time, not one that depends on where the
 * scheduler put them. Nor does one that is woken interrupt the other (SCHED_BATCH): whether it may
 * depends on how much time each has had lately. A real-time priority is left alone.
 */
class OneProcessor {
  public:
    OneProcessor();
    ~OneProcessor();

    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

  private:
    static void setPolicy_(int policy);

    cpu_set_t before_;
    const bool isNormal_ = sched_getscheduler(0) == SCHED_OTHER;
};

/**
 * Puts one figure into the table that the program ends with, and into `state`'s counters "ratio"
 * and "max". A later figure of the same name replaces an earlier one.
 */
void report(benchmark::State& state, const std::string& name, double ratio, double max,
            const std::string& remark = "");

/** Instead of a largest ratio, for a figure that is only told. */
inline constexpr double kNoTarget = std::numeric_limits<double>::infinity();

/** As above, with the two times per operation besides. `operations` is their number in a round. */
void report(benchmark::State& state, const std::string& name, const Rounds& rounds, int operations,
            double max);

/** For a figure that this machine cannot give. It counts as not reached. */
void reportMissing(benchmark::State& state, const std::string& name, const std::string& reason);

/**
 * Times `subject` against `baseline`: in every iteration of the benchmark each runs `operations`
 * times in a row, the other one first every second time. To be registered with UseManualTime().
 * `max` is the largest ratio of the two that is good enough.
 */
template <typename Subject, typename Baseline>
void compare(benchmark::State& state, const std::string& name, double max, Clock clock,
             int operations, Subject subject, Baseline baseline) {
    const auto time = [&](auto& side) {
        const double start = now(clock);
        for (int i = 0; i < operations; ++i) {
            side();
        }
        return now(clock) - start;
    };
    // Caches, page faults and the allocator's first growth belong to neither.
    time(baseline);
    time(subject);
    Rounds rounds;
    bool baselineFirst = true;
    for ([[maybe_unused]] auto _ : state) {
        double first = 0;
        if (baselineFirst) {
            first = time(baseline);
        }
        const double subjectTime = time(subject);
        const double baselineTime = baselineFirst ? first : time(baseline);
        baselineFirst = !baselineFirst;
        rounds.add(state, subjectTime, baselineTime);
    }
    report(state, name, rounds, operations, max);
}

/** The program was started with --smoke: everything once, for a moment, and no verdict. */
bool smoke();

}  // namespace corvid::benchmarks
