#include "sim/Child.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace sim {

namespace {

bool makePipe(android::base::unique_fd& readEnd, android::base::unique_fd& writeEnd) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    readEnd.reset(fds[0]);
    writeEnd.reset(fds[1]);
    return fcntl(fds[0], F_SETFL, O_NONBLOCK) == 0;
}

/** In the new process: becomes the program, or ends with status 127. */
[[noreturn]] void become(const Child::Command& command, int out, int error, pid_t parent) {
    // The program must not outlive the simulator, however that ends.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(127);
    }
    // Ctrl-C is for the simulator, which then ends its children in order.
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(null, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(error, STDERR_FILENO);
    for (const auto& [name, value] : command.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> arguments{const_cast<char*>(command.program.c_str())};
    for (const std::string& argument : command.arguments) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execv(command.program.c_str(), arguments.data());
    _exit(127);
}

}  // namespace

std::unique_ptr<Child> Child::start(EventLoop& loop, const Command& command, OnLine onLine,
                                    OnEnd onEnd, std::string& error) {
    if (access(command.program.c_str(), X_OK) != 0) {
        error = command.program + " can't be run: " + std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<Child> child(new Child(loop));
    android::base::unique_fd out;
    android::base::unique_fd errorOut;
    if (!makePipe(child->out_.fd, out) || !makePipe(child->error_.fd, errorOut)) {
        error = std::string("no pipe: ") + std::strerror(errno);
        return nullptr;
    }
    const pid_t parent = getpid();
    child->pid_ = fork();
    if (child->pid_ == 0) {
        become(command, out.get(), errorOut.get(), parent);
    }
    if (child->pid_ > 0) {
        // By hand: the header of Debian 12's glibc declares pidfd_open() for C only.
        child->pidFd_.reset(static_cast<int>(syscall(SYS_pidfd_open, child->pid_, 0)));
    }
    if (child->pid_ < 0 || !child->pidFd_.ok()) {
        error = "no process for " + command.program + ": " + std::strerror(errno);
        return nullptr;
    }
    child->onLine_ = std::move(onLine);
    child->onEnd_ = std::move(onEnd);
    Child* self = child.get();
    loop.watch(child->out_.fd.get(), [self] { self->read(self->out_, false); });
    loop.watch(child->error_.fd.get(), [self] { self->read(self->error_, true); });
    loop.watch(child->pidFd_.get(), [self] { self->onEnded(); });
    return child;
}

Child::~Child() {
    for (const int fd : {out_.fd.get(), error_.fd.get(), pidFd_.get()}) {
        loop_.forget(fd);
    }
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

void Child::signal(int number) const {
    if (pid_ > 0 && kill(pid_, number) == 0 && number == SIGSTOP) {
        // Until all its threads have stopped, one of them may still handle what comes.
        siginfo_t end;
        TEMP_FAILURE_RETRY(
            waitid(P_PID, static_cast<id_t>(pid_), &end, WSTOPPED | WEXITED | WNOWAIT));
    }
}

void Child::read(Pipe& pipe, bool isError) {
    char buffer[16384];
    ssize_t length = 0;
    while ((length = ::read(pipe.fd.get(), buffer, sizeof(buffer))) > 0) {
        pipe.partial.append(buffer, static_cast<size_t>(length));
        for (size_t end = 0; (end = pipe.partial.find('\n')) != std::string::npos;) {
            const std::string line = pipe.partial.substr(0, end);
            pipe.partial.erase(0, end + 1);
            onLine_(isError, line);
        }
    }
    if (length == 0) {
        loop_.forget(pipe.fd.get());
    }
}

void Child::onEnded() {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) {
        return;
    }
    pid_ = -1;
    loop_.forget(pidFd_.get());
    read(out_, false);
    read(error_, true);
    for (const bool isError : {false, true}) {
        Pipe& pipe = isError ? error_ : out_;
        loop_.forget(pipe.fd.get());
        if (!pipe.partial.empty()) {
            onLine_(isError, std::exchange(pipe.partial, ""));
        }
    }
    const OnEnd onEnd = std::move(onEnd_);
    onEnd(status);
}

std::string Child::endText(int waitStatus) {
    if (WIFSIGNALED(waitStatus)) {
        return "was killed by signal " + std::to_string(WTERMSIG(waitStatus));
    }
    return "ended with status " + std::to_string(WEXITSTATUS(waitStatus));
}

}  // namespace sim
