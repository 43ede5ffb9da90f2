// The daemon as a process: how long until it is attached, and what it takes while nothing happens.

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>

#include "Compare.h"
#include "Peer.h"
#include "tests/support/TempFolder.h"

namespace corvid::benchmarks {
namespace {

using test::TempFolder;

/** The daemon waits this long between finding a socket and its first attempt to connect. */
constexpr int kPrescribedWaitMs = 25;

std::string besideThisProgram(const char* name) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

const std::string& daemonPath() {
    static const std::string path = besideThisProgram("vendor.corvid.hardware.wifi@1.0-service");
    return path;
}

const std::string& bareMonitorPath() {
    static const std::string path = besideThisProgram("bare_monitor");
    return path;
}

const std::string& loadedMonitorPath() {
    static const std::string path = besideThisProgram("loaded_monitor");
    return path;
}

/** A program that runs for as long as this object lives. */
class Process {
  public:
    /** With `ownNetwork` it sees no network but a loopback interface that is down. */
    Process(const std::vector<std::string>& command, bool ownNetwork = false) {
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (const std::string& word : command) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            const int null = open("/dev/null", O_RDWR);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
            if (ownNetwork && unshare(CLONE_NEWNET) != 0) {
                unshare(CLONE_NEWUSER | CLONE_NEWNET);
            }
            execv(arguments[0], arguments.data());
            _exit(127);
        }
    }

    ~Process() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool alive() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

    /** The number behind "NAME:" in one of the process's files in /proc; kB stay kB. */
    long number(const char* file, const std::string& name) const {
        std::ifstream stream("/proc/" + std::to_string(pid_) + "/" + file);
        std::string line;
        while (std::getline(stream, line)) {
            if (line.compare(0, name.size() + 1, name + ":") == 0) {
                return strtol(line.c_str() + name.size() + 1, nullptr, 10);
            }
        }
        return -1;
    }

    /** How often its threads have gone to sleep, and been woken, so far. */
    long sleeps() const {
        long sum = 0;
        const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
        for (const auto& task : std::filesystem::directory_iterator(tasks)) {
            const std::string status = "task/" + task.path().filename().string() + "/status";
            sum += number(status.c_str(), "voluntary_ctxt_switches");
        }
        return sum;
    }

  private:
    pid_t pid_;
};

/** A folder that stands for the device's "/", with a supplicant's station socket in it. */
class Headset {
  public:
    Headset() {
        std::filesystem::create_directories(root_.file("dev/hwbinder"));
        std::filesystem::create_directories(sockets());
        setenv("CORVID_WIFI_ROOT", root_.path().c_str(), 1);
    }
    ~Headset() { unsetenv("CORVID_WIFI_ROOT"); }

    std::string sockets() const { return root_.file("data/vendor/wifi/wpa/sockets"); }
    std::string socket(const char* name) const { return sockets() + "/" + name; }

  private:
    TempFolder root_;
};

/** From before the fork to the arrival of the ATTACH. */
double startTime(Peer& peer, const std::vector<std::string>& command) {
    const double start = now(Clock::Wall);
    const Process process(command);
    peer.acceptMonitor();
    return now(Clock::Wall) - start;
}

void start(benchmark::State& state) {
    Rounds withWait;
    Rounds withoutWait;
    Rounds librariesAlone;
    {
        const Headset headset;
        Peer peer(headset.socket("wlan0"));
        const auto monitor = [&](const std::string& program, int waitMs) {
            return startTime(peer, {program, std::to_string(waitMs), headset.socket("wlan0")});
        };
        for ([[maybe_unused]] auto _ : state) {
            const double same = monitor(bareMonitorPath(), kPrescribedWaitMs);
            const double daemon = startTime(peer, {daemonPath()});
            const double none = monitor(bareMonitorPath(), 0);
            librariesAlone.add(monitor(loadedMonitorPath(), 0), none);
            withWait.add(state, daemon, same);
            withoutWait.add(daemon - kPrescribedWaitMs * 1e6, none);
        }
    }
    report(state, "Start to attached monitor / C program, 25 ms wait in both", withWait, 1, 2.00);
    report(state, "Start to attached monitor / C program, less the wait", withoutWait, 1,
           kNoTarget);
    report(state, "Start of the daemon's libraries alone / C program", librariesAlone, 1,
           kNoTarget);
}
BENCHMARK(start)->UseManualTime()->Unit(benchmark::kMillisecond);

void atRest(benchmark::State& state) {
    constexpr const char* kWakeUps = "At rest, wake-ups in 10 s";
    constexpr const char* kThreads = "At rest, threads";
    constexpr const char* kPss = "At rest, PSS / idle wpa_supplicant";
    constexpr const char* kAnonymous = "At rest, anonymous memory / bare C loop";
    constexpr const char* kLibraries = "At rest, anonymous memory of the libraries alone / C loop";
    constexpr const char* kSupplicant = "/usr/sbin/wpa_supplicant";
    const auto settle = std::chrono::milliseconds(smoke() ? 300 : 2000);
    const auto watch = std::chrono::seconds(smoke() ? 0 : 10);

    for ([[maybe_unused]] auto _ : state) {
        const Headset headset;
        Peer sta(headset.socket("wlan0"));
        Peer p2p(headset.socket("p2p-wlan0-0"));
        sta.serve();
        p2p.serve();
        const Process daemon({daemonPath()});
        const auto monitor = [&](const std::string& program) {
            return std::vector<std::string>{program, std::to_string(kPrescribedWaitMs),
                                            headset.socket("wlan0"), headset.socket("p2p-wlan0-0")};
        };
        const Process bare(monitor(bareMonitorPath()));
        const Process loaded(monitor(loadedMonitorPath()));
        const TempFolder control;
        const Process supplicant({kSupplicant, "-Dwired", "-ilo", "-C" + control.path()}, true);
        std::this_thread::sleep_for(settle);

        if (!daemon.alive() || !bare.alive() || !loaded.alive()) {
            reportMissing(state, kWakeUps, "the daemon or a C program does not run");
            return;
        }
        const long sleeps = daemon.sleeps();
        std::this_thread::sleep_for(watch);
        report(state, kWakeUps, static_cast<double>(daemon.sleeps() - sleeps), 0);
        report(state, kThreads, static_cast<double>(daemon.number("status", "Threads")), 2);

        const long pss = daemon.number("smaps_rollup", "Pss");
        const long bareAnonymous = bare.number("smaps_rollup", "Anonymous");
        const auto reportAnonymous = [&](const char* name, const Process& process, double max) {
            const long anonymous = process.number("smaps_rollup", "Anonymous");
            report(
                state, name, static_cast<double>(anonymous) / static_cast<double>(bareAnonymous),
                max,
                std::to_string(anonymous) + " kB against " + std::to_string(bareAnonymous) + " kB");
        };
        reportAnonymous(kAnonymous, daemon, 2.50);
        reportAnonymous(kLibraries, loaded, kNoTarget);
        if (!supplicant.alive() || supplicant.number("smaps_rollup", "Pss") <= 0) {
            reportMissing(state, kPss, std::string(kSupplicant) + " does not run here");
            return;
        }
        const long supplicantPss = supplicant.number("smaps_rollup", "Pss");
        report(state, kPss, static_cast<double>(pss) / static_cast<double>(supplicantPss), 0.25,
               std::to_string(pss) + " kB against " + std::to_string(supplicantPss) + " kB");
    }
}
BENCHMARK(atRest)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace corvid::benchmarks
