#pragma once

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include <sys/syscall.h>
#include <sys/types.h>

namespace test {

/** The system call in which pause() waits. Not every processor has one of that name. */
#ifdef SYS_pause
constexpr long kPauseCall = SYS_pause;
#else
constexpr long kPauseCall = SYS_ppoll;
#endif

namespace details {

/** What /proc/self/task/THREAD/FILE begins with, a number; -1 without one. */
inline long firstNumberOf(pid_t thread, const std::string& file) {
    long number = -1;
    std::ifstream("/proc/self/task/" + std::to_string(thread) + "/" + file) >> number;
    return number;
}

/** "S 12 3": whether the thread sleeps, and how often it has begun to. */
inline std::string sleepOf(pid_t thread) {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    std::string sleep;
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("State:\t", 0) == 0) {
            sleep = line.substr(7, 1);
        } else if (line.find("ctxt_switches:") != std::string::npos) {
            sleep += line.substr(line.find('\t'));
        }
    }
    return sleep;
}

}  // namespace details

/**
 * Whether a thread of this process waits in the system call of that number. An emulator of another
 * processor makes system calls of its own, of which only that the thread sleeps can be told.
 */
inline bool waitsIn(pid_t thread, long systemCall) {
    // The thread that reads its own is reading.
    if (details::firstNumberOf(gettid(), "syscall") == SYS_read) {
        return details::firstNumberOf(thread, "syscall") == systemCall;
    }
    const std::string before = details::sleepOf(thread);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return before.rfind('S', 0) == 0 && details::sleepOf(thread) == before;
}

}  // namespace test
