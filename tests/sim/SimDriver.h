#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "tests/support/Patience.h"

namespace simtest {

/** A record of the simulator: its JSON object's members, texts unescaped, the rest as JSON. */
class SimRecord {
  public:
    /** Empty when the line isn't one JSON object. */
    static std::optional<SimRecord> parse(std::string_view line);

    /** A member's value, or an empty text. */
    std::string operator[](const std::string& name) const;
    std::string kind() const { return (*this)["kind"]; }
    std::string socket() const { return (*this)["socket"]; }
    std::string text() const { return (*this)["text"]; }
    double t() const;

  private:
    std::map<std::string, std::string> members_;
};

/** A new folder for CORVID_WIFI_ROOT, removed with everything in it. */
class TempFolder {
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

/**
 * `corvid-sim --control` in a root folder of its own, driven line by line. The records that it
 * prints are kept; a thread reads them, so that the simulator never waits for the test. To be used
 * by one thread.
 */
class SimDriver {
  public:
    using Matches = std::function<bool(const SimRecord&)>;

    /** Starts it with more `options`; throws std::runtime_error when it doesn't come up. */
    explicit SimDriver(const std::vector<std::string>& options = {});
    /** Ends it with the end of its input. */
    ~SimDriver();
    SimDriver(const SimDriver&) = delete;
    SimDriver& operator=(const SimDriver&) = delete;

    const std::string& root() const { return folder_.path(); }
    std::string socketPath(const std::string& name) const {
        return root() + "/data/vendor/wifi/wpa/sockets/" + name;
    }
    pid_t pid() const { return pid_; }

    /** Plays one line; the error that it was answered with, or an empty text. */
    std::string play(const std::string& line);

    /** All records until now. */
    std::vector<SimRecord> records();
    std::vector<SimRecord> records(const std::string& kind);
    /** Waits for a record, earlier ones included; empty when it doesn't come in time. */
    std::optional<SimRecord> waitFor(const Matches& matches,
                                     std::chrono::milliseconds limit = test::kPatience);
    /** Forgets the records until now. */
    void forget();

    /** Ends its input and waits; the exit status, or minus the signal's number. */
    int finish();

  private:
    void read();

    TempFolder folder_;
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    int line_ = 0;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<SimRecord> records_;
    bool ended_ = false;
    std::thread reader_;
};

/** What surrounds a run of corvid-sim. */
struct Surroundings {
    std::vector<std::pair<std::string, std::string>> environment;  ///< Added to ours.
    bool terminal = false;                                         ///< Standard output is one.
    int closeAfterLines = -1;  ///< Its output is closed when so many lines were read.
};

/**
 * Runs corvid-sim to its end; the exit status, or minus the signal's number. Its standard output
 * and error come in `output`.
 */
int runSim(const std::vector<std::string>& arguments, std::string& output,
           const Surroundings& surroundings = {});

}  // namespace simtest
