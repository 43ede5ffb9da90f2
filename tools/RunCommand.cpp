#include "tools/RunCommand.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>

#include <android-base/unique_fd.h>
#include <sys/wait.h>

namespace Ursa::OS::Wifi::Tools {

using ::android::base::unique_fd;
using Clock = std::chrono::steady_clock;

namespace {

/** execvp() failed. */
constexpr int kNotRun = 127;

/** In the new process. */
[[noreturn]] void become(const std::vector<char*>& words, int output) {
    setpgid(0, 0);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execvp(words.front(), words.data());
    _exit(kNotRun);
}

/** How long a process that was killed may take to go. */
constexpr std::chrono::seconds kUntilKilled{1};
constexpr std::chrono::milliseconds kBetweenLooks{10};

std::chrono::milliseconds leftUntil(Clock::time_point end) {
    return std::max(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()),
                    std::chrono::milliseconds(0));
}

bool isReadable(int fd, std::chrono::milliseconds limit) {
    pollfd waited = {fd, POLLIN, 0};
    return poll(&waited, 1, static_cast<int>(limit.count())) > 0;
}

constexpr const char* kInterrupted = "interrupted";

/** What ends a command before its time. */
struct Limits {
    std::chrono::milliseconds time;
    Clock::time_point end;
    int stopFd;

    std::string lateText() const {
        return "not ended within " + std::to_string((time.count() + 999) / 1000) + " s";
    }
};

/** Reads to the end, the limit or the size; says which it was, if not the end. */
std::string readAll(int fd, size_t size, const Limits& limits, std::string& output) {
    std::array<char, 16384> part{};
    while (true) {
        const auto left = leftUntil(limits.end);
        pollfd waited[] = {{fd, POLLIN, 0}, {limits.stopFd, POLLIN, 0}};
        if (left.count() == 0 || poll(waited, 2, static_cast<int>(left.count())) == 0) {
            return limits.lateText();
        }
        if (waited[1].revents != 0) {
            return kInterrupted;
        }
        if (waited[0].revents == 0) {
            continue;
        }
        const ssize_t count = read(fd, part.data(), part.size());
        if (count == 0) {
            return "";
        }
        if (count > 0) {
            const size_t room = size - output.size();
            output.append(part.data(), std::min(room, static_cast<size_t>(count)));
            if (static_cast<size_t>(count) > room) {
                return "cut at " + std::to_string(size) + " bytes";
            }
        }
    }
}

/** The status of a process that has ended by `end`; nothing if it has not, or is to stop. */
std::optional<int> statusBy(pid_t pid, Clock::time_point end, int stopFd) {
    while (true) {
        int status = 0;
        const pid_t ended = waitpid(pid, &status, WNOHANG);
        if (ended == pid) {
            return status;
        }
        if ((ended < 0 && errno != EINTR) || Clock::now() >= end ||
            isReadable(stopFd, kBetweenLooks)) {
            return std::nullopt;
        }
    }
}

}  // namespace

CommandResult runCommand(const std::vector<std::string>& words, size_t size,
                         std::chrono::milliseconds limit, int stopFd) {
    const Limits limits{limit, Clock::now() + limit, stopFd};
    CommandResult result;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {"", std::string("no pipe: ") + std::strerror(errno), false};
    }
    const unique_fd input(ends[0]);
    unique_fd output(ends[1]);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        return {"", std::string("no process: ") + std::strerror(errno), false};
    }
    if (pid == 0) {
        become(arguments, output.get());
    }
    output.reset();
    result.failure = readAll(input.get(), size, limits, result.output);
    std::optional<int> ended;
    if (result.failure.empty()) {
        // It may have closed its outputs and still run.
        ended = statusBy(pid, limits.end, stopFd);
        if (!ended) {
            result.failure = isReadable(stopFd, {}) ? kInterrupted : limits.lateText();
        }
    }
    if (!ended) {
        // With what it started.
        kill(-pid, SIGKILL);
        kill(pid, SIGKILL);
        ended = statusBy(pid, Clock::now() + kUntilKilled, -1);
        result.failure += ended ? "" : ", and it could not be killed";
    }
    const int status = ended.value_or(0);
    if (result.failure.empty() && WIFEXITED(status) && WEXITSTATUS(status) == kNotRun) {
        result.failure = "there is no " + words.front() + " here";
        result.isMissing = true;
    } else if (result.failure.empty() && status != 0) {
        result.failure = WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                                           : "killed by signal " + std::to_string(WTERMSIG(status));
    }
    return result;
}

}  // namespace Ursa::OS::Wifi::Tools
