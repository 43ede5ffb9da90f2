#include "sim/Programs.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <utility>

#include <nlohmann/json.hpp>
#include <sys/wait.h>

namespace sim {

namespace {

/** corvid-wifi's status for words that it does not take. */
constexpr int kWrongUsage = 2;

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words) {
        out.append(out.empty() ? "" : " ").append(word);
    }
    return out;
}

void finish(std::vector<Done>& waiting) {
    const std::vector<Done> now = std::exchange(waiting, {});
    for (const Done& done : now) {
        done("");
    }
}

std::string baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

struct Programs::RunningCall {
    std::unique_ptr<Child> child;
    std::string output;
    std::string errors;
};

Programs::Programs(EventLoop& loop, Recorder& recorder, DeviceFiles& files, ProgramPaths paths)
    : loop_(loop), recorder_(recorder), files_(files), paths_(std::move(paths)) {}

Programs::~Programs() = default;

void Programs::startStats(Done done) {
    if (stats_) {
        done("the statistics service runs already");
        return;
    }
    statsReady_ = std::move(done);
    const auto onLine = [this](bool isError, const std::string& line) {
        if (!isError && line == "ready" && statsReady_) {
            recorder_.add(Record("program", "corvid-statsd is ready"));
            std::exchange(statsReady_, nullptr)("");
        } else if (isError) {
            recorder_.add(Record("output", line).with("program", "corvid-statsd"));
        }
    };
    const auto onEnd = [this](int status) {
        const std::string text = "corvid-statsd " + Child::endText(status);
        stats_.reset();
        recorder_.add(Record("program", text));
        if (statsReady_) {
            std::exchange(statsReady_, nullptr)(text);
        }
        finish(onStatsEnd_);
    };
    std::string error;
    stats_ = Child::start(loop_, {paths_.stats, {}, {}}, onLine, onEnd, error);
    if (!stats_) {
        std::exchange(statsReady_, nullptr)(error);
    }
}

void Programs::endStats(int signal, Done done) {
    if (!stats_) {
        done("the statistics service does not run");
        return;
    }
    onStatsEnd_.push_back(std::move(done));
    stats_->signal(signal);
}

void Programs::startDaemon(const Done& done) {
    if (daemon_) {
        done("the daemon runs already");
        return;
    }
    if (paths_.daemon.empty()) {
        done("no daemon was given: start with --daemon PATH");
        return;
    }
    Child::Command command{paths_.daemon, {}, {{"ANDROID_LOG_TAGS", paths_.logTags}}};
    std::string preloaded = paths_.redirect;
    if (paths_.speed != 1) {
        preloaded += " " + paths_.pace;
        command.environment.emplace_back("CORVID_SIM_SPEED", std::to_string(paths_.speed));
    }
    if (!preloaded.empty()) {
        command.environment.emplace_back("LD_PRELOAD", preloaded);
    }
    const auto onLine = [this](bool isError, const std::string& line) {
        onDaemonLine(isError, line);
    };
    const auto onEnd = [this](int status) {
        const std::string text = "the daemon " + Child::endText(status);
        daemon_.reset();
        files_.catchUp();
        recorder_.add(Record("program", text));
        if (!std::exchange(daemonEndWanted_, false) && onDaemonLost_) {
            onDaemonLost_(text);
        }
        finish(onDaemonEnd_);
    };
    std::string error;
    daemon_ = Child::start(loop_, command, onLine, onEnd, error);
    if (daemon_) {
        recorder_.add(Record("program", "the daemon was started").with("pid", daemon_->pid()));
    }
    done(error);
}

void Programs::signalDaemon(int signal, Done done) {
    if (!daemon_) {
        done("the daemon does not run");
        return;
    }
    const bool ends = signal == SIGTERM || signal == SIGKILL;
    daemonEndWanted_ = daemonEndWanted_ || ends;
    daemon_->signal(signal);
    if (ends) {
        onDaemonEnd_.push_back(std::move(done));
    } else {
        done("");
    }
}

/** A line as liblog prints it: "CorvidWifi I 11-21 09:43:52  1234  1235 StaManager: hello". */
void Programs::onDaemonLine(bool isError, const std::string& line) {
    char tag[64];
    char level = 0;
    int message = 0;
    if (std::sscanf(line.c_str(), "%63s %c %*d-%*d %*d:%*d:%*d %*d %*d %n", tag, &level,
                    &message) == 2 &&
        message > 0) {
        logTag_ = tag;
        logLevel_.assign(1, level);
    } else if (!isError || logLevel_.empty()) {
        recorder_.add(Record("output", line).with("program", baseName(paths_.daemon)));
        return;
    }
    const std::string text = line.substr(static_cast<size_t>(message));
    if (!text.empty()) {
        recorder_.add(Record("log", text).with("level", logLevel_).with("tag", logTag_));
    }
}

void Programs::startMonitor(const Done& done) {
    if (monitor_) {
        done("the monitor runs already");
        return;
    }
    const auto onLine = [this](bool isError, const std::string& line) {
        Record record(isError ? "output" : "callback", line);
        if (isError) {
            record.with("program", "corvid-wifi");
        } else if (const Json callback = Json::parse(line, nullptr, false); callback.is_object()) {
            record.withJson("callback", callback);
        }
        recorder_.add(std::move(record));
    };
    const auto onEnd = [this](int status) {
        monitor_.reset();
        recorder_.add(Record("program", "corvid-wifi monitor " + Child::endText(status)));
        finish(onMonitorEnd_);
    };
    std::string error;
    monitor_ = Child::start(loop_, {paths_.client, {"monitor"}, {}}, onLine, onEnd, error);
    done(error);
}

void Programs::stopMonitor(Done done) {
    if (!monitor_) {
        done("the monitor does not run");
        return;
    }
    onMonitorEnd_.push_back(std::move(done));
    monitor_->signal(SIGTERM);
}

std::string Programs::signalMonitor(int signal) const {
    if (!monitor_) {
        return "the monitor does not run";
    }
    monitor_->signal(signal);
    return "";
}

void Programs::runClient(const std::vector<std::string>& arguments, const Done& done) {
    auto call = std::make_unique<RunningCall>();
    RunningCall* running = call.get();
    const std::string words = joined(arguments);
    const auto onLine = [running](bool isError, const std::string& line) {
        std::string& text = isError ? running->errors : running->output;
        text += (text.empty() ? "" : "\n") + line;
    };
    const auto onEnd = [this, running, words, done](int status) {
        const bool both = !running->output.empty() && !running->errors.empty();
        Record record("call",
                      words + " -> " + running->output + (both ? "\n" : "") + running->errors);
        record.with("arguments", words)
            .with("output", running->output)
            .with("status", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        if (!running->errors.empty()) {
            record.with("errors", running->errors);
        }
        recorder_.add(record);
        const bool wrong = WIFEXITED(status) && WEXITSTATUS(status) == kWrongUsage;
        const std::string error =
            wrong ? running->errors.substr(0, running->errors.find('\n')) : "";
        calls_.erase(std::find_if(calls_.begin(), calls_.end(),
                                  [running](const auto& c) { return c.get() == running; }));
        done(error);
    };
    std::string error;
    call->child = Child::start(loop_, {paths_.client, arguments, {}}, onLine, onEnd, error);
    if (!call->child) {
        done(error);
        return;
    }
    calls_.push_back(std::move(call));
}

}  // namespace sim
