#include "tests/component/ProcessFigures.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace component {

namespace {

namespace fs = std::filesystem;

/** The number behind `key` in a file of "key: number" lines; 0 when there is none. */
long numberIn(const fs::path& file, const std::string& key) {
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(key, 0) == 0) {
            return std::strtol(line.c_str() + key.size(), nullptr, 10);
        }
    }
    return 0;
}

}  // namespace

ProcessFigures::ProcessFigures(pid_t pid) {
    const fs::path folder = fs::path("/proc") / std::to_string(pid);
    descriptors_ = static_cast<size_t>(
        std::distance(fs::directory_iterator(folder / "fd"), fs::directory_iterator()));
    anonymousKiB_ = numberIn(folder / "smaps_rollup", "Anonymous:");
    for (const auto& task : fs::directory_iterator(folder / "task")) {
        wakeUps_[std::stoi(task.path().filename())] =
            numberIn(task.path() / "status", "voluntary_ctxt_switches:");
    }
}

}  // namespace component
