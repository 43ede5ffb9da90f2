// How the cost of a trigger grows with its subscribers, and that of an interface look-up with the
// interfaces that the kernel knows. growth.py draws them; there is nothing to compare with.

#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <linux/nl80211.h>

#include "client/CallbackMap.h"
#include "client/Nl80211Client.h"
#include "tests/support/FakeNl80211.h"
#include "tests/support/TempFolder.h"

namespace corvid::benchmarks {
namespace {

using Ursa::OS::Wifi::CallbackMap;
using Ursa::OS::Wifi::NetInterfaceType;
using Ursa::OS::Wifi::Nl80211Client;

void subscribers(benchmark::State& state) {
    // The daemon has two threads; with one, the C library's locks would cost next to nothing.
    std::promise<void> end;
    std::thread second([stop = end.get_future()] { stop.wait(); });
    const std::string payload = "- Connection to 00:11:22:33:44:55 completed";
    size_t received = 0;
    std::vector<std::function<void(const std::string&)>> functions(
        static_cast<size_t>(state.range(0)),
        [&received](const std::string& text) { received += text.size(); });
    CallbackMap<const std::string&> map;
    for (auto& function : functions) {
        map.registerCallback(function);
    }
    for ([[maybe_unused]] auto _ : state) {
        map.trigger(payload);
    }
    benchmark::DoNotOptimize(received);
    end.set_value();
    second.join();
}
BENCHMARK(subscribers)->RangeMultiplier(2)->Range(1, 64);

/** The dump's packets: as many interfaces, the P2P group's the last of them. */
std::vector<test::Bytes> dump(const test::NetlinkRequest& request, int64_t interfaces) {
    constexpr int kPerPacket = 12;  // about what the kernel puts into one
    std::vector<test::Bytes> packets;
    std::vector<test::Bytes> packet;
    for (int64_t i = 1; i <= interfaces; ++i) {
        const std::string name = i == interfaces ? "p2p-wlan0-0" : "wlan" + std::to_string(i);
        packet.push_back(test::dumpEntry(
            request, NL80211_CMD_NEW_INTERFACE,
            test::concat(
                {test::attribute(NL80211_ATTR_IFINDEX, test::number32(static_cast<uint32_t>(i))),
                 test::attribute(NL80211_ATTR_IFNAME, test::terminatedText(name)),
                 test::attribute(NL80211_ATTR_MAC, test::Bytes(6))})));
        if (packet.size() == kPerPacket || i == interfaces) {
            packets.push_back(test::concat(std::exchange(packet, {})));
        }
    }
    packets.push_back(test::done(request));
    return packets;
}

void interfaces(benchmark::State& state) {
    const test::TempFolder root;
    setenv("CORVID_WIFI_ROOT", root.path().c_str(), 1);
    test::FakeNl80211 kernel(root.path());
    kernel.answer(
        [&](const test::NetlinkRequest& request) { return dump(request, state.range(0)); });
    Nl80211Client client;
    for ([[maybe_unused]] auto _ : state) {
        const char* name = client.getNetInterfaceName(NetInterfaceType::P2P);
        if (name == nullptr || strcmp(name, "p2p-wlan0-0") != 0) {
            state.SkipWithError("the interface was not found");
            return;
        }
        kernel.forgetRequests();
    }
}
BENCHMARK(interfaces)
    ->Arg(1)
    ->Arg(2)
    ->Arg(5)
    ->Arg(10)
    ->Arg(20)
    ->Arg(50)
    ->Arg(100)
    ->Arg(200)
    ->Arg(500);

}  // namespace
}  // namespace corvid::benchmarks
