// corvid-sim: the simulated headset. See README.md.

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>

#include "sim/CallCheck.h"
#include "sim/Control.h"
#include "sim/EventLoop.h"
#include "sim/Options.h"
#include "sim/Output.h"
#include "sim/Record.h"
#include "sim/Root.h"
#include "sim/Scenario.h"
#include "sim/ScenarioRun.h"
#include "sim/Simulation.h"
#include "sim/Timeline.h"
#include "sim/Verbs.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr std::chrono::milliseconds kCounting{200};

std::string ownFolder() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    return length > 0 ? fs::path(std::string(path, static_cast<size_t>(length))).parent_path()
                      : fs::path(".");
}

/** Beside the folder of the programs, or in it; empty if it is in neither. */
std::string findLibrary(const std::string& bin, const std::string& name) {
    for (const char* folder : {"/../lib/", "/../lib/corvid-wifi/", "/"}) {
        const std::string library = std::string(bin).append(folder).append(name);
        if (access(library.c_str(), R_OK) == 0) {
            return fs::canonical(library);
        }
    }
    return "";
}

/** The programs beside this one. */
sim::ProgramPaths findPrograms(const sim::Options& options) {
    const std::string bin = ownFolder();
    sim::ProgramPaths programs;
    programs.daemon = options.daemon;
    programs.stats = bin + "/corvid-statsd";
    programs.client = bin + "/corvid-wifi";
    programs.redirect = findLibrary(bin, "libnl80211-redirect.so");
    programs.pace = findLibrary(bin, "libcorvid-sim-speed.so");
    programs.speed = options.speed;
    return programs;
}

/** What is wrong or doubtful in the scenario, in the order of its lines. */
void showComplaints(const sim::Scenario& scenario) {
    std::multimap<int, std::string> complaints;
    for (const sim::ScenarioError& error : scenario.errors) {
        complaints.emplace(error.line, error.what());
    }
    for (const sim::Step& step : scenario.steps) {
        for (const std::string& warning : step.warnings) {
            complaints.emplace(step.line, "warning: " + warning);
        }
    }
    for (const auto& [line, text] : complaints) {
        std::fprintf(stderr, "%s:%d: %s\n", scenario.name.c_str(), line, text.c_str());
    }
}

/** Nothing, after saying why, if it can't be played. */
std::optional<sim::Scenario> readScenario(const std::string& path, const std::string& client) {
    std::ifstream in(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    if (!in.good() && !in.eof()) {
        std::fprintf(stderr, "corvid-sim: cannot read %s\n", path.c_str());
        return std::nullopt;
    }
    const sim::LineChecks checks{[&client](const std::vector<std::string>& words) {
        return sim::wrongWithCall(client, words);
    }};
    sim::Scenario scenario = sim::parseScenario(path, text, checks);
    if (scenario.errors.empty()) {
        return scenario;
    }
    showComplaints(scenario);
    return std::nullopt;
}

/** What the timeline looks like, by the options and what the caller's environment asks for. */
sim::Timeline::Look lookOf(const sim::Options& options) {
    const auto variable = [](const char* name) -> std::string {
        const char* value = std::getenv(name);
        return value != nullptr ? value : "";
    };
    const bool colour = !options.plain && isatty(STDOUT_FILENO) != 0 &&
                        variable("NO_COLOR").empty() && variable("TERM") != "dumb";
    const std::string tags =
        options.logTags.empty() ? "*:W " + variable("ANDROID_LOG_TAGS") : options.logTags;
    return {colour, host::TagFilter(tags)};
}

bool isPipe(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode);
}

/** A descriptor that becomes readable when the simulator is asked to end. */
android::base::unique_fd endSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, number);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return android::base::unique_fd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

/** Ends as a program does that nobody reads any more. */
[[noreturn]] void endByClosedPipe() {
    signal(SIGPIPE, SIG_DFL);
    raise(SIGPIPE);
    std::abort();
}

/** How a play or a session ended. */
struct End {
    int status = 0;
    bool pipeClosed = false;
};

End play(const sim::Options& options, std::optional<sim::Scenario> scenario,
         const sim::ProgramPaths& programs) {
    const sim::Root root(options.root);
    sim::EventLoop loop;
    sim::Recorder recorder;
    End end;
    const auto stop = [&loop, &end] {
        end.status = kFailed;
        loop.stop();
    };

    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(nullptr, &std::fclose);
    if (!options.record.empty()) {
        file.reset(std::fopen(options.record.c_str(), "we"));
        if (!file) {
            throw sim::UsageError("cannot write " + options.record + ": " + std::strerror(errno));
        }
    }
    sim::Output record(file.get(), options.record, stop);
    if (file) {
        recorder.addSink([&record](const sim::Record& r) { record.write(r.json() + "\n"); });
    }
    sim::Output output(stdout, "standard output", stop);
    sim::Timeline timeline(output, lookOf(options));
    if (options.control) {
        recorder.addSink([&output](const sim::Record& r) { output.write(r.json() + "\n"); });
    } else {
        recorder.addSink([&timeline](const sim::Record& r) { timeline.print(r); });
    }

    // What is counted is told in time, also when nothing else happens.
    const std::function<void()> tellCounts = [&] {
        timeline.count(recorder.now());
        loop.after(kCounting, tellCounts);
    };
    if (!options.control) {
        tellCounts();
    }

    const android::base::unique_fd signals = endSignals();
    loop.watch(signals.get(), stop);
    if (isPipe(STDOUT_FILENO)) {
        // Becomes readable when nobody reads it any more, without a line that could not be written.
        loop.watch(STDOUT_FILENO, [&end, &stop] {
            end.pipeClosed = true;
            stop();
        });
    }

    sim::Simulation simulation(loop, recorder, programs);
    std::unique_ptr<sim::Control> control;
    std::unique_ptr<sim::ScenarioRun> run;
    if (options.control) {
        recorder.add(sim::Record("ready", root.path()));
        control = std::make_unique<sim::Control>(loop, recorder, simulation, STDIN_FILENO,
                                                 [&loop] { loop.stop(); });
    } else {
        sim::ScenarioRun::Options how;
        how.startStats = options.stats;
        how.startDaemon = !options.daemon.empty();
        how.dumpAtEnd = options.dump;
        simulation.speed = options.speed;
        recorder.setSpeed(options.speed);
        run = std::make_unique<sim::ScenarioRun>(loop, recorder, simulation, std::move(*scenario),
                                                 how, [&](bool failed) {
                                                     end.status = failed ? kFailed : 0;
                                                     loop.stop();
                                                 });
        // Inside the loop, so that an end at once ends it.
        loop.after({}, [&run] { run->start(); });
    }
    loop.run();
    loop.forget(STDOUT_FILENO);
    timeline.finish();
    end.pipeClosed = end.pipeClosed || output.error() == EPIPE;
    for (const sim::Output* one : {&output, &record}) {
        if (one->error() != 0) {
            end.status = kFailed;
        }
        if (one->error() != 0 && !(one == &output && end.pipeClosed)) {
            std::fprintf(stderr, "corvid-sim: %s\n", one->complaint().c_str());
        }
    }
    return end;
}

int run(const sim::Options& options) {
    if (options.helpJson) {
        std::puts(sim::optionsJson().c_str());
        return 0;
    }
    if (options.version) {
        std::fputs(sim::versionText().c_str(), stdout);
        return 0;
    }
    if (options.help || options.lines) {
        std::fputs((options.help ? sim::optionsHelp() : sim::verbsHelp()).c_str(), stdout);
        return 0;
    }
    const sim::ProgramPaths programs = findPrograms(options);
    std::optional<sim::Scenario> scenario;
    if (!options.control) {
        scenario = readScenario(options.scenario, programs.client);
        if (!scenario) {
            return kWrongUsage;
        }
        if (options.check) {
            showComplaints(*scenario);
            return 0;
        }
    }
    const End end = play(options, std::move(scenario), programs);
    if (end.pipeClosed) {
        endByClosedPipe();
    }
    return end.status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(sim::readOptions({argv + 1, argv + argc}));
    } catch (const sim::UsageError& error) {
        std::fprintf(stderr, "corvid-sim: %s; see corvid-sim --help\n", error.what());
        return kWrongUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "corvid-sim: %s\n", error.what());
        return kFailed;
    }
}
