#include "tools/RunCommand.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

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

std::string secondsText(std::chrono::milliseconds time) {
    return std::to_string((time.count() + 999) / 1000) + " s";
}

/** Reads to the end, the limit or the size; says which it was, if not the end. */
std::string readAll(int fd, size_t size, std::chrono::milliseconds limit, std::string& output) {
    const auto end = Clock::now() + limit;
    std::array<char, 16384> part{};
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd waited = {fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&waited, 1, static_cast<int>(left.count())) == 0) {
            return "not ended within " + secondsText(limit);
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

}  // namespace

CommandResult runCommand(const std::vector<std::string>& words, size_t size,
                         std::chrono::milliseconds limit) {
    CommandResult result;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {"", std::string("no pipe: ") + std::strerror(errno)};
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
        return {"", std::string("no process: ") + std::strerror(errno)};
    }
    if (pid == 0) {
        become(arguments, output.get());
    }
    output.reset();
    result.failure = readAll(input.get(), size, limit, result.output);
    // With what it started; nothing is left to be killed if it ended.
    if (!result.failure.empty()) {
        kill(-pid, SIGKILL);
        kill(pid, SIGKILL);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (result.failure.empty() && WIFEXITED(status) && WEXITSTATUS(status) == kNotRun) {
        result.failure = "there is no " + words.front() + " here";
    } else if (result.failure.empty() && status != 0) {
        result.failure = WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                                           : "killed by signal " + std::to_string(WTERMSIG(status));
    }
    return result;
}

}  // namespace Ursa::OS::Wifi::Tools
