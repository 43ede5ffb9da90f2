#pragma once

#include <string>

/** A program of the build's bin folder, run beside the test and killed with it. */
class Program {
  public:
    /** Starts it. Its standard error is in log(), its standard output is read by line(). */
    template <typename... Arguments>
    explicit Program(const std::string& name, const Arguments&... arguments) {
        const char* texts[] = {arguments..., nullptr};
        start(name, texts);
    }
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /** The next line of its standard output without its end; empty when it has ended. */
    std::string line();

    /** Sends it a signal. */
    void signal(int number) const;
    /** kill -9, and waits for its end. */
    void kill();
    /** Waits for its end. @return the exit status, or minus the signal that ended it. */
    int wait();

    int pid() const { return pid_; }

    /** What it has written to standard error so far. */
    std::string log() const;
    /** Waits until its log contains `text`; false when it does not within 10 s. */
    bool waitForLog(const std::string& text) const;
    /** How often its log contains `text`. */
    int countInLog(const std::string& text) const;

    /** A field of its /proc/PID/status, for example "Threads". */
    long status(const std::string& field) const;

  private:
    void start(const std::string& name, const char* const* arguments);

    int pid_ = -1;
    int output_ = -1;
    int log_ = -1;
};

/** Waits until `condition` holds; false when it does not within 10 s. */
template <typename Condition>
bool eventually(const Condition& condition);

void pauseBriefly();
long long millisecondsNow();

template <typename Condition>
bool eventually(const Condition& condition) {
    for (const long long end = millisecondsNow() + 10000; !condition(); pauseBriefly()) {
        if (millisecondsNow() > end) {
            return false;
        }
    }
    return true;
}
