// CallbackMap::trigger against boost::signals2, which gives its slots much the same guarantees.

#include <functional>
#include <string>
#include <vector>

#include <boost/signals2/signal.hpp>

#include "Compare.h"
#include "client/CallbackMap.h"

namespace corvid::benchmarks {
namespace {

using Ursa::OS::Wifi::CallbackMap;

constexpr int kCalls = 20'000;  // in a round, of all subscribers together

void trigger(benchmark::State& state) {
    const int subscribers = static_cast<int>(state.range(0));
    const std::string payload = "- Connection to 00:11:22:33:44:55 completed";
    size_t received = 0;
    const auto subscriber = [&received](const std::string& text) { received += text.size(); };

    CallbackMap<const std::string&> map;
    std::vector<std::function<void(const std::string&)>> functions(static_cast<size_t>(subscribers),
                                                                   subscriber);
    boost::signals2::signal<void(const std::string&)> signal;
    for (auto& function : functions) {
        map.registerCallback(function);
#ifndef __clang_analyzer__  // it takes boost's counted connection for one that is freed twice
        signal.connect(subscriber);
#endif
    }

    compare(
        state, "CallbackMap, " + std::to_string(subscribers) + " subscribers / signals2", 1.00,
        Clock::ThreadCpu, kCalls / subscribers, [&] { map.trigger(payload); },
        [&] { signal(payload); });
    benchmark::DoNotOptimize(received);
}
BENCHMARK(trigger)->UseManualTime()->Arg(1)->Arg(5)->Arg(20)->Arg(64);

/**
 * A subscription that begins and ends beside others. Only a trigger frees the map's places, so both
 * sides call their subscribers once in a while.
 */
void subscribe(benchmark::State& state) {
    constexpr int kOthers = 20;
    constexpr int kPairs = 40;  // as many as fit beside the others
    const std::string payload = "- Connection to 00:11:22:33:44:55 completed";
    size_t received = 0;
    const auto subscriber = [&received](const std::string& text) { received += text.size(); };

    CallbackMap<const std::string&> map;
    std::vector<std::function<void(const std::string&)>> functions(kOthers, subscriber);
    boost::signals2::signal<void(const std::string&)> signal;
    for (auto& function : functions) {
        map.registerCallback(function);
#ifndef __clang_analyzer__  // see above
        signal.connect(subscriber);
#endif
    }

    compare(
        state, "CallbackMap, register and unregister, 20 there / signals2", 1.40, Clock::ThreadCpu,
        200,
        [&] {
            for (int i = 0; i < kPairs; ++i) {
                std::function<void(const std::string&)> function = subscriber;
                map.unregisterCallback(map.registerCallback(function));
            }
            map.trigger(payload);
        },
        [&] {
            for (int i = 0; i < kPairs; ++i) {
#ifndef __clang_analyzer__
                signal.connect(subscriber).disconnect();
#endif
            }
            signal(payload);
        });
    benchmark::DoNotOptimize(received);
}
BENCHMARK(subscribe)->UseManualTime();

}  // namespace
}  // namespace corvid::benchmarks
