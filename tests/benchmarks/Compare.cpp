#include "Compare.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>

#include <android/log.h>

namespace corvid::benchmarks {

namespace {

struct Row {
    std::string name;
    double ratio;  ///< NaN when it could not be measured
    double max;
    std::string remark;
};

/** In the order of the benchmarks. */
std::vector<Row>& rows() {
    static std::vector<Row> rows;
    return rows;
}

bool smokeRun = false;

void put(Row row) {
    auto& all = rows();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const Row& r) { return r.name == row.name; });
    if (found != all.end()) {
        *found = std::move(row);
    } else {
        all.push_back(std::move(row));
    }
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return std::nan("");
    }
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::string timeText(double nanoseconds) {
    char text[32];
    if (nanoseconds < 10'000) {
        snprintf(text, sizeof(text), "%.0f ns", nanoseconds);
    } else if (nanoseconds < 1'000'000) {
        snprintf(text, sizeof(text), "%.1f us", nanoseconds / 1e3);
    } else {
        snprintf(text, sizeof(text), "%.1f ms", nanoseconds / 1e6);
    }
    return text;
}

/** Leaves the table alone on the screen. */
class NoLines : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& /*runs*/) override {}
};

/** Returns whether every figure was measured and is good enough. */
bool printTable() {
    bool good = true;
    printf("\n%-58s %7s %7s\n", "", "ratio", "target");
    for (const Row& row : rows()) {
        if (std::isnan(row.ratio)) {
            good = false;
            printf("%-58s %7s %7s  not measured: %s\n", row.name.c_str(), "-", "-",
                   row.remark.c_str());
            continue;
        }
        if (row.max == kNoTarget) {
            printf("%-58s %7.3f %7s       %s\n", row.name.c_str(), row.ratio, "-",
                   row.remark.c_str());
            continue;
        }
        const bool ok = row.ratio <= row.max;
        good = good && ok;
        printf("%-58s %7.3f %7.2f  %-4s %s\n", row.name.c_str(), row.ratio, row.max,
               ok ? "ok" : "over", row.remark.c_str());
    }
    return good;
}

}  // namespace

double now(Clock clock) {
    clockid_t id = CLOCK_MONOTONIC;
    if (clock == Clock::ThreadCpu) {
        id = CLOCK_THREAD_CPUTIME_ID;
    } else if (clock == Clock::ProcessCpu) {
        id = CLOCK_PROCESS_CPUTIME_ID;
    }
    timespec time;
    clock_gettime(id, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

void Rounds::add(benchmark::State& state, double subject, double baseline) {
    const double end = now(Clock::Wall);
    state.SetIterationTime((end - roundStart_) * 1e-9);
    roundStart_ = end;
    add(subject, baseline);
}

void Rounds::add(double subject, double baseline) {
    subject_.push_back(subject);
    baseline_.push_back(baseline);
}

double Rounds::ratio() const {
    std::vector<double> ratios;
    for (size_t i = 0; i < subject_.size(); ++i) {
        ratios.push_back(subject_[i] / baseline_[i]);
    }
    return median(std::move(ratios));
}

double Rounds::subject() const { return median(subject_); }

double Rounds::baseline() const { return median(baseline_); }

OneProcessor::OneProcessor() {
    sched_getaffinity(0, sizeof(before_), &before_);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof(one), &one);
    if (isNormal_) {
        setPolicy_(SCHED_BATCH);
    }
}

OneProcessor::~OneProcessor() {
    if (isNormal_) {
        setPolicy_(SCHED_OTHER);
    }
    sched_setaffinity(0, sizeof(before_), &before_);
}

void OneProcessor::setPolicy_(int policy) {
    const sched_param none = {};
    sched_setscheduler(0, policy, &none);
}

void report(benchmark::State& state, const std::string& name, double ratio, double max,
            const std::string& remark) {
    state.counters["ratio"] = ratio;
    state.counters["max"] = max;
    put({name, ratio, max, remark});
}

void report(benchmark::State& state, const std::string& name, const Rounds& rounds, int operations,
            double max) {
    const std::string remark = timeText(rounds.subject() / operations) + " against " +
                               timeText(rounds.baseline() / operations);
    report(state, name, rounds.ratio(), max, remark);
}

void reportMissing(benchmark::State& state, const std::string& name, const std::string& reason) {
    state.SkipWithError(reason.c_str());
    put({name, std::nan(""), 0, reason});
}

bool smoke() { return smokeRun; }

}  // namespace corvid::benchmarks

namespace {

int run(int argc, char** argv) {
    using namespace corvid::benchmarks;
    std::vector<char*> arguments(argv, argv + argc);
    // Each iteration is a round of both sides, which takes milliseconds.
    char minTime[] = "--benchmark_min_time=1";
    char minTimeSmoke[] = "--benchmark_min_time=0.0001";
    bool tableOnly = false;
    for (char*& argument : arguments) {
        if (strcmp(argument, "--smoke") == 0) {
            smokeRun = true;
            argument = minTimeSmoke;
        } else if (strcmp(argument, "--table") == 0) {
            tableOnly = true;
            argument = minTime;
        }
    }
    if (!smokeRun) {
        arguments.insert(arguments.begin() + 1, minTime);
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    NoLines quiet;
    const size_t ran =
        tableOnly ? benchmark::RunSpecifiedBenchmarks(&quiet) : benchmark::RunSpecifiedBenchmarks();
    if (ran == 0) {
        return 2;
    }
    benchmark::Shutdown();
    const bool good = printTable();
    return good || smoke() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    // The daemon has two threads. In a process with only one the C library's locks and the shared
    // pointers' counters would cost next to nothing.
    __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
    std::promise<void> end;
    std::thread second([stop = end.get_future()] { stop.wait(); });
    const int status = run(argc, argv);
    end.set_value();
    second.join();
    return status;
}
