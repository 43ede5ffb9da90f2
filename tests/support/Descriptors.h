#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include <sys/resource.h>

namespace test {

/** How many entries a folder has, "." and ".." not counted. */
inline int countEntries(const char* folder) {
    DIR* directory = opendir(folder);
    int count = -2;
    while (readdir(directory) != nullptr) {
        ++count;
    }
    closedir(directory);
    return count;
}

/** This process's open descriptors. */
inline int openDescriptors() { return countEntries("/proc/self/fd") - 1; }  // less the folder's own

/** This process's threads. */
inline int runningThreads() {
    // ThreadSanitizer starts a thread of its own together with the program's first one: a count
    // taken before that would be one too low for every later one.
    [[maybe_unused]] static const bool begun = [] {
        std::atomic<pid_t> first{0};
        std::thread([&first] { first = gettid(); }).join();
        while (access(("/proc/self/task/" + std::to_string(first)).c_str(), F_OK) == 0) {
            std::this_thread::yield();
        }
        return true;
    }();
    return countEntries("/proc/self/task");
}

/** While it lives, the process can open `spare` more descriptors and no more. */
class DescriptorLimit {
  public:
    explicit DescriptorLimit(int spare) {
        getrlimit(RLIMIT_NOFILE, &before_);
        // The limit bounds the numbers, not their count: fill the gaps first.
        const int top = highest_();
        int filler;
        while ((filler = open("/dev/null", O_RDONLY | O_CLOEXEC)) < top) {
            fillers_[fillerCount_++] = filler;
        }
        close(filler);
        rlimit limit = before_;
        limit.rlim_cur = static_cast<rlim_t>(filler + spare);
        setrlimit(RLIMIT_NOFILE, &limit);
    }

    ~DescriptorLimit() {
        setrlimit(RLIMIT_NOFILE, &before_);
        for (int i = 0; i < fillerCount_; ++i) {
            close(fillers_[i]);
        }
    }

    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

  private:
    static int highest_() {
        int highest = 0;
        DIR* directory = opendir("/proc/self/fd");
        while (const dirent* entry = readdir(directory)) {
            const int fd = atoi(entry->d_name);
            if (fd != dirfd(directory)) {
                highest = std::max(highest, fd);
            }
        }
        closedir(directory);
        return highest;
    }

    rlimit before_ = {};
    int fillers_[1024] = {};
    int fillerCount_ = 0;
};

}  // namespace test
