#include "tools/BugReport.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "tools/Anonymizer.h"
#include "tools/Json.h"
#include "tools/Methods.h"
#include "tools/Print.h"
#include "tools/RunCommand.h"
#include "tools/StopSignals.h"
#include "tools/WakeFd.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

using std::chrono::seconds;
namespace fs = std::filesystem;

constexpr size_t kSmall = 200'000;
constexpr size_t kLarge = 1'000'000;
constexpr seconds kOwnLimit{4};
constexpr seconds kToolLimit{3};
constexpr seconds kTarLimit{10};
/** Of one socket, which is asked by itself: a supplicant that hangs hides no other. */
constexpr seconds kSocketLimit{2};
/** A headset has three at most: station, P2P device and P2P group. */
constexpr size_t kMostSockets = 4;
constexpr size_t kSocketSize = 20'000;
constexpr const char* kDaemon = "vendor.corvid.hardware.wifi@1.0-service";

/** This program; a child of its own can be given up where a call of the service can't. */
std::string ownPath() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : "corvid-wifi";
}

std::string rooted(const std::string& path) {
    const char* root = std::getenv("CORVID_WIFI_ROOT");
    return (root != nullptr ? root : "") + path;
}

/** A folder that goes with what is in it. */
class WorkFolder {
  public:
    WorkFolder() {
        const char* base = std::getenv("TMPDIR");
        const char* fallback = access("/data/local/tmp", W_OK) == 0 ? "/data/local/tmp" : "/tmp";
        path_ = std::string(base != nullptr ? base : fallback) + "/corvid-wifi-XXXXXX";
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no folder " + path_ + ": " + std::strerror(errno));
        }
    }
    ~WorkFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

/** Why it was not written; empty if it was. */
std::string write(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    errno = 0;
    if (out << text << std::flush) {
        return "";
    }
    return std::string("not written: ") + std::strerror(errno);
}

/** Why there can't be such a file, which is better known before the work than after; or nothing. */
std::string whyUnwritable(const std::string& file) {
    const fs::path folder = fs::path(file).parent_path();
    const std::string checked = access(file.c_str(), F_OK) == 0 ? file
                                : folder.empty()                ? "."
                                                                : folder.string();
    return access(checked.c_str(), W_OK) == 0 ? "" : std::strerror(errno);
}

bool isSet(const WakeFd& wake) {
    pollfd waited = {wake.fd(), POLLIN, 0};
    return poll(&waited, 1, 0) > 0;
}

std::string defaultName() {
    const time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    char name[64];
    strftime(name, sizeof(name), "corvid-wifi-%Y%m%d-%H%M%S", &local);
    return std::string(name) + ".tar.gz";
}

/** What a program has logged since the machine's start, where systemd keeps it. */
std::vector<std::string> journalOf(const char* program) {
    return {"journalctl", "--boot",     "--lines=5000",
            "--quiet",    "--no-pager", std::string("--identifier=") + program};
}

/** The supplicant's sockets, by name. */
std::vector<std::string> socketsIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code failure;
    for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        std::error_code gone;
        if (entry->is_socket(gone)) {
            names.push_back(entry->path().filename());
        }
    }
    std::sort(names.begin(), names.end());
    names.resize(std::min(names.size(), kMostSockets));
    return names;
}

/** An item's command, or what stands for it; says of both why there is nothing. */
CommandResult run(const BugReportItem& item, int stopFd) {
    CommandResult result = runCommand(item.command, item.size, item.limit, stopFd);
    if (result.isMissing && !item.otherwise.empty()) {
        const std::string missing = result.failure;
        result = runCommand(item.otherwise, item.size, item.limit, stopFd);
        if (!result.failure.empty()) {
            result.failure = missing + "; " + item.otherwise.front() + ": " + result.failure;
        }
    }
    if (result.failure.empty() && result.output.empty()) {
        result.failure = "there is nothing in it";
    }
    return result;
}

}  // namespace

std::vector<BugReportItem> bugReportItems() {
    const std::string self = ownPath();
    const std::string sockets = rooted("/data/vendor/wifi/wpa/sockets");
    const auto own = [&self](std::vector<std::string> words) {
        words.insert(words.begin(), self);
        words.emplace_back("--timeout=3");
        return words;
    };
    std::vector<BugReportItem> items = {
        {"status.txt", own({"status"}), kSmall, kOwnLimit},
        {"debug.txt", own({"debug"}), kSmall, kOwnLimit},
        {"debug.json", own({"debug", "--json"}), kSmall, kOwnLimit},
        {"properties.txt", own({"props"}), kSmall, kOwnLimit},
        {"dump.txt", own({"dump"}), kSmall, kOwnLimit},
        {"version.txt", {"sh", "-c", "\"$0\" --version; uname -a", self}, kSmall, kToolLimit},
        {"daemon.log",
         {"logcat", "-d", "-t", "5000", "-s", "CorvidWifi"},
         kLarge,
         kToolLimit,
         journalOf(kDaemon)},
        {"supplicant.log",
         {"logcat", "-d", "-t", "5000", "-s", "wpa_supplicant"},
         kLarge,
         kToolLimit,
         journalOf("wpa_supplicant")},
        {"sockets.txt", {"ls", "-l", sockets}, kSmall, kToolLimit},
        {"atoms.jsonl",
         {"tail", "-c", "1000000", rooted("/data/misc/stats/atoms.jsonl")},
         kLarge,
         kToolLimit},
        {"interfaces.txt", {"sh", "-c", "ip -s link; ip addr; iw dev"}, kSmall, kToolLimit},
    };
    for (const std::string& name : socketsIn(sockets)) {
        items.push_back({"supplicant-" + name + ".txt",
                         {"wpa_cli", "-p", sockets, "-i", name, "status"},
                         kSocketSize,
                         kSocketLimit});
    }
    return items;
}

int runBugReport(const CommandLine& line) {
    const std::string file = line.has("-o") ? line.value("-o") : defaultName();
    if (const std::string why = whyUnwritable(file); !why.empty()) {
        std::fprintf(stderr, "corvid-wifi: %s can't be written: %s\n", file.c_str(), why.c_str());
        return kFailure;
    }
    // The work folder holds data, and must not stay behind.
    const WakeFd stop;
    const StopSignals signals(stop);
    const WorkFolder work;
    const std::string name = "corvid-wifi-bugreport";
    const fs::path folder = fs::path(work.path()) / name;
    fs::create_directory(folder);
    Anonymizer anonymizer;
    std::string contents;
    Json items = Json::array();
    for (const BugReportItem& item : bugReportItems()) {
        CommandResult result = run(item, stop.fd());
        if (isSet(stop)) {
            std::fprintf(stderr, "corvid-wifi: interrupted; no report was written\n");
            return kFailure;
        }
        if (line.has("--anonymize")) {
            result.output = anonymizer.text(result.output);
        }
        std::string state = result.failure.empty() ? "complete" : result.failure;
        if (const std::string failure = write(folder / item.name, result.output);
            !failure.empty()) {
            state = failure;
        }
        contents +=
            item.name + ": " + std::to_string(result.output.size()) + " bytes, " + state + "\n";
        items.push_back({{"name", item.name}, {"size", result.output.size()}, {"state", state}});
    }
    if (const std::string failure = write(folder / "contents.txt", contents); !failure.empty()) {
        std::fprintf(stderr, "corvid-wifi: contents.txt %s\n", failure.c_str());
        return kFailure;
    }
    // To tar, a name with a colon before any slash is another machine's file.
    const std::string target = file.rfind('/', 0) == 0 ? file : "./" + file;
    const CommandResult packed =
        runCommand({"tar", "-czf", target, "-C", work.path(), name}, kSmall, kTarLimit);
    if (!packed.failure.empty()) {
        std::fprintf(stderr, "corvid-wifi: %s could not be written: %s (%s)\n", file.c_str(),
                     packed.failure.c_str(), packed.output.c_str());
        return kFailure;
    }
    print(line.has("--json") ? toLine({{"file", file}, {"items", items}}) + "\n"
                             : contents + "written: " + file + "\n");
    return kSuccess;
}

}  // namespace Ursa::OS::Wifi::Tools
