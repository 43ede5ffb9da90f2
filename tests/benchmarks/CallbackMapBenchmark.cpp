// CallbackMap::trigger against boost::signals2, which gives its slots much the same guarantees.

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <boost/signals2/signal.hpp>

#include "Compare.h"
#include "client/CallbackMap.h"
#include "os/Mutex.h"

namespace corvid::benchmarks {
namespace {

using Ursa::OS::ExclusiveLock;
using Ursa::OS::SharedLock;
using Ursa::OS::SharedMutex;
using Ursa::OS::Wifi::CallbackMap;
using Ursa::OS::Wifi::CallbackMapElement;

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
 * The three containers of a CallbackMap and their locks, and nothing else: what a subscription must
 * cost. There is neither what lets a trigger find out without a lock that nothing has changed, nor
 * the handles' capacity and wrap.
 */
class ContainersAndLocks {
  public:
    using Callback = std::function<void(const std::string&)>;

    int registerCallback(Callback& callback) {
        auto element = std::make_shared<Element>(callback);
        ExclusiveLock activeLock(activeMutex_);
        const int handle = next_++;
        {
            ExclusiveLock elementsLock(elementsMutex_);
            elements_.emplace_hint(elements_.end(), handle, std::move(element));
        }
        active_.insert(active_.end(), handle);
        return handle;
    }

    void unregisterCallback(int handle) {
        {
            ExclusiveLock activeLock(activeMutex_);
            const auto found = active_.find(handle);
            ExclusiveLock inactiveLock(inactiveMutex_);
            inactive_.insert(inactive_.end(), active_.extract(found));
        }
        std::shared_ptr<Element> element;
        {
            SharedLock elementsLock(elementsMutex_);
            element = elements_.find(handle)->second;
        }
        element->remove();
    }

    void trigger(const std::string& value) {
        {
            SharedLock elementsLock(elementsMutex_);
            SharedLock activeLock(activeMutex_);
            for (const int handle : active_) {
                elements_.find(handle)->second->call(value);
            }
        }
        ExclusiveLock inactiveLock(inactiveMutex_);
        ExclusiveLock elementsLock(elementsMutex_);
        for (const int handle : inactive_) {
            elements_.erase(handle);
        }
        inactive_.clear();
    }

  private:
    using Element = CallbackMapElement<Callback>;

    SharedMutex activeMutex_;
    std::set<int> active_ GUARDED_BY(activeMutex_);
    int next_ GUARDED_BY(activeMutex_) = 0;
    SharedMutex inactiveMutex_;
    std::set<int> inactive_ GUARDED_BY(inactiveMutex_);
    SharedMutex elementsMutex_;
    std::map<int, std::shared_ptr<Element>> elements_ GUARDED_BY(elementsMutex_);
};

/**
 * A subscription that begins and ends beside others. Only a trigger frees the map's places, so both
 * sides call their subscribers once in a while.
 */
template <typename Subscribers>
void subscribe(benchmark::State& state, const std::string& name, double max) {
    constexpr int kOthers = 20;
    constexpr int kPairs = 40;  // as many as fit beside the others
    const std::string payload = "- Connection to 00:11:22:33:44:55 completed";
    size_t received = 0;
    const auto subscriber = [&received](const std::string& text) { received += text.size(); };

    Subscribers subscribers;
    std::vector<std::function<void(const std::string&)>> functions(kOthers, subscriber);
    boost::signals2::signal<void(const std::string&)> signal;
    for (auto& function : functions) {
        subscribers.registerCallback(function);
#ifndef __clang_analyzer__  // see above
        signal.connect(subscriber);
#endif
    }

    compare(
        state, name, max, Clock::ThreadCpu, 200,
        [&] {
            for (int i = 0; i < kPairs; ++i) {
                std::function<void(const std::string&)> function = subscriber;
                subscribers.unregisterCallback(subscribers.registerCallback(function));
            }
            subscribers.trigger(payload);
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

void subscribeToMap(benchmark::State& state) {
    subscribe<CallbackMap<const std::string&>>(
        state, "CallbackMap, register and unregister, 20 there / signals2", 1.40);
}
BENCHMARK(subscribeToMap)->UseManualTime();

void subscribeToContainers(benchmark::State& state) {
    subscribe<ContainersAndLocks>(state, "The same by its containers and locks alone / signals2",
                                  kNoTarget);
}
BENCHMARK(subscribeToContainers)->UseManualTime();

}  // namespace
}  // namespace corvid::benchmarks
