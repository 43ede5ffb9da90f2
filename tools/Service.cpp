#include "tools/Service.h"

#include <dirent.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <sys/time.h>

namespace Ursa::OS::Wifi::Tools {

using ::android::sp;
using std::chrono::milliseconds;

namespace {

/** How often the service is looked for while waiting. */
constexpr milliseconds kBetweenLooks{50};

/** How the process ends when the time limit is over. */
struct Late {
    std::string message;
    int status;
};

Late noAnswer{"", kNoAnswer};
Late noService{"", kNoService};
/** Which of them it is at present. The signal handler reads it. */
std::atomic<const Late*> late = &noAnswer;
static_assert(std::atomic<const Late*>::is_always_lock_free);

void onLate(int /*signal*/) {
    const Late& end = *late.load();
    const ssize_t ignored = write(STDERR_FILENO, end.message.data(), end.message.size());
    static_cast<void>(ignored);
    _exit(end.status);
}

std::string inSeconds(milliseconds time) {
    std::string text = std::to_string(static_cast<double>(time.count()) / 1000);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') {
        text.pop_back();
    }
    return text + " s";
}

/** Where services are found; a host's is a folder with a socket for each process. */
std::string meetingPlace() {
    const char* root = std::getenv("CORVID_WIFI_ROOT");
    return std::string(root != nullptr ? root : "") + "/dev/hwbinder";
}

/** Says where a host's client has looked if nobody has told it; empty on the device. */
std::string rootHint() {
#ifdef __ANDROID__
    return "";
#else
    return std::getenv("CORVID_WIFI_ROOT") != nullptr
               ? ""
               : " in " + meetingPlace() + " (CORVID_WIFI_ROOT names another root)";
#endif
}

/** The first path that this process may not use; empty if there is none. */
std::string forbiddenPath() {
    const std::string place = meetingPlace();
    if (access(place.c_str(), R_OK) != 0) {
        return errno == EACCES ? place : "";
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(place.c_str()), closedir);
    while (const dirent* entry = folder == nullptr ? nullptr : readdir(folder.get())) {
        std::string path = place + "/" + entry->d_name;
        struct stat status {};
        if (stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) &&
            access(path.c_str(), W_OK) != 0 && errno == EACCES) {
            return path;
        }
    }
    return "";
}

}  // namespace

Deadline::Deadline(milliseconds limit) : limit_(limit) {
    noAnswer.message =
        "corvid-wifi: the service did not answer within " + inSeconds(limit) +
        ": it hangs or is stopped, or another call keeps it (it serves one call at a time)\n";
    struct sigaction action {};
    action.sa_handler = onLate;
    sigaction(SIGALRM, &action, nullptr);
    start();
}

Deadline::~Deadline() { stop(); }

void Deadline::start() const {
    itimerval timer{};
    timer.it_value.tv_sec = static_cast<time_t>(limit_.count() / 1000);
    timer.it_value.tv_usec = static_cast<suseconds_t>(limit_.count() % 1000 * 1000);
    setitimer(ITIMER_REAL, &timer, nullptr);
}

void Deadline::stop() const {
    const itimerval none{};
    setitimer(ITIMER_REAL, &none, nullptr);
}

sp<IWifi> findService(const CommandLine& line) {
    const std::string missing =
        std::string("the service ") + IWifi::descriptor + "/default is not available";
    noService.message =
        "corvid-wifi: " + missing + " after " + inSeconds(line.timeout()) + rootHint() + "\n";
    while (true) {
        if (sp<IWifi> service = IWifi::tryGetService(); service != nullptr) {
            late = &noAnswer;
            return service;
        }
        if (const std::string path = forbiddenPath(); !path.empty()) {
            throw ServiceError("permission denied: " + path + " (user " +
                               std::to_string(geteuid()) + ")");
        }
        if (!line.has("--wait")) {
            throw ServiceError(missing + rootHint());
        }
        late = &noService;
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

}  // namespace Ursa::OS::Wifi::Tools
