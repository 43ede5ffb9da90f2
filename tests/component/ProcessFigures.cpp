#include "tests/component/ProcessFigures.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace component {

namespace {

namespace fs = std::filesystem;

/** What stands behind `key` in a file of "key:\tvalue" lines; empty when there is none. */
std::string valueIn(const fs::path& file, const std::string& key) {
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(key, 0) == 0) {
            return line.substr(std::min(line.find_first_not_of(" \t", key.size()), line.size()));
        }
    }
    return "";
}

long numberIn(const fs::path& file, const std::string& key) {
    return std::strtol(valueIn(file, key).c_str(), nullptr, 10);
}

}  // namespace

ProcessFigures::ProcessFigures(pid_t pid) {
    const fs::path folder = fs::path("/proc") / std::to_string(pid);
    descriptors_ = static_cast<size_t>(
        std::distance(fs::directory_iterator(folder / "fd"), fs::directory_iterator()));
    anonymousKiB_ = numberIn(folder / "smaps_rollup", "Anonymous:");
    for (const auto& task : fs::directory_iterator(folder / "task")) {
        asleep_ = asleep_ && valueIn(task.path() / "status", "State:").rfind('S', 0) == 0;
        wakeUps_[std::stoi(task.path().filename())] =
            numberIn(task.path() / "status", "voluntary_ctxt_switches:");
    }
}

}  // namespace component
