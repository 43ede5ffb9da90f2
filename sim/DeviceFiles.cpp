#include "sim/DeviceFiles.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <sys/inotify.h>

#include "host/root/HostRoot.h"

namespace sim {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSocketFolder = "/data/vendor/wifi/wpa/sockets/";
constexpr std::string_view kHwbinderFolder = "/dev/hwbinder";
constexpr std::string_view kPropertyFolder = "/dev/__properties__/";
constexpr std::string_view kStatsFolder = "/data/misc/stats/";
constexpr std::string_view kSensorFolder = "/data/vendor/sensors/";
constexpr std::array<const char*, 3> kSensorFiles = {"controller_blocklist", "camera_clock",
                                                     "transport_error_action"};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/** The lines of a state file in one: "5170 5250, 2400 2412". */
std::string oneLine(std::string text) {
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    std::string out;
    for (const char c : text) {
        out += c == '\n' ? std::string(", ") : std::string(1, c);
    }
    return out.empty() ? "empty" : out;
}

}  // namespace

DeviceFiles::DeviceFiles(EventLoop& loop, Recorder& recorder) : loop_(loop), recorder_(recorder) {
    for (const std::string_view folder : folders()) {
        std::error_code error;
        fs::create_directories(host::rootedPath(folder), error);
        if (error) {
            throw std::runtime_error("cannot create " + host::rootedPath(folder) + ": " +
                                     error.message());
        }
    }
    inotify_.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    follow(host::rootedPath(kStatsFolder));
    follow(host::rootedPath(kSensorFolder));
    atomsRead_ = readFile(host::rootedPath(std::string(kStatsFolder) + "atoms.jsonl")).size();
    for (const char* name : kSensorFiles) {
        sensorFiles_[name] = readFile(host::rootedPath(std::string(kSensorFolder) + name));
    }
    loop_.watch(inotify_.get(), [this] { onNotified(); });
}

DeviceFiles::~DeviceFiles() { loop_.forget(inotify_.get()); }

std::vector<std::string_view> DeviceFiles::folders() {
    return {kSocketFolder, kHwbinderFolder, kPropertyFolder, kStatsFolder, kSensorFolder};
}

std::string DeviceFiles::socketFolder() { return host::rootedPath(kSocketFolder); }
std::string DeviceFiles::nl80211Path() { return host::rootedPath("/dev/nl80211"); }

void DeviceFiles::follow(const std::string& folder) {
    if (inotify_add_watch(inotify_.get(), folder.c_str(),
                          IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE) < 0) {
        throw std::runtime_error("cannot watch " + folder + ": " + std::strerror(errno));
    }
}

std::string DeviceFiles::setProperty(const std::string& name,
                                     const std::optional<std::string>& value) {
    const std::string folder = host::rootedPath(kPropertyFolder);
    const std::string file = folder + name;
    if (!value) {
        return unlink(file.c_str()) == 0 || errno == ENOENT
                   ? ""
                   : "cannot remove " + file + ": " + std::strerror(errno);
    }
    const std::string temporary = folder + "." + name + "." + std::to_string(getpid());
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << *value;
    out.close();
    if (!out || std::rename(temporary.c_str(), file.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        unlink(temporary.c_str());
        return "cannot write " + file + ": " + reason;
    }
    return "";
}

std::string DeviceFiles::changeFolder(Folder which, bool create) {
    const std::string folder =
        host::rootedPath(which == Folder::Sockets ? kSocketFolder : kHwbinderFolder);
    std::error_code error;
    if (create) {
        fs::create_directories(folder, error);
    } else {
        fs::remove_all(folder, error);
    }
    return error ? folder + ": " + error.message() : "";
}

void DeviceFiles::catchUp() {
    readAtoms();
    readSensors();
}

void DeviceFiles::onNotified() {
    alignas(inotify_event) char buffer[4096];
    while (read(inotify_.get(), buffer, sizeof(buffer)) > 0) {
    }
    catchUp();
}

void DeviceFiles::readAtoms() {
    std::ifstream in(host::rootedPath(std::string(kStatsFolder) + "atoms.jsonl"), std::ios::binary);
    in.seekg(static_cast<std::streamoff>(atomsRead_));
    std::string line;
    while (std::getline(in, line) && !in.eof()) {
        atomsRead_ += line.size() + 1;
        Record record("atom", line);
        // Each line is one JSON object; anything else is recorded as text only.
        if (const Json atom = Json::parse(line, nullptr, false); atom.is_object()) {
            record.withJson("atom", atom);
        }
        recorder_.add(std::move(record));
    }
}

void DeviceFiles::readSensors() {
    for (const char* name : kSensorFiles) {
        const std::string now = readFile(host::rootedPath(std::string(kSensorFolder) + name));
        std::string& before = sensorFiles_[name];
        if (now == before) {
            continue;
        }
        // The clock file only grows: the lines added are recorded.
        const bool grown = !before.empty() && now.compare(0, before.size(), before) == 0 &&
                           std::string_view(name) == "camera_clock";
        recorder_.add(Record("sensors", name + std::string(": ") +
                                            oneLine(grown ? now.substr(before.size()) : now)));
        before = now;
    }
}

}  // namespace sim
