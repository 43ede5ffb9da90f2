// The supplicant's events and commands through the daemon's client against a C program's loop.

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <sys/eventfd.h>
#include <sys/socket.h>

#include "Compare.h"
#include "Peer.h"
#include "bare_client.h"
#include "client/CorvidWifiClient.h"
#include "client/WpaConnection.h"
#include "client/WpaEvents.h"

namespace corvid::benchmarks {
namespace {

using android::base::unique_fd;
using test::TempFolder;
using Ursa::OS::Wifi::ConnectResult;
using Ursa::OS::Wifi::CorvidWifiClient;
using Ursa::OS::Wifi::NetInterfaceType;
using Ursa::OS::Wifi::readWpaEvent;
using Ursa::OS::Wifi::WifiClientCallbackType;
using Ursa::OS::Wifi::WpaConnection;

constexpr std::string_view kBssAdded = "<3>CTRL-EVENT-BSS-ADDED 123 00:11:22:33:44:55";
constexpr std::string_view kBssRemoved = "<3>CTRL-EVENT-BSS-REMOVED 123 00:11:22:33:44:55";

/** The facade, connected to a peer of its own. */
class Facade {
  public:
    Facade() : peer_(folder_.file("wlan0")) {
        peer_.serve();
        client_ = std::make_unique<CorvidWifiClient>(folder_.path() + "/");
        std::string reply;
        while (!client_->sendWpaCtrlCmd("PING", reply, NetInterfaceType::STA)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    ~Facade() {
        peer_.stop();
        peer_.serve();  // the client says DETACH
        client_.reset();
    }

    Peer& peer() { return peer_; }
    CorvidWifiClient& client() { return *client_; }

  private:
    TempFolder folder_;
    Peer peer_;
    std::unique_ptr<CorvidWifiClient> client_;
};

/** The C client, connected to a peer of its own. */
class Bare {
  public:
    Bare() : peer_(folder_.file("wlan0")) {
        peer_.serve();
        if (bare_open(&client_, folder_.file("wlan0").c_str()) != 0) {
            abort();
        }
    }

    ~Bare() { bare_close(&client_); }

    Peer& peer() { return peer_; }
    const bare_client& client() const { return client_; }

  private:
    TempFolder folder_;
    Peer peer_;
    bare_client client_ = {};
};

void sendStorm(const Peer& peer, int lines) {
    for (int i = 0; i < lines; ++i) {
        peer.send(i % 2 == 0 ? kBssAdded : kBssRemoved);
    }
    peer.send(kEvent);
}

/** What a storm costs the process that receives it: the CPU time of its receiving thread. */
void storm(benchmark::State& state) {
    constexpr int kLines = 1000;
    Facade facade;
    facade.peer().stop();
    Bare bare;
    bare.peer().stop();

    // One event behind the storm tells that it is over, and whose clock to read.
    std::promise<clockid_t> arrived;
    std::function<void(const std::string&)> subscriber = [&](const std::string&) {
        clockid_t clock;
        pthread_getcpuclockid(pthread_self(), &clock);
        arrived.set_value(clock);
    };
    const int handle = facade.client().registerWpaCallback(
        WifiClientCallbackType::WPA_STA_SCAN_RESULTS, subscriber, NetInterfaceType::STA);
    const auto facadeStorm = [&](int lines) {
        arrived = {};
        sendStorm(facade.peer(), lines);
        const clockid_t clock = arrived.get_future().get();
        timespec time;
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
    };
    const auto bareStorm = [&](int lines) {
        auto receiver = std::async(std::launch::async, [&] {
            const double start = now(Clock::ThreadCpu);
            bare_count(&bare.client(), kEvent.substr(3).data());
            return now(Clock::ThreadCpu) - start;
        });
        sendStorm(bare.peer(), lines);
        return receiver.get();
    };

    Rounds rounds;
    bareStorm(kLines);
    double before = facadeStorm(0);
    for ([[maybe_unused]] auto _ : state) {
        const double baseline = bareStorm(kLines);
        const double after = facadeStorm(kLines);
        rounds.add(state, after - before, baseline);
        before = after;
    }
    facade.client().unregisterWpaCallback(WifiClientCallbackType::WPA_STA_SCAN_RESULTS, handle,
                                          NetInterfaceType::STA);
    report(state, "Storm of BSS lines, CPU / bare wpa_ctrl_recv loop", rounds, kLines, 0.25);
}
BENCHMARK(storm)->UseManualTime();

/** A kernel without the filter: every line is received, and dropped by its prefix. */
void unfilteredLine(benchmark::State& state) {
    constexpr int kQueue = 10;  // as many as the kernel lets wait in a Unix datagram socket
    constexpr int kFills = 100;
    TempFolder folder;
    Peer peer(folder.file("wlan0"));
    peer.serve();
    WpaConnection connection(std::chrono::seconds(10));
    if (connection.open(folder.file("wlan0")) != ConnectResult::Connected) {
        abort();
    }
    peer.stop();
    int none = 0;
    setsockopt(connection.monitorFd(), SOL_SOCKET, SO_DETACH_FILTER, &none, sizeof(none));
    Bare bare;
    bare.peer().stop();

    char buffer[4096];
    const auto bareLine = [&] {
        size_t length = sizeof(buffer) - 1;
        wpa_ctrl_recv(bare.client().monitor, buffer, &length);
        benchmark::DoNotOptimize(buffer);
    };
    const auto line = [&] {
        benchmark::DoNotOptimize(readWpaEvent(NetInterfaceType::STA, *connection.receive()));
    };
    const auto time = [&](const Peer& sender, const auto& receive) {
        for (int i = 0; i < kQueue; ++i) {
            sender.send(i % 2 == 0 ? kBssAdded : kBssRemoved);
        }
        const double start = now(Clock::Wall);
        for (int i = 0; i < kQueue; ++i) {
            receive();
        }
        return now(Clock::Wall) - start;
    };
    Rounds rounds;
    for ([[maybe_unused]] auto _ : state) {
        double subject = 0;
        double baseline = 0;
        for (int i = 0; i < kFills; ++i) {
            baseline += time(bare.peer(), bareLine);
            subject += time(peer, line);
        }
        rounds.add(state, subject, baseline);
    }
    report(state, "BSS line without the filter / bare wpa_ctrl_recv", rounds, kQueue * kFills,
           1.06);
    peer.serve();
    connection.close();
}
BENCHMARK(unfilteredLine)->UseManualTime();

/** From the sending of an event to the arrival of the command that a subscriber answers it with. */
double answerTime(const Peer& peer) {
    const double start = now(Clock::Wall);
    peer.send(kEvent);
    const Peer::Request command = peer.receive();
    const double end = now(Clock::Wall);
    peer.reply(command, kReply);
    // Lets the other side get back to its wait, so that the next event meets it there.
    sched_yield();
    return end - start;
}

void answeredEvent(benchmark::State& state) {
    constexpr int kEvents = 20;
    const OneProcessor oneProcessor;
    Facade facade;
    facade.peer().stop();
    std::function<void(const std::string&)> subscriber = [&](const std::string&) {
        std::string reply;
        facade.client().sendWpaCtrlCmd(std::string(kCommand), reply, NetInterfaceType::STA);
    };
    const int handle = facade.client().registerWpaCallback(
        WifiClientCallbackType::WPA_STA_SCAN_RESULTS, subscriber, NetInterfaceType::STA);

    Bare bare;
    bare.peer().stop();
    const unique_fd stop(eventfd(0, EFD_CLOEXEC));
    std::thread bareLoop(
        [&] { bare_answer(&bare.client(), 1, kEventPrefix.data(), kCommand.data(), stop.get()); });

    Rounds rounds;
    answerTime(facade.peer());
    answerTime(bare.peer());
    for ([[maybe_unused]] auto _ : state) {
        double subject = 0;
        double baseline = 0;
        for (int i = 0; i < kEvents; ++i) {
            baseline += answerTime(bare.peer());
            subject += answerTime(facade.peer());
        }
        rounds.add(state, subject, baseline);
    }
    eventfd_write(stop.get(), 1);
    bareLoop.join();
    facade.client().unregisterWpaCallback(WifiClientCallbackType::WPA_STA_SCAN_RESULTS, handle,
                                          NetInterfaceType::STA);
    report(state, "Event to the subscriber's command / bare C loop", rounds, kEvents, 1.10);
}
BENCHMARK(answeredEvent)->UseManualTime();

void command(benchmark::State& state) {
    const OneProcessor oneProcessor;
    Facade facade;
    Bare bare;
    const std::string text(kCommand);
    std::string reply;
    char buffer[4096];
    compare(
        state, "Command through the facade / bare wpa_ctrl_request", 1.05, Clock::Wall, 50,
        [&] { facade.client().sendWpaCtrlCmd(text, reply, NetInterfaceType::STA); },
        [&] {
            size_t length = sizeof(buffer) - 1;
            wpa_ctrl_request(bare.client().command, text.c_str(), text.size(), buffer, &length,
                             nullptr);
        });
}
BENCHMARK(command)->UseManualTime();

}  // namespace
}  // namespace corvid::benchmarks
