#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include "sim/EventLoop.h"

namespace sim {

/** A child process of the simulator; its output is delivered line by line. */
class Child {
  public:
    struct Command {
        std::string program;  ///< Path.
        std::vector<std::string> arguments;
        std::vector<std::pair<std::string, std::string>> environment;  ///< Added to our own.
    };
    /** `isError`: the line came on standard error. Lines come without their newline. */
    using OnLine = std::function<void(bool isError, const std::string& line)>;
    /** Called once, after the last line. It may destroy the Child. */
    using OnEnd = std::function<void(int waitStatus)>;

    /** Returns nothing, with the reason in `error`, when the program can't be started. */
    static std::unique_ptr<Child> start(EventLoop& loop, const Command& command, OnLine onLine,
                                        OnEnd onEnd, std::string& error);
    /** Kills the program if it still runs; no callback is made. */
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /** After SIGSTOP it runs no more when this returns. */
    void signal(int number) const;
    pid_t pid() const { return pid_; }

    /** "ended with status 0", "was killed by signal 9" */
    static std::string endText(int waitStatus);

  private:
    struct Pipe {
        android::base::unique_fd fd;
        std::string partial;
    };

    explicit Child(EventLoop& loop) : loop_(loop) {}
    void read(Pipe& pipe, bool isError);
    void onEnded();

    EventLoop& loop_;
    pid_t pid_ = -1;
    android::base::unique_fd pidFd_;
    Pipe out_;
    Pipe error_;
    OnLine onLine_;
    OnEnd onEnd_;
};

}  // namespace sim
