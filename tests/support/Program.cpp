#include "tests/support/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <sys/syscall.h>
#include <sys/wait.h>

#include "tests/support/Patience.h"

namespace test {

using ::android::base::unique_fd;

namespace {

void require(bool condition, const char* what) {
    if (!condition) {
        std::perror(what);
        std::abort();
    }
}

/** A pipe that no program started later inherits by accident. */
void openPipe(unique_fd& readEnd, unique_fd& writeEnd) {
    int ends[2];
    require(::pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
}

/** Whether there is something to read, or the end of it, before patience ends. */
bool waitReadable(int fd) {
    pollfd entry = {fd, POLLIN, 0};
    const auto patience = std::chrono::milliseconds(kPatience).count();
    int ready = 0;
    do {
        ready = ::poll(&entry, 1, static_cast<int>(patience));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

/** Whether one of the NAME=VALUE texts has the name of `variable`, which is one, too. */
bool setsSameName(const std::vector<std::string>& variables, std::string_view variable) {
    const std::string_view name = variable.substr(0, variable.find('=') + 1);
    return std::any_of(variables.begin(), variables.end(), [&](const std::string& other) {
        return other.compare(0, name.size(), name) == 0;
    });
}

}  // namespace

Program::Program(const std::vector<std::string>& command, const Options& options) {
    unique_fd childIn;
    unique_fd childOut;
    unique_fd childError;
    openPipe(childIn, in_);
    openPipe(out_, childOut);
    openPipe(error_, childError);

    // Everything that allocates is done before fork: another thread may hold the heap's lock.
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    std::vector<char*> environment;
    environment.reserve(options.environment.size());
    for (const std::string& variable : options.environment) {
        environment.push_back(const_cast<char*>(variable.c_str()));
    }
    // Of a name that stands there twice, getenv finds the first and a shell keeps the last.
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (!setsSameName(options.environment, *variable)) {
            environment.push_back(*variable);
        }
    }
    environment.push_back(nullptr);
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int number : options.blockedSignals) {
        sigaddset(&blocked, number);
    }

    pid_ = ::fork();
    require(pid_ >= 0, "fork");
    if (pid_ == 0) {
        ::dup2(childIn.get(), STDIN_FILENO);
        ::dup2(childOut.get(), STDOUT_FILENO);
        ::dup2(childError.get(), STDERR_FILENO);
        ::signal(SIGPIPE, SIG_DFL);  // whoever runs the tests may ignore it
        for (const int number : options.ignoredSignals) {
            ::signal(number, SIG_IGN);
        }
        ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
        ::execve(arguments[0], arguments.data(), environment.data());
        ::_exit(127);
    }
}

Program::~Program() {
    if (!status_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

void Program::writeLine(const std::string& line) {
    const std::string text = line + "\n";
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t result =
            TEMP_FAILURE_RETRY(::write(in_.get(), text.data() + written, text.size() - written));
        require(result > 0, "write to a program");
        written += static_cast<size_t>(result);
    }
}

bool Program::readSome_(const unique_fd& fd, std::string& buffer) {
    if (fd.get() < 0 || !waitReadable(fd.get())) {
        return false;
    }
    char bytes[4096];
    const ssize_t result = TEMP_FAILURE_RETRY(::read(fd.get(), bytes, sizeof(bytes)));
    if (result <= 0) {
        return false;
    }
    buffer.append(bytes, static_cast<size_t>(result));
    return true;
}

std::optional<std::string> Program::readLine_(const unique_fd& fd, std::string& buffer) {
    size_t end = std::string::npos;
    while ((end = buffer.find('\n')) == std::string::npos) {
        if (!readSome_(fd, buffer)) {
            return std::nullopt;
        }
    }
    std::string line = buffer.substr(0, end);
    buffer.erase(0, end + 1);
    return line;
}

std::string Program::readAll_(const unique_fd& fd, std::string& buffer) {
    while (readSome_(fd, buffer)) {
    }
    return std::move(buffer);
}

void Program::signal(int number) const {
    require(::kill(pid_, number) == 0, "kill");
    if (number == SIGSTOP) {
        // Until all its threads have stopped, one of them may still handle what comes.
        siginfo_t end;
        require(TEMP_FAILURE_RETRY(::waitid(P_PID, static_cast<id_t>(pid_), &end,
                                            WSTOPPED | WEXITED | WNOWAIT)) == 0,
                "waitid");
    }
}

int Program::wait() {
    if (!status_) {
        const unique_fd pidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
        require(pidFd.get() >= 0, "pidfd_open");
        if (!waitReadable(pidFd.get())) {
            return -1;
        }
        int status = 0;
        require(::waitpid(pid_, &status, 0) == pid_, "waitpid");
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return *status_;
}

}  // namespace test
