// The path of an event to its end: datagrams on both control sockets of a whole daemon with every
// feature on, replies of the supplicant, and socket files that come and go. Whatever it was, the
// daemon still follows both sockets afterwards, and no subscriber has failed.
//
// An input is a list of steps, separated by 0x1E bytes. A step's first byte says what it is, the
// rest is its text:
//   s, p  an event on the station's or the P2P socket, as it is
//   q, t  the reply to SIGNAL_POLL or STATUS from now on
//   f, d  a file of that name comes into the socket folder, or goes
//   r     the supplicant restarts

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <android/log.h>

#include "client/CorvidWifiClient.h"
#include "client/WifiClientCallback.h"
#include "service/CorvidWifiManager.h"
#include "tests/fuzz/Check.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/FeatureSwitches.h"
#include "tests/support/ScriptedNl80211.h"
#include "tests/support/ScriptedSupplicant.h"

using namespace Ursa::OS::Wifi;
using namespace std::chrono_literals;

namespace {

constexpr char kSeparator = 0x1E;
constexpr char kStaName[] = "wlan0";
constexpr char kP2pName[] = "p2p-wlan0-0";
/** What a command waits whose supplicant has gone: most of the time of an input that kills one. */
constexpr auto kReplyTimeout = 20ms;
/** More than anything takes on a busy machine. */
constexpr auto kPatience = 60s;

std::atomic<bool> subscriberFailed{false};

/** Sees the line by which the daemon says that a subscriber has thrown. */
void look(const __android_logger_data*, const char* message) {
    for (const char* line : {"[WPA-STA] A subscriber", "[WPA-P2P] A subscriber",
                             "CoexManager: A subscriber", "StaManager: A subscriber"}) {
        if (std::strncmp(message, line, std::strlen(line)) == 0) {
            subscriberFailed = true;
        }
    }
}

/** The daemon, but for its HIDL service, between a scripted supplicant and a scripted kernel. */
class Daemon {
  public:
    Daemon() {
        for (const std::string& property : test::switchesOfEveryFeature()) {
            root_.setProperty(property, "true");
        }
        client_ = std::make_shared<CorvidWifiClient>(root_.socketDirectory(), kReplyTimeout);
        manager_ = std::make_unique<CorvidWifiManager>(client_);
        mark_ = std::make_unique<WifiClientCallback>(
            client_,
            std::vector<WifiClientCallbackItem>{
                {WifiClientCallbackType::WPA_REGDOM_CHANGE, NetInterfaceType::STA, "fuzz.mark",
                 [this](const std::string& text) { noteMark_(text, staMark_); }},
                {WifiClientCallbackType::WPA_REGDOM_CHANGE, NetInterfaceType::P2P, "fuzz.mark",
                 [this](const std::string& text) { noteMark_(text, p2pMark_); }}});
        waitForMarks_();
    }

    void run(std::string_view input) {
        while (!input.empty()) {
            const size_t end = input.find(kSeparator);
            step_(input.substr(0, end));
            input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
        }
        waitForMarks_();
        FUZZ_CHECK(!subscriberFailed);
        sta_.forgetCommands();
        p2p_.forgetCommands();
    }

  private:
    void step_(std::string_view step) {
        if (step.empty()) {
            return;
        }
        const std::string text(step.substr(1));
        switch (step[0]) {
            case 's':
                sta_.socket().sendEvent(text);
                break;
            case 'p':
                p2p_.socket().sendEvent(text);
                break;
            case 'q':
                sta_.answer("SIGNAL_POLL", text);
                break;
            case 't':
                sta_.answer("STATUS", text);
                p2p_.answer("STATUS", text);
                break;
            case 'f':
                makeFile_(text);
                break;
            case 'd':
                waitForMarks_();
                removeFile_(text);
                break;
            case 'r':
                // A command whose supplicant dies before its answer waits for the time-out.
                waitForMarks_();
                sta_.restart();
                p2p_.restart();
                break;
            default:
                break;
        }
    }

    /** A name inside the folder; empty for what is none. */
    std::string pathOf_(const std::string& name) const {
        const bool isName = !name.empty() && name.size() < 100 && name != "." && name != ".." &&
                            name.find_first_of(std::string("/\0", 2)) == std::string::npos;
        return isName ? root_.socketDirectory() + name : "";
    }

    void makeFile_(const std::string& name) {
        const std::string path = pathOf_(name);
        // The two sockets themselves come back by a restart only.
        if (path.empty() || name == kStaName || name == kP2pName) {
            return;
        }
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (fd >= 0) {
            close(fd);
            unlink(path.c_str());
        }
    }

    void removeFile_(const std::string& name) {
        const std::string path = pathOf_(name);
        if (!path.empty()) {
            unlink(path.c_str());
        }
    }

    void noteMark_(const std::string& text, std::atomic<unsigned>& mark) const {
        if (text == "mark=" + std::to_string(marks_)) {
            mark = marks_.load();
        }
    }

    /**
     * Waits until both sockets have delivered a mark of ours. One that nobody is attached to, since
     * its file has gone or it said that it ends, is made again: the daemon has to find it.
     */
    void waitForMarks_() {
        ++marks_;
        const std::string mark = "<3>CTRL-EVENT-REGDOM-CHANGE mark=" + std::to_string(marks_);
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        waitForMark_(sta_, staMark_, mark, deadline);
        waitForMark_(p2p_, p2pMark_, mark, deadline);
    }

    void waitForMark_(test::ScriptedSupplicant& supplicant, const std::atomic<unsigned>& seen,
                      const std::string& mark, std::chrono::steady_clock::time_point deadline) {
        constexpr auto kMissing = 5ms;
        // The first attempt to connect comes 25 ms after the file, the next 50 ms later.
        constexpr auto kRestarted = 500ms;
        auto restart = std::chrono::steady_clock::now() + kMissing;
        while (seen != marks_) {
            const auto now = std::chrono::steady_clock::now();
            FUZZ_CHECK(now < deadline);
            if (supplicant.socket().sendEvent(mark) > 0) {
                for (int i = 0; i < 1000 && seen != marks_; ++i) {
                    std::this_thread::sleep_for(20us);
                }
            } else if (now > restart) {
                supplicant.restart();
                restart = now + kRestarted;
            } else {
                std::this_thread::sleep_for(1ms);
            }
        }
    }

    test::DeviceRoot root_;
    test::ScriptedNl80211 nl80211_{root_.path()};
    test::ScriptedSupplicant sta_{root_.socketDirectory() + kStaName};
    test::ScriptedSupplicant p2p_{root_.socketDirectory() + kP2pName};
    std::atomic<unsigned> marks_{0};
    std::atomic<unsigned> staMark_{0};
    std::atomic<unsigned> p2pMark_{0};
    std::shared_ptr<CorvidWifiClient> client_;
    std::unique_ptr<CorvidWifiManager> manager_;
    std::unique_ptr<WifiClientCallback> mark_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Daemon* const daemon = [] {
        __android_log_set_logger(look);
        return new Daemon;  // lives as long as the process, as the daemon does
    }();
    daemon->run({reinterpret_cast<const char*>(data), size});
    return 0;
}
