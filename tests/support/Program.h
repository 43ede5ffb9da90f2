#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <sys/types.h>

namespace test {

/**
 * A program that a test runs, with pipes as its standard input, output and error, and without the
 * signals that this process blocks or SIGPIPE ignored. The destructor kills it if it still runs. No
 * method waits longer than kPatience, which is reached only if the test fails. One thread.
 */
class Program {
  public:
    struct Options {
        /** Added to this process's environment, as NAME=VALUE. */
        std::vector<std::string> environment;
        /** Signals that the program starts with blocked or ignored, as a careless parent does. */
        std::vector<int> blockedSignals;
        std::vector<int> ignoredSignals;
    };

    /** `command` is the program's path, then its arguments. Aborts when it can't be started. */
    explicit Program(const std::vector<std::string>& command) : Program(command, Options()) {}
    Program(const std::vector<std::string>& command, const Options& options);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /** Writes a line, to which the newline is added, to its standard input. */
    void writeLine(const std::string& line);
    /** The next line of its standard output, without the newline; nothing at its end. */
    std::optional<std::string> readLine() { return readLine_(out_, outBuffer_); }
    /** The same of its standard error. */
    std::optional<std::string> readErrorLine() { return readLine_(error_, errorBuffer_); }
    /** All that is left of its standard output, up to its end. */
    std::string readOutput() { return readAll_(out_, outBuffer_); }
    /** All that is left of its standard error, up to its end. */
    std::string readError() { return readAll_(error_, errorBuffer_); }
    /** Lets go of the reading end of its standard output. */
    void closeOutput() { out_.reset(); }

    /** After SIGSTOP it runs no more when this returns. */
    void signal(int number) const;
    /**
     * Waits for its end: the exit status, or 128 and the signal that killed it as a shell says.
     * -1 when it does not end.
     */
    int wait();

    pid_t pid() const { return pid_; }

  private:
    std::optional<std::string> readLine_(const ::android::base::unique_fd& fd, std::string& buffer);
    std::string readAll_(const ::android::base::unique_fd& fd, std::string& buffer);
    /** Appends what comes next to `buffer`. False at the end, or when nothing comes. */
    bool readSome_(const ::android::base::unique_fd& fd, std::string& buffer);

    pid_t pid_ = -1;
    std::optional<int> status_;
    ::android::base::unique_fd in_;
    ::android::base::unique_fd out_;
    ::android::base::unique_fd error_;
    std::string outBuffer_;
    std::string errorBuffer_;
};

}  // namespace test
