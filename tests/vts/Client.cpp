#include "tests/vts/Client.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <charconv>
#include <string_view>

#include <sys/prctl.h>
#include <sys/wait.h>

namespace vts {

namespace {

constexpr const char* kUsage = R"(usage: %s [OPTION ...]
  --instance NAME         tests that instance, not "default"
  --longest-call SECONDS  what a call may take, 30
  --longest-wait SECONDS  what an event may take until a client is told of it, and a restart, 30
  --gtest_...             see --gtest_help
On a bench only:
  --change                also calls what can't be undone, such as a channel switch
  --cause COMMAND         a shell command that causes an event of which clients are told, for example a
                          change of the country
  --restart COMMAND       a shell command that ends the service and starts it again, for example by
                          setprop ctl.restart
)";

/** The argument with which this program is the other client. */
constexpr const char* kOtherClient = "--other-client";

bool readsRegistered(int file) {
    constexpr std::string_view kLine = "registered\n";
    std::string text;
    char byte;
    while (text.size() < kLine.size() && read(file, &byte, 1) == 1) {
        text += byte;
    }
    return text == kLine;
}

/** Sets a limit from its text; returns false unless that is a whole number from 1. */
bool setLimit(std::chrono::seconds& limit, const std::string& text) {
    int seconds = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, seconds);
    limit = std::chrono::seconds(seconds);
    return error == std::errc() && rest == end && seconds >= 1;
}

}  // namespace

Options options;

void endWithoutAnAnswer() {
    ADD_FAILURE() << "no answer within " << options.longestCall.count() << " s";
    if (const auto* const test = testing::UnitTest::GetInstance()->current_test_info()) {
        printf("[  FAILED  ] %s.%s\n", test->test_suite_name(), test->name());
    }
    fflush(stdout);
    _exit(1);
}

void WifiTest::SetUp() {
    SCOPED_TRACE("tryGetService()");
    service_ = inTime([] { return IWifi::tryGetService(options.instance); });
    ASSERT_NE(service_, nullptr) << "there is no instance " << options.instance;
}

void WifiTest::TearDown() {
    if (service_ != nullptr) {
        EXPECT_TRUE(responds()) << "the service has not survived";
    }
}

bool WifiTest::responds() {
    SCOPED_TRACE("ping()");
    return inTime([&] { return service_->ping(); }).isOk();
}

bool WifiTest::comesBack() {
    const auto end = std::chrono::steady_clock::now() + options.longestWait;
    do {
        service_ = inTime([] { return IWifi::tryGetService(options.instance); });
        // For a moment it may be the object that has ended.
        if (service_ != nullptr && responds()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (std::chrono::steady_clock::now() < end);
    return false;
}

uint32_t WifiTest::add(const sp<ICorvidWifiManagerCallback>& callback) {
    SCOPED_TRACE("registerCorvidWifiManagerCallback()");
    return statusOf([&](const auto& answer) {
        return service_->registerCorvidWifiManagerCallback(callback, answer);
    });
}

uint32_t WifiTest::remove(const sp<ICorvidWifiManagerCallback>& callback) {
    SCOPED_TRACE("unregisterCorvidWifiManagerCallback()");
    return statusOf([&](const auto& answer) {
        return service_->unregisterCorvidWifiManagerCallback(callback, answer);
    });
}

bool WifiTest::isPaired(P2pDeviceType type) {
    SCOPED_TRACE("isP2pPairedDeviceType()");
    return statusOf([&](const auto& answer) {
               return service_->isP2pPairedDeviceType(type, answer);
           }) == kDone;
}

uint32_t WifiTest::pair(P2pDeviceType type) {
    SCOPED_TRACE("setP2pPairedDeviceType()");
    return statusOf(
        [&](const auto& answer) { return service_->setP2pPairedDeviceType(type, answer); });
}

StaInfo WifiTest::station() {
    SCOPED_TRACE("getStaInfo()");
    return answerOf<StaInfo>([&](const auto& answer) { return service_->getStaInfo(answer); });
}

P2pInfo WifiTest::group() {
    SCOPED_TRACE("getP2pInfo()");
    return answerOf<P2pInfo>([&](const auto& answer) { return service_->getP2pInfo(answer); });
}

std::string WifiTest::dump() {
    SCOPED_TRACE("dumpInfo()");
    using ::android::hardware::hidl_string;
    return answerOf<hidl_string>([&](const auto& answer) { return service_->dumpInfo(answer); });
}

bool WifiTest::isEnabled(const std::string& label) {
    return ("\n" + dump()).find("\n" + label + ": Enabled\n") != std::string::npos;
}

OtherClient::OtherClient() {
    int ends[2];
    if (pipe(ends) != 0) {
        return;
    }
    const std::string instance = "--instance=" + options.instance;
    const std::string limit = "--longest-call=" + std::to_string(options.longestCall.count());
    const pid_t parent = getpid();
    process_ = fork();
    if (process_ == 0) {
        // endWithoutAnAnswer() calls no destructor: the kernel kills this process at our end.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(127);  // we have ended before that
        }
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        execlp(options.program.c_str(), options.program.c_str(), kOtherClient, instance.c_str(),
               limit.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    isRegistered_ = process_ > 0 && readsRegistered(ends[0]);
    close(ends[0]);
}

void OtherClient::kill() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        process_ = -1;
    }
}

int OtherClient::run() {
    const sp<IWifi> service = inTime([] { return IWifi::tryGetService(options.instance); });
    if (service == nullptr) {
        return 1;
    }
    const sp<ICorvidWifiManagerCallback> callback = new QuietCallback();
    uint32_t code = kFailed;
    const auto result = inTime([&] {
        return service->registerCorvidWifiManagerCallback(
            callback, [&](const Status& status) { code = status.code; });
    });
    if (!result.isOk() || code != kDone) {
        return 1;
    }
    puts("registered");
    fflush(stdout);
    for (;;) {
        pause();
    }
}

}  // namespace vts

int main(int argc, char** argv) {
    bool isOtherClient = false;
    testing::InitGoogleTest(&argc, argv);
    vts::options.program = argv[0];
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        // "--name=value" or "--name value".
        const size_t end = argument.find('=');
        const std::string name = argument.substr(0, end);
        const auto value = [&]() -> std::string {
            if (end != std::string::npos) {
                return argument.substr(end + 1);
            }
            return i + 1 < argc ? argv[++i] : "";
        };
        if (name == "--instance") {
            vts::options.instance = value();
        } else if (name == "--cause") {
            vts::options.cause = value();
        } else if (name == "--restart") {
            vts::options.restart = value();
        } else if (name == "--longest-call" || name == "--longest-wait") {
            auto& limit =
                name == "--longest-call" ? vts::options.longestCall : vts::options.longestWait;
            if (const std::string text = value(); !vts::setLimit(limit, text)) {
                fprintf(stderr, "%s takes seconds from 1, not '%s'\n", name.c_str(), text.c_str());
                return 2;
            }
        } else if (argument == "--change") {
            vts::options.change = true;
        } else if (argument == vts::kOtherClient) {
            isOtherClient = true;
        } else {
            // GoogleTest has printed its own help, if it was asked for.
            fprintf(argument == "--help" ? stdout : stderr, vts::kUsage, argv[0]);
            return argument == "--help" ? 0 : 2;
        }
    }
    return isOtherClient ? vts::OtherClient::run() : RUN_ALL_TESTS();
}
