#include "service/ProcessFigures.h"

#include <dirent.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>

#include <sys/resource.h>

namespace Ursa::OS::Wifi {

namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

/** The entries of a folder of /proc whose names are numbers. */
std::vector<int> numbersIn(const char* path) {
    std::vector<int> numbers;
    const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(path));
    while (const dirent* entry = directory == nullptr ? nullptr : readdir(directory.get())) {
        if (entry->d_name[0] != '.') {
            numbers.push_back(atoi(entry->d_name));
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

}  // namespace

ProcessFigures ProcessFigures::read() {
    ProcessFigures figures;
    for (const int id : numbersIn("/proc/self/task")) {
        Thread thread = {id, {}};
        std::getline(std::ifstream("/proc/self/task/" + std::to_string(id) + "/comm"), thread.name);
        figures.threads.push_back(std::move(thread));
    }
    // Without the descriptor that reading the folder takes.
    figures.descriptors = std::max(static_cast<int>(numbersIn("/proc/self/fd").size()) - 1, 0);
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        figures.descriptorLimit = static_cast<long>(limit.rlim_cur);
    }
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        const auto valueOf = [&](const char* name) {
            return line.rfind(name, 0) == 0 ? atol(line.c_str() + line.find(':') + 1) : 0;
        };
        figures.residentKb += valueOf("VmRSS:");
        figures.anonymousKb += valueOf("RssAnon:");
    }
    return figures;
}

}  // namespace Ursa::OS::Wifi
