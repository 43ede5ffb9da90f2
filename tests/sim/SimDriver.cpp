#include "tests/sim/SimDriver.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include "sim/Record.h"

namespace simtest {

namespace {

/** Both ends of a terminal: ours, and the program's. */
bool openTerminal(int (&ends)[2]) {
    ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (ends[0] < 0 || grantpt(ends[0]) != 0 || unlockpt(ends[0]) != 0) {
        return false;
    }
    ends[1] = open(ptsname(ends[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
    return ends[1] >= 0;
}

/** Starts corvid-sim; its ends of the pipes come in `input` (unless null) and `output`. */
pid_t startSim(const std::vector<std::string>& arguments, int* input, int* output,
               const Surroundings& surroundings = {}) {
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    if ((input != nullptr && pipe2(in, O_CLOEXEC) != 0) ||
        !(surroundings.terminal ? openTerminal(out) : pipe2(out, O_CLOEXEC) == 0)) {
        throw std::runtime_error("no pipe");
    }
    std::vector<char*> words{const_cast<char*>(CORVID_SIM_PATH)};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(input != nullptr ? in[0] : open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        if (input == nullptr) {
            dup2(out[1], STDERR_FILENO);
        }
        for (const auto& [name, value] : surroundings.environment) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        execv(CORVID_SIM_PATH, words.data());
        _exit(127);
    }
    close(out[1]);
    *output = out[0];
    if (input != nullptr) {
        close(in[0]);
        *input = in[1];
    }
    return pid;
}

int exitStatus(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

std::optional<SimRecord> SimRecord::parse(std::string_view line) {
    const sim::Json json = sim::Json::parse(line, nullptr, false);
    if (!json.is_object()) {
        return std::nullopt;
    }
    SimRecord record;
    for (const auto& [name, value] : json.items()) {
        record.members_[name] = sim::bytesOf(value);
    }
    return record;
}

std::string SimRecord::operator[](const std::string& name) const {
    const auto member = members_.find(name);
    return member == members_.end() ? "" : member->second;
}

double SimRecord::t() const { return std::strtod((*this)["t"].c_str(), nullptr); }

TempFolder::TempFolder() {
    char path[] = "/tmp/corvid-test-XXXXXX";
    if (mkdtemp(path) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    path_ = path;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

SimDriver::SimDriver(const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"--control", "--root", folder_.path()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    pid_ = startSim(arguments, &input_, &output_);
    reader_ = std::thread([this] { read(); });
    if (!waitFor([](const SimRecord& record) { return record.kind() == "ready"; })) {
        finish();
        reader_.join();
        throw std::runtime_error("corvid-sim is not ready");
    }
}

SimDriver::~SimDriver() {
    finish();
    reader_.join();
    close(output_);
}

void SimDriver::read() {
    std::string unread;
    char buffer[65536];
    ssize_t length = 0;
    while ((length = ::read(output_, buffer, sizeof(buffer))) > 0) {
        unread.append(buffer, static_cast<size_t>(length));
        const std::lock_guard<std::mutex> lock(mutex_);
        size_t begin = 0;
        for (size_t end = 0; (end = unread.find('\n', begin)) != std::string::npos;) {
            if (auto record =
                    SimRecord::parse(std::string_view(unread).substr(begin, end - begin))) {
                records_.push_back(std::move(*record));
            }
            begin = end + 1;
        }
        unread.erase(0, begin);
        arrived_.notify_all();
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    arrived_.notify_all();
}

std::string SimDriver::play(const std::string& line) {
    const std::string number = std::to_string(++line_);
    const std::string bytes = line + "\n";
    if (write(input_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        return "corvid-sim does not take lines";
    }
    const auto answer = waitFor(
        [&](const SimRecord& record) {
            return (record.kind() == "ok" || record.kind() == "error") && record["line"] == number;
        },
        std::chrono::minutes(2));
    if (!answer) {
        return "corvid-sim did not answer";
    }
    return answer->kind() == "ok" ? "" : answer->text();
}

std::vector<SimRecord> SimDriver::records() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

std::vector<SimRecord> SimDriver::records(const std::string& kind) {
    std::vector<SimRecord> found = records();
    found.erase(std::remove_if(found.begin(), found.end(),
                               [&](const SimRecord& record) { return record.kind() != kind; }),
                found.end());
    return found;
}

std::optional<SimRecord> SimDriver::waitFor(const Matches& matches,
                                            std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock<std::mutex> lock(mutex_);
    for (size_t next = 0;;) {
        for (; next < records_.size(); ++next) {
            if (matches(records_[next])) {
                return records_[next];
            }
        }
        if (ended_ || arrived_.wait_until(lock, deadline) == std::cv_status::timeout) {
            return std::nullopt;
        }
    }
}

void SimDriver::forget() {
    const std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
}

int SimDriver::finish() {
    if (input_ >= 0) {
        close(std::exchange(input_, -1));
    }
    return pid_ > 0 ? exitStatus(std::exchange(pid_, -1)) : 0;
}

int runSim(const std::vector<std::string>& arguments, std::string& output,
           const Surroundings& surroundings) {
    int pipe = -1;
    const pid_t pid = startSim(arguments, nullptr, &pipe, surroundings);
    output.clear();
    char buffer[4096];
    ssize_t length = 0;
    // A terminal whose program has ended reads as an error.
    while ((length = read(pipe, buffer, sizeof(buffer))) > 0) {
        output.append(buffer, static_cast<size_t>(length));
        if (std::count(output.begin(), output.end(), '\n') == surroundings.closeAfterLines) {
            break;
        }
    }
    close(pipe);
    return exitStatus(pid);
}

}  // namespace simtest
