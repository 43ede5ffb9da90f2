// A signal sample's way through the station's power control, until the new power step's command is
// at the supplicant: against a C program's loop that answers an event with a command and does
// nothing else, and against a C program that takes the same steps (property, decision, log line).
// And a new connection's way to the question for its signal, against the same loop.

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <sys/eventfd.h>

#include "Compare.h"
#include "Peer.h"
#include "bare_client.h"
#include "bare_sample.h"
#include "client/CorvidWifiClient.h"
#include "managers/StaManager.h"
#include "managers/TxPowerManager.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/FakeCompositionRoot.h"

namespace corvid::benchmarks {
namespace {

using android::base::unique_fd;
using Ursa::OS::Wifi::CorvidWifiClient;
using Ursa::OS::Wifi::NetInterfaceType;
using Ursa::OS::Wifi::StaManager;
using Ursa::OS::Wifi::TxPowerManager;
using Ursa::OS::Wifi::WifiClientCallbackType;

/**
 * The worker's unit of time, so far back that its wait between two samples ends before the machine
 * was started: the C library then does not ask the kernel for it. A wait of 0 would set a timer
 * that goes off at once, and the interrupt (on a virtual machine with a way through its host) would
 * leave the caches and the branch predictor cold for a sample that comes right behind it.
 */
constexpr std::chrono::milliseconds kNoWait = -std::chrono::hours(24 * 365 * 10);

constexpr std::string_view kPoll = "SIGNAL_POLL";
constexpr std::string_view kStep = "DRIVER SET_TXPOWER ";

/** Ends the benchmark when the daemon's side doesn't play its part. */
void require(bool condition) {
    if (!condition) {
        abort();
    }
}

bool begins(const std::string& text, std::string_view prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

/** Log lines are written, as the daemon writes them, but to nobody. */
class WrittenLog {
  public:
    WrittenLog() : before_(dup(STDERR_FILENO)), nobody_(open("/dev/null", O_WRONLY | O_CLOEXEC)) {
        dup2(nobody_.get(), STDERR_FILENO);
        __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    }
    ~WrittenLog() {
        __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
        dup2(before_.get(), STDERR_FILENO);
    }
    WrittenLog(const WrittenLog&) = delete;
    WrittenLog& operator=(const WrittenLog&) = delete;

  private:
    const unique_fd before_;
    const unique_fd nobody_;
};

/** The supplicant's part in samples: somebody asks for one, and waits until it comes. */
class SampleAsker {
  public:
    // From one to the other the step changes, between the lower and the middle one.
    static constexpr std::string_view kStrong = "RSSI=-40\nLINKSPEED=780\nFREQUENCY=5180\n";
    static constexpr std::string_view kWeak = "RSSI=-62\nLINKSPEED=780\nFREQUENCY=5180\n";

    /** Receives the first question. */
    void begin(const Peer& peer) {
        poll_ = peer.receive();
        require(poll_.text == kPoll);
        takeSample(peer);  // the first one always sets the upper step
    }

    /** From the sample to the arrival of its command. */
    double takeSample(const Peer& peer) {
        strong_ = !strong_;
        const double start = now(Clock::Wall);
        peer.reply(poll_, strong_ ? kStrong : kWeak);
        const Peer::Request command = peer.receive();
        const double end = now(Clock::Wall);
        require(begins(command.text, kStep));
        peer.reply(command, "OK\n");
        poll_ = peer.receive();
        sched_yield();  // lets the other side get back to its wait
        return end - start;
    }

    /** Answers the last question. */
    void end(const Peer& peer, std::string_view reply) { peer.reply(poll_, reply); }

  private:
    Peer::Request poll_;
    bool strong_ = false;
};

/** A client of the supplicant that answers in the folder, once it is connected. */
std::shared_ptr<CorvidWifiClient> connectedClient(const std::string& folder) {
    auto client = std::make_shared<CorvidWifiClient>(folder);
    std::string reply;
    while (!client->sendWpaCtrlCmd("PING", reply, NetInterfaceType::STA)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return client;
}

/**
 * A connected station whose worker asks for the next sample as soon as the last one is dealt with.
 * Between two samples it waits for the answer.
 */
class Station {
  public:
    Station() : peer_(root_.socketDirectory() + "wlan0") {
        root_.setProperty("persist.vendor.wifi.txpower.enable.sta", "true");
        peer_.serve();
        client_ = connectedClient(root_.socketDirectory());
        client_->setCompositionRoot(&composition_);
        composition_.sta = std::make_shared<StaManager>(client_, kNoWait);
        txPower_ = std::make_unique<TxPowerManager>(client_);
        peer_.stop();

        peer_.send("<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:00:01 completed");
        const Peer::Request atConnection = peer_.receive();
        require(atConnection.text == kPoll);
        peer_.reply(atConnection, SampleAsker::kStrong);
        const Peer::Request oldLink = peer_.receive();
        require(begins(oldLink.text, kStep));
        peer_.reply(oldLink, "OK\n");
        asker_.begin(peer_);
    }

    ~Station() {
        // Somebody answers while everything goes.
        peer_.serve();
        asker_.end(peer_, SampleAsker::kStrong);
        txPower_.reset();
        composition_.sta.reset();
        client_->setCompositionRoot(nullptr);
        client_.reset();
    }

    double takeSample() { return asker_.takeSample(peer_); }

  private:
    test::DeviceRoot root_;
    test::FakeCompositionRoot composition_;
    Peer peer_;
    std::shared_ptr<CorvidWifiClient> client_;
    std::unique_ptr<TxPowerManager> txPower_;
    SampleAsker asker_;
};

/** The C program: an event comes, and a command answers it. */
class BareLoop {
  public:
    BareLoop() : peer_(folder_.file("wlan0")), stop_(eventfd(0, EFD_CLOEXEC)) {
        peer_.serve();
        require(bare_open(&client_, folder_.file("wlan0").c_str()) == 0);
        peer_.stop();
        loop_ = std::thread([this] {
            bare_answer(&client_, 1, kEventPrefix.data(), "DRIVER SET_TXPOWER 9", stop_.get());
        });
    }

    ~BareLoop() {
        eventfd_write(stop_.get(), 1);
        loop_.join();
        bare_close(&client_);
    }

    double takeEvent() {
        const double start = now(Clock::Wall);
        peer_.send(kEvent);
        const Peer::Request command = peer_.receive();
        const double end = now(Clock::Wall);
        peer_.reply(command, "OK\n");
        sched_yield();  // lets it get back to its wait
        return end - start;
    }

  private:
    test::TempFolder folder_;
    Peer peer_;
    const unique_fd stop_;
    bare_client client_ = {};
    std::thread loop_;
};

/** A station manager alone, which asks for the signal at every new connection. */
class ConnectingStation {
  public:
    ConnectingStation() : peer_(root_.socketDirectory() + "wlan0") {
        peer_.serve();
        client_ = connectedClient(root_.socketDirectory());
        client_->setCompositionRoot(&composition_);
        composition_.sta = std::make_shared<StaManager>(client_);
        handle_ = client_->registerWpaCallback(WifiClientCallbackType::WPA_STA_SCAN_RESULTS,
                                               answer_, NetInterfaceType::STA);
        peer_.stop();
    }

    ~ConnectingStation() {
        peer_.serve();  // somebody answers while everything goes
        client_->unregisterWpaCallback(WifiClientCallbackType::WPA_STA_SCAN_RESULTS, handle_,
                                       NetInterfaceType::STA);
        composition_.sta.reset();
        client_->setCompositionRoot(nullptr);
        client_.reset();
    }

    /** From the event to the arrival of the question. */
    double connect() {
        const double start = now(Clock::Wall);
        peer_.send("<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:00:01 completed");
        const Peer::Request poll = peer_.receive();
        const double end = now(Clock::Wall);
        require(poll.text == kPoll);
        peer_.reply(poll, kReply);
        // The connection has more to do. Its thread takes the next event when it is done.
        peer_.send(kEvent);
        peer_.reply(peer_.receive(), "OK\n");
        sched_yield();  // lets it get back to its wait
        return end - start;
    }

  private:
    test::DeviceRoot root_;
    test::FakeCompositionRoot composition_;
    Peer peer_;
    std::shared_ptr<CorvidWifiClient> client_;
    int handle_ = -1;
    std::function<void(const std::string&)> answer_ = [this](const std::string&) {
        std::string reply;
        client_->sendWpaCtrlCmd("PING", reply, NetInterfaceType::STA);
    };
};

/** The C program that takes the daemon's steps. */
class BareSampler {
  public:
    BareSampler() : peer_(folder_.file("wlan0")) {
        std::filesystem::create_directories(folder_.file("dev/__properties__"));
        peer_.serve();
        require(bare_open(&client_, folder_.file("wlan0").c_str()) == 0);
        peer_.stop();
        loop_ = std::thread([this] {
            const std::string property =
                folder_.file("dev/__properties__/persist.vendor.wifi.txpower.enable.handtracking");
            bare_sample(&client_, property.c_str());
        });
        asker_.begin(peer_);
    }

    ~BareSampler() {
        asker_.end(peer_, "FAIL\n");
        loop_.join();
        bare_close(&client_);
    }

    double takeSample() { return asker_.takeSample(peer_); }

  private:
    test::TempFolder folder_;
    Peer peer_;
    bare_client client_ = {};
    std::thread loop_;
    SampleAsker asker_;
};

void sampleToCommand(benchmark::State& state) {
    constexpr int kSamples = 20;
    const OneProcessor oneProcessor;
    const WrittenLog log;
    Station station;
    BareLoop bare;
    BareSampler sampler;
    Rounds againstLoop;
    Rounds againstSampler;
    // Each side some times in a row: what it does outside of its time must not cost the next one.
    const auto time = [](auto take) {
        double sum = 0;
        for (int i = 0; i < kSamples; ++i) {
            sum += take();
        }
        return sum;
    };
    for ([[maybe_unused]] auto _ : state) {
        const double loop = time([&] { return bare.takeEvent(); });
        const double same = time([&] { return sampler.takeSample(); });
        const double subject = time([&] { return station.takeSample(); });
        againstLoop.add(state, subject, loop);
        againstSampler.add(state, subject, same);
    }
    report(state, "Signal sample to the power command / bare C loop", againstLoop, kSamples, 1.10);
    report(state, "Signal sample to the power command / same steps in C", againstSampler, kSamples,
           kNoTarget);
}
BENCHMARK(sampleToCommand)->UseManualTime();

void connectionToPoll(benchmark::State& state) {
    constexpr int kConnections = 20;
    const OneProcessor oneProcessor;
    const WrittenLog log;
    ConnectingStation station;
    BareLoop bare;
    Rounds rounds;
    for ([[maybe_unused]] auto _ : state) {
        double subject = 0;
        double baseline = 0;
        for (int i = 0; i < kConnections; ++i) {
            baseline += bare.takeEvent();
            subject += station.connect();
        }
        rounds.add(state, subject, baseline);
    }
    report(state, "New connection to its signal poll / bare C loop", rounds, kConnections, 1.20);
}
BENCHMARK(connectionToPoll)->UseManualTime();

}  // namespace
}  // namespace corvid::benchmarks
