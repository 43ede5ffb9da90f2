// The path of an event: datagrams from a control socket through the kernel's filter and a connected
// WpaSocket to its subscribers, which read the payloads as the daemon's do. What should arrive is
// worked out beside it.
//
// An input begins with a byte for the kind of socket (even: STA, odd: P2P). The rest is events,
// separated by 0x1E bytes.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <android/log.h>
#include <sys/eventfd.h>
#include <ursa/os/EventFd.h>

#include "client/SupplicantParser.h"
#include "client/WpaSocket.h"
#include "os/Poll.h"
#include "tests/fuzz/Check.h"
#include "tests/support/FakeControlSocket.h"
#include "tests/support/TempFolder.h"

using namespace Ursa::OS;
using namespace Ursa::OS::Wifi;
using Type = WifiClientCallbackType;

namespace {

constexpr char kSeparator = 0x1E;
/** Datagrams at once: fewer than the kernel keeps for a socket that does not read them. */
constexpr size_t kTogether = 8;

struct Expected {
    std::string_view prefix;
    Type type;
    NetInterfaceType kind;
};
constexpr Expected kExpected[] = {
    {"CTRL-EVENT-SCAN-RESULTS ", Type::WPA_STA_SCAN_RESULTS, NetInterfaceType::STA},
    {"CTRL-EVENT-CHANNEL-SWITCH ", Type::WPA_STA_CHANNEL_SWITCH, NetInterfaceType::STA},
    {"CTRL-EVENT-ASSOC-STARTED ", Type::WPA_STA_ASSOC_STARTED, NetInterfaceType::STA},
    {"CTRL-EVENT-CONNECTED ", Type::WPA_STA_CONNECTED, NetInterfaceType::STA},
    {"CTRL-EVENT-DISCONNECTED ", Type::WPA_STA_DISCONNECTED, NetInterfaceType::STA},
    {"CTRL-EVENT-REGDOM-CHANGE ", Type::WPA_REGDOM_CHANGE, NetInterfaceType::STA},
    {"AP-CSA-FINISHED ", Type::WPA_P2P_CSA_FINISHED, NetInterfaceType::P2P},
    {"P2P-GROUP-REMOVED ", Type::WPA_P2P_GROUP_REMOVED, NetInterfaceType::P2P},
    {"P2P-GROUP-STARTED ", Type::WPA_P2P_GROUP_STARTED, NetInterfaceType::P2P},
    {"CTRL-EVENT-REGDOM-CHANGE ", Type::WPA_REGDOM_CHANGE, NetInterfaceType::P2P},
};

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

using Events = std::vector<std::pair<Type, std::string>>;

/** What a datagram should lead to. Returns false when the supplicant says that it ends. */
bool expect(std::string_view datagram, NetInterfaceType kind, Events& events) {
    datagram = datagram.substr(0, 4095);
    if (datagram.size() < 4) {
        return true;
    }
    std::string_view event = datagram.substr(3);
    event = event.substr(0, event.find('\0'));
    if (startsWith(event, "CTRL-EVENT-TERMINATING ")) {
        return false;
    }
    for (const Expected& expected : kExpected) {
        if (expected.kind == kind && startsWith(event, expected.prefix)) {
            events.emplace_back(expected.type, event.substr(expected.prefix.size()));
        }
    }
    return true;
}

/** One connected socket, for the whole run. */
class Connected {
  public:
    explicit Connected(NetInterfaceType kind) : kind_(kind) {
        eventFd_.open();
        for (int i = 0; i < kWifiClientCallbackTypeCount; ++i) {
            const Type type = static_cast<Type>(i);
            callbacks_[i] = [this, type](const std::string& payload) { note_(type, payload); };
            socket_->registerEventCallback(type, callbacks_[i]);
        }
        connect_();
    }

    void run(std::string_view input) {
        Events expected;
        while (!input.empty()) {
            // Several at once, since each change of threads costs more than an event.
            std::vector<std::string> datagrams;
            bool goesOn = true;
            while (!input.empty() && goesOn && datagrams.size() < kTogether) {
                const size_t end = input.find(kSeparator);
                datagrams.emplace_back(input.substr(0, end));
                input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
                goesOn = expect(datagrams.back(), kind_, expected);
            }
            FUZZ_CHECK(supplicant_.sendEvents(datagrams) == datagrams.size());
            while (poll_->poll(0) > 0) {
            }
            if (!goesOn) {
                expected.emplace_back(Type::WPA_SOCKET_DISCONNECTED,
                                      std::string("sockettype=") + toString(kind_));
            }
            FUZZ_CHECK(events_ == expected);
            if (!goesOn) {
                FUZZ_CHECK(!connected_());
                connect_();
                expected.clear();
            }
        }
        events_.clear();
        // A command goes through another thread and back, which costs more than many events.
        if (++runs_ % kRunsPerCommand == 0) {
            FUZZ_CHECK(connected_());
            supplicant_.forgetCommands();
        }
    }

  private:
    static constexpr unsigned kRunsPerCommand = 64;

    /** A command is answered only in that state. */
    bool connected_() {
        std::string reply;
        return socket_->sendCtrlCmd("PING", reply);
    }

    void connect_() {
        socket_->onSocketFileCreate(folder_.file("socket"));
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!connected_()) {
            FUZZ_CHECK(std::chrono::steady_clock::now() < end);
            poll_->poll(1);
        }
        events_.clear();
    }

    void note_(Type type, const std::string& payload) {
        events_.emplace_back(type, payload);
        ChannelSwitchResult channelSwitch;
        getChannelSwitchResult(payload.c_str(), channelSwitch);
        RegdomUpdatedResult regdom;
        getRegdomUpdatedResult(payload, regdom);
        int frequency = 0;
        // As a subscriber that does not catch: the socket must.
        getInt32ValueByKey(payload, "freq=", 0, frequency);
    }

    const NetInterfaceType kind_;
    test::TempFolder folder_;
    test::FakeControlSocket supplicant_{folder_.file("socket")};
    std::shared_ptr<Poll> poll_ = std::make_shared<Poll>();
    History history_;
    EventFd eventFd_{poll_};
    std::function<void(const std::string&)> callbacks_[kWifiClientCallbackTypeCount];
    std::shared_ptr<WpaSocket> socket_ =
        WpaSocket::create(kind_, poll_, eventFd_, history_, {0, 1, 1000, 1, 10'000});
    Events events_;
    unsigned runs_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    // Not shown, but written: the lines are part of the path.
    static const bool quiet = [] {
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
        return true;
    }();
    (void)quiet;
    static Connected sta(NetInterfaceType::STA);
    static Connected p2p(NetInterfaceType::P2P);
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    (input[0] % 2 == 0 ? sta : p2p).run(input.substr(1));
    return 0;
}
