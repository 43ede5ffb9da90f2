#include "tests/host/hidl/Programs.h"

#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

void Program::start(const std::string& name, const char* const* arguments) {
    const std::string path =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + "/" + name;
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (; *arguments != nullptr; ++arguments) {
        argv.push_back(const_cast<char*>(*arguments));
    }
    argv.push_back(nullptr);
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) {
        abort();
    }
    log_ = memfd_create("log", MFD_CLOEXEC);
    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(input, STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(log_, STDERR_FILENO);
        execv(path.c_str(), argv.data());
        _exit(127);
    }
    close(input);
    close(output[1]);
    output_ = output[0];
}

Program::~Program() {
    kill();
    EXPECT_EQ(std::string::npos, log().find("Sanitizer")) << log();
    close(output_);
    close(log_);
}

std::string Program::line() {
    std::string text;
    for (char c; read(output_, &c, 1) == 1 && c != '\n';) {
        text += c;
    }
    return text;
}

void Program::signal(int number) const {
    if (pid_ > 0) {
        ::kill(pid_, number);
    }
}

void Program::kill() {
    signal(SIGKILL);
    wait();
}

int Program::wait() {
    if (pid_ <= 0) {
        return 0;
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string Program::log() const {
    std::string text;
    char part[4096];
    for (ssize_t size;
         (size = pread(log_, part, sizeof(part), static_cast<off_t>(text.size()))) > 0;) {
        text.append(part, static_cast<size_t>(size));
    }
    return text;
}

bool Program::waitForLog(const std::string& text) const {
    return eventually([&] { return log().find(text) != std::string::npos; });
}

int Program::countInLog(const std::string& text) const {
    const std::string all = log();
    int count = 0;
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
        ++count;
    }
    return count;
}

long Program::status(const std::string& field) const {
    std::ifstream file("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0) {
            return std::atol(line.c_str() + field.size() + 1);
        }
    }
    return -1;
}

void pauseBriefly() {
    const timespec time{0, 2'000'000};
    nanosleep(&time, nullptr);
}

long long millisecondsNow() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}
