// corvid-sim: the simulated headset. See README.md.

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include <android-base/unique_fd.h>
#include <sys/signalfd.h>

#include "sim/Control.h"
#include "sim/EventLoop.h"
#include "sim/Record.h"
#include "sim/Scenario.h"
#include "sim/ScenarioRun.h"
#include "sim/Simulation.h"
#include "sim/Timeline.h"
#include "sim/Verbs.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

constexpr const char* kUsage = R"(usage: corvid-sim [OPTION ...] SCENARIO
       corvid-sim [OPTION ...] --control

Plays the headset around the Wi-Fi daemon: supplicant, kernel side of nl80211, statistics service
and properties, from a file of timed lines (see sim/README.md) or from lines on standard input.

  --root DIR      folder that stands for the headset's / (default: $CORVID_WIFI_ROOT, else a
                  temporary folder that is removed at the end)
  --daemon PATH   start this daemon, show what it does, and its dump at the end
  --control       play lines from standard input at once, one JSON answer per line
  --check         only read the scenario: status 0 when all of it is understood
  --record FILE   write everything that happens as JSON lines
  --speed X       play the scenario's times X times as fast (the daemon's own times stay)
  --log LEVEL     show the daemon's log lines from this level on: V, D, I, W (default) or E
  --no-stats      do not start the statistics service
  --no-dump       no dump at the end
  --plain         no colours (default when standard output is no terminal)
  --lines         show what a line of a scenario can be
  --help

Exit status: 0 played; 1 a line failed, something expected did not happen, or the daemon ended;
2 wrong usage or a line that is not understood.
)";

struct Options {
    std::string root;
    std::string daemon;
    std::string record;
    std::string scenario;
    double speed = 1;
    char logLevel = 'W';
    bool control = false;
    bool check = false;
    bool stats = true;
    bool dump = true;
    bool plain = false;
};

[[noreturn]] void wrongUsage(const std::string& message) {
    std::fprintf(stderr, "corvid-sim: %s; see corvid-sim --help\n", message.c_str());
    std::exit(kWrongUsage);
}

Options readOptions(int argc, char** argv) {
    static const option kLong[] = {{"root", required_argument, nullptr, 'r'},
                                   {"daemon", required_argument, nullptr, 'd'},
                                   {"control", no_argument, nullptr, 'c'},
                                   {"check", no_argument, nullptr, 'k'},
                                   {"record", required_argument, nullptr, 'o'},
                                   {"speed", required_argument, nullptr, 's'},
                                   {"log", required_argument, nullptr, 'l'},
                                   {"no-stats", no_argument, nullptr, 'n'},
                                   {"no-dump", no_argument, nullptr, 'u'},
                                   {"plain", no_argument, nullptr, 'p'},
                                   {"lines", no_argument, nullptr, 'i'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    Options options;
    opterr = 0;
    int found = 0;
    while ((found = getopt_long(argc, argv, ":h", kLong, nullptr)) != -1) {
        switch (found) {
            case 'r':
                options.root = optarg;
                break;
            case 'd':
                options.daemon = optarg;
                break;
            case 'c':
                options.control = true;
                break;
            case 'k':
                options.check = true;
                break;
            case 'o':
                options.record = optarg;
                break;
            case 's': {
                char* stop = nullptr;
                options.speed = std::strtod(optarg, &stop);
                if (stop == optarg || *stop != '\0' || !(options.speed > 0)) {
                    wrongUsage(std::string("--speed takes a number above 0, not '") + optarg + "'");
                }
                break;
            }
            case 'l':
                options.logLevel = optarg[0];
                if (std::strlen(optarg) != 1 || std::strchr("VDIWE", optarg[0]) == nullptr) {
                    wrongUsage(std::string("--log takes V, D, I, W or E, not '") + optarg + "'");
                }
                break;
            case 'n':
                options.stats = false;
                break;
            case 'u':
                options.dump = false;
                break;
            case 'p':
                options.plain = true;
                break;
            case 'i':
                std::fputs(sim::verbsHelp().c_str(), stdout);
                std::exit(0);
            case 'h':
                std::fputs(kUsage, stdout);
                std::exit(0);
            case ':':
                wrongUsage(std::string(argv[optind - 1]) + " needs a value");
            default:
                wrongUsage(std::string("unknown option ") + argv[optind - 1]);
        }
    }
    if (options.control ? optind != argc : optind + 1 != argc) {
        wrongUsage(options.control ? "--control takes no scenario"
                                   : "exactly one scenario is needed");
    }
    if (!options.control) {
        options.scenario = argv[optind];
    }
    return options;
}

std::string ownFolder() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    return length > 0 ? fs::path(std::string(path, static_cast<size_t>(length))).parent_path()
                      : fs::path(".");
}

/** The programs beside this one. */
sim::ProgramPaths findPrograms(const Options& options) {
    const std::string bin = ownFolder();
    sim::ProgramPaths programs;
    programs.daemon = options.daemon;
    programs.stats = bin + "/corvid-statsd";
    programs.client = bin + "/corvid-wifi";
    for (const char* folder : {"/../lib/", "/"}) {
        const std::string library = bin + folder + "libnl80211-redirect.so";
        if (access(library.c_str(), R_OK) == 0) {
            programs.redirect = fs::canonical(library);
            break;
        }
    }
    return programs;
}

/** Puts the root into the environment, for ourselves and for every program that is started. */
class Root {
  public:
    explicit Root(const std::string& given) {
        const char* set = std::getenv("CORVID_WIFI_ROOT");
        path_ = !given.empty() ? given : set != nullptr ? set : "";
        if (path_.empty()) {
            char path[] = "/tmp/corvid-sim-XXXXXX";
            if (mkdtemp(path) == nullptr) {
                throw std::runtime_error(std::string("no temporary folder: ") +
                                         std::strerror(errno));
            }
            path_ = path;
            temporary_ = true;
        }
        path_ = fs::absolute(path_);
        setenv("CORVID_WIFI_ROOT", path_.c_str(), 1);
    }
    ~Root() {
        if (temporary_) {
            std::error_code ignored;
            fs::remove_all(path_, ignored);
        }
    }
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
    bool temporary_ = false;
};

std::optional<sim::Scenario> readScenario(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    if (!in.good() && !in.eof()) {
        std::fprintf(stderr, "corvid-sim: cannot read %s\n", path.c_str());
        return std::nullopt;
    }
    try {
        return sim::parseScenario(path, text);
    } catch (const sim::ScenarioError& error) {
        std::fprintf(stderr, "%s:%d: %s\n", path.c_str(), error.line, error.what());
        return std::nullopt;
    }
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

int run(const Options& options) {
    std::optional<sim::Scenario> scenario;
    if (!options.control) {
        scenario = readScenario(options.scenario);
        if (!scenario) {
            return kWrongUsage;
        }
        if (options.check) {
            return 0;
        }
    }

    const Root root(options.root);
    sim::EventLoop loop;
    sim::Recorder recorder;

    std::ofstream record;
    if (!options.record.empty()) {
        record.open(options.record, std::ios::trunc);
        if (!record) {
            wrongUsage("cannot write " + options.record);
        }
        recorder.addSink([&record](const sim::Record& r) { record << r.json() << std::endl; });
    }
    sim::Timeline timeline(!options.plain && isatty(STDOUT_FILENO), options.logLevel);
    if (options.control) {
        recorder.addSink([](const sim::Record& r) {
            std::puts(r.json().c_str());
            std::fflush(stdout);
        });
    } else {
        recorder.addSink([&timeline](const sim::Record& r) { timeline.print(r); });
    }

    int status = 0;
    const android::base::unique_fd signals = endSignals();
    loop.watch(signals.get(), [&] {
        status = kFailed;
        loop.stop();
    });

    sim::Simulation simulation(loop, recorder, findPrograms(options));
    std::unique_ptr<sim::Control> control;
    std::unique_ptr<sim::ScenarioRun> play;
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
        play = std::make_unique<sim::ScenarioRun>(loop, recorder, simulation, std::move(*scenario),
                                                  how, [&](bool failed) {
                                                      status = failed ? kFailed : 0;
                                                      loop.stop();
                                                  });
        // Inside the loop, so that an end at once ends it.
        loop.after({}, [&play] { play->start(); });
    }
    loop.run();
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(readOptions(argc, argv));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "corvid-sim: %s\n", error.what());
        return kFailed;
    }
}
