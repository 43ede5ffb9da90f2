#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/CallbackMap.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Patience.h"

namespace Ursa::OS::Wifi {

class CallbackMapTestPeer {
  public:
    template <typename T>
    static void setCounter(CallbackMap<T>& map, int value) {
        map.counter_ = value;
    }
    template <typename T>
    static bool contains(CallbackMap<T>& map, CallbackSet set, int handle) {
        return map.setContains_(set, handle);
    }
};

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Map = CallbackMap<const std::string&>;
using Callback = Map::Callback;

constexpr int kCapacity = 64;
constexpr int kLastHandle = 0x7FFFFFFE;

/** Notes its name in a list at each call. */
Callback noting(std::vector<std::string>& calls, const std::string& name) {
    return [&calls, name](const std::string& value) { calls.push_back(name + ":" + value); };
}

Callback nothing() {
    return [](const std::string&) {};
}

/** As many functions as fit, registered. */
class FullMap {
  public:
    FullMap() : callbacks_(kCapacity, nothing()) {
        for (Callback& callback : callbacks_) {
            handles.push_back(map.registerCallback(callback));
        }
    }

    Map map;
    std::vector<int> handles;

  private:
    std::vector<Callback> callbacks_;
};

TEST(CallbackMap, TriggeringAnEmptyMapDoesNothing) {
    Map map;
    EXPECT_NO_THROW(map.trigger("x"));
}

TEST(CallbackMap, HandlesCountUpFromZeroInTheOrderOfRegistration) {
    Map map;
    std::array<Callback, 3> callbacks;
    callbacks.fill(nothing());
    EXPECT_EQ(map.registerCallback(callbacks[0]), 0);
    EXPECT_EQ(map.registerCallback(callbacks[1]), 1);
    EXPECT_TRUE(map.unregisterCallback(0));
    map.trigger("clears");
    EXPECT_EQ(map.registerCallback(callbacks[2]), 2);  // not the free 0
}

TEST(CallbackMap, CallbacksRunInAscendingHandleOrder) {
    Map map;
    std::vector<std::string> calls;
    Callback a = noting(calls, "a");
    Callback b = noting(calls, "b");
    Callback c = noting(calls, "c");
    CallbackMapTestPeer::setCounter(map, 9);
    EXPECT_EQ(map.registerCallback(a), 10);
    CallbackMapTestPeer::setCounter(map, 4);
    EXPECT_EQ(map.registerCallback(b), 5);
    CallbackMapTestPeer::setCounter(map, 19);
    EXPECT_EQ(map.registerCallback(c), 20);
    map.trigger("1");
    EXPECT_THAT(calls, ElementsAre("b:1", "a:1", "c:1"));
}

TEST(CallbackMap, CallbacksRunOnTheTriggeringThread) {
    Map map;
    std::thread::id ran;
    Callback callback = [&](const std::string&) { ran = std::this_thread::get_id(); };
    map.registerCallback(callback);
    std::thread other([&] { map.trigger("x"); });
    const std::thread::id expected = other.get_id();
    other.join();
    EXPECT_EQ(ran, expected);
}

TEST(CallbackMap, ValueIsPassedToEverySubscriberUnchanged) {
    CallbackMap<std::vector<int>> map;
    std::vector<size_t> sizes;
    std::function<void(std::vector<int>)> callback = [&](std::vector<int> value) {
        sizes.push_back(value.size());
        value.clear();
    };
    std::function<void(std::vector<int>)> again = callback;
    map.registerCallback(callback);
    map.registerCallback(again);
    map.trigger({1, 2, 3});
    EXPECT_THAT(sizes, ElementsAre(3u, 3u));
}

TEST(CallbackMap, 65thLiveRegistrationIsRefused) {
    FullMap full;
    EXPECT_EQ(full.handles.back(), kCapacity - 1);
    Callback callback = nothing();
    EXPECT_EQ(full.map.registerCallback(callback), -1);
    EXPECT_TRUE(callback);
}

TEST(CallbackMap, AfterOneUnregistrationItIsStillRefusedUntilATriggerHasClearedTheHandle) {
    FullMap full;
    Callback callback = nothing();
    EXPECT_TRUE(full.map.unregisterCallback(full.handles[17]));
    EXPECT_EQ(full.map.registerCallback(callback), -1);
    full.map.trigger("x");
    EXPECT_EQ(full.map.registerCallback(callback), kCapacity);
    Callback another = nothing();
    EXPECT_EQ(full.map.registerCallback(another), -1);
}

TEST(CallbackMap, UnregisteringAHandleTwiceReturnsTrueThenFalse) {
    Map map;
    Callback callback = nothing();
    const int handle = map.registerCallback(callback);
    EXPECT_TRUE(map.unregisterCallback(handle));
    EXPECT_FALSE(map.unregisterCallback(handle));
    map.trigger("x");
    EXPECT_FALSE(map.unregisterCallback(handle));
}

TEST(CallbackMap, HandleThatWasNeverGivenOutIsNotUnregistered) {
    Map map;
    EXPECT_FALSE(map.unregisterCallback(0));
    EXPECT_FALSE(map.unregisterCallback(-1));
    EXPECT_FALSE(map.unregisterCallback(INT_MAX));
}

TEST(CallbackMap, UnregisteringEmptiesTheSubscribersFunction) {
    Map map;
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = held;
    Callback callback = [held = std::move(held)](const std::string&) {};
    map.unregisterCallback(map.registerCallback(callback));
    EXPECT_FALSE(callback);
    EXPECT_TRUE(weak.expired());
}

TEST(CallbackMap, UnregisteredHandleIsInactiveUntilTheNextTriggerHasFinished) {
    Map map;
    Callback callback = nothing();
    const int handle = map.registerCallback(callback);
    EXPECT_TRUE(CallbackMapTestPeer::contains(map, CallbackSet::Active, handle));
    map.unregisterCallback(handle);
    EXPECT_FALSE(CallbackMapTestPeer::contains(map, CallbackSet::Active, handle));
    EXPECT_TRUE(CallbackMapTestPeer::contains(map, CallbackSet::Inactive, handle));
    map.trigger("x");
    EXPECT_FALSE(CallbackMapTestPeer::contains(map, CallbackSet::Inactive, handle));
}

TEST(CallbackMap, HandlesWrapToZeroAfterTheLastOne) {
    Map map;
    std::vector<std::string> calls;
    Callback last = noting(calls, "last");
    Callback first = noting(calls, "first");
    CallbackMapTestPeer::setCounter(map, kLastHandle - 1);
    EXPECT_EQ(map.registerCallback(last), kLastHandle);
    EXPECT_EQ(map.registerCallback(first), 0);
    map.trigger("1");
    EXPECT_THAT(calls, ElementsAre("first:1", "last:1"));
}

TEST(CallbackMap, HandlesThatAreStillInUseAreSkippedAfterTheWrap) {
    Map map;
    std::array<Callback, 4> callbacks;
    callbacks.fill(nothing());
    EXPECT_EQ(map.registerCallback(callbacks[0]), 0);
    EXPECT_EQ(map.registerCallback(callbacks[1]), 1);
    EXPECT_TRUE(map.unregisterCallback(1));  // its number is not free before a trigger
    CallbackMapTestPeer::setCounter(map, kLastHandle);
    EXPECT_EQ(map.registerCallback(callbacks[2]), 2);
    map.trigger("clears");
    CallbackMapTestPeer::setCounter(map, kLastHandle);
    EXPECT_EQ(map.registerCallback(callbacks[3]), 1);
}

TEST(CallbackMap, CallbackRegisteredDuringATriggerFirstFiresOnTheNextOne) {
    Map map;
    std::vector<std::string> calls;
    Callback late = noting(calls, "late");
    int handle = -1;
    Callback registering = [&](const std::string&) {
        if (handle == -1) {
            handle = map.registerCallback(late);
        }
    };
    map.registerCallback(registering);
    map.trigger("1");
    EXPECT_EQ(handle, 1);
    EXPECT_THAT(calls, IsEmpty());
    map.trigger("2");
    EXPECT_THAT(calls, ElementsAre("late:2"));
}

TEST(CallbackMap, CallbackUnregisteredBeforeItsTurnDoesNotFire) {
    Map map;
    std::vector<std::string> calls;
    int victim = -1;
    Callback first = [&](const std::string&) { map.unregisterCallback(victim); };
    Callback second = noting(calls, "second");
    Callback third = noting(calls, "third");
    map.registerCallback(first);
    victim = map.registerCallback(second);
    map.registerCallback(third);
    map.trigger("1");
    EXPECT_THAT(calls, ElementsAre("third:1"));
}

TEST(CallbackMap, CallbackUnregisteredBeforeItsTurnOnAnotherThreadDoesNotFire) {
    Map map;
    std::vector<std::string> calls;
    int victim = -1;
    Callback first = [&](const std::string&) {
        std::thread([&] { map.unregisterCallback(victim); }).join();
    };
    Callback second = noting(calls, "second");
    map.registerCallback(first);
    victim = map.registerCallback(second);
    map.trigger("1");
    EXPECT_THAT(calls, IsEmpty());
}

TEST(CallbackMap, CallbackMayUnregisterOthersThatHaveHadTheirTurn) {
    Map map;
    std::vector<std::string> calls;
    Callback first = noting(calls, "first");
    const int handle = map.registerCallback(first);
    Callback second = [&](const std::string&) { map.unregisterCallback(handle); };
    map.registerCallback(second);
    map.trigger("1");
    map.trigger("2");
    EXPECT_THAT(calls, ElementsAre("first:1"));
}

TEST(CallbackMap, NestedTriggerRunsEveryCallbackThatIsLiveThen) {
    Map map;
    std::vector<std::string> calls;
    Callback outer = [&](const std::string& value) {
        if (value == "outer") {
            map.trigger("inner");
        }
    };
    Callback other = noting(calls, "other");
    map.registerCallback(outer);
    map.registerCallback(other);
    map.trigger("outer");
    EXPECT_THAT(calls, ElementsAre("other:inner", "other:outer"));
}

TEST(CallbackMap, NestedTriggerMayEndAndBeginSubscriptionsOfTheOuterOne) {
    Map map;
    std::vector<std::string> calls;
    Callback late = noting(calls, "late");
    int victim = -1;
    Callback outer = [&](const std::string& value) {
        if (value == "outer") {
            map.trigger("inner");
        } else if (value == "inner") {
            map.unregisterCallback(victim);
            map.registerCallback(late);
        }
    };
    Callback second = noting(calls, "second");
    Callback third = noting(calls, "third");
    map.registerCallback(outer);
    victim = map.registerCallback(second);
    map.registerCallback(third);
    map.trigger("outer");
    // The one that was unregistered fires in neither, the one that was registered in neither.
    EXPECT_THAT(calls, ElementsAre("third:inner", "third:outer"));
    map.trigger("next");
    EXPECT_THAT(calls, ElementsAre("third:inner", "third:outer", "third:next", "late:next"));
}

TEST(CallbackMap, EmptyFunctionThrowsAtTheTrigger) {
    Map map;
    Callback empty;
    map.registerCallback(empty);
    EXPECT_THROW(map.trigger("x"), std::bad_function_call);
}

TEST(CallbackMap, WhatASubscriberThrowsReachesTheProducerAndTheMapGoesOn) {
    Map map;
    std::vector<std::string> calls;
    Callback throwing = [&](const std::string& value) {
        if (value == "1") {
            throw std::runtime_error("defect");
        }
    };
    Callback other = noting(calls, "other");
    const int handle = map.registerCallback(throwing);
    map.registerCallback(other);
    EXPECT_THROW(map.trigger("1"), std::runtime_error);
    map.trigger("2");
    EXPECT_THAT(calls, ElementsAre("other:2"));
    EXPECT_TRUE(map.unregisterCallback(handle));  // the throw left no lock behind
}

TEST(CallbackMap, DestructionDoesNotTouchTheSubscribersFunctions) {
    Callback callback = nothing();
    {
        Map map;
        map.registerCallback(callback);
    }
    EXPECT_TRUE(callback);
}

TEST(CallbackMap, ConcurrentTriggersRunTheSameCallbackAtTheSameTime) {
    Map map;
    std::atomic<int> inside{0};
    std::promise<void> both;
    const std::shared_future<void> bothInside(both.get_future());
    Callback callback = [&](const std::string&) {
        if (++inside == 2) {
            both.set_value();
        }
        EXPECT_EQ(bothInside.wait_for(test::kPatience), std::future_status::ready);
    };
    map.registerCallback(callback);
    std::thread other([&] { map.trigger("1"); });
    map.trigger("2");
    other.join();
    EXPECT_EQ(inside, 2);
}

/** A callback that stays inside its call until the test releases it. */
class Blocked {
  public:
    Callback callback() {
        return [this](const std::string&) {
            entered_.set_value();
            release_.get_future().wait();
            finished = true;
        };
    }
    void waitUntilEntered() { entered_.get_future().wait(); }
    void release() { release_.set_value(); }

    std::atomic<bool> finished{false};

  private:
    std::promise<void> entered_;
    std::promise<void> release_;
};

TEST(CallbackMap, UnregisteringWaitsForARunningCall) {
    Map map;
    Blocked blocked;
    Callback callback = blocked.callback();
    const int handle = map.registerCallback(callback);
    std::thread producer([&] { map.trigger("x"); });
    blocked.waitUntilEntered();
    auto unregistered = std::async(std::launch::async, [&] {
        EXPECT_TRUE(map.unregisterCallback(handle));
        EXPECT_TRUE(blocked.finished);
        EXPECT_FALSE(callback);
    });
    EXPECT_EQ(unregistered.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    blocked.release();
    unregistered.get();
    producer.join();
}

TEST(CallbackMap, TwoThreadsThatEndOneSubscriptionBothWaitForItsRunningCall) {
    Map map;
    Blocked blocked;
    Callback callback = blocked.callback();
    const int handle = map.registerCallback(callback);
    std::thread producer([&] { map.trigger("x"); });
    blocked.waitUntilEntered();
    const auto end = [&] {
        const bool first = map.unregisterCallback(handle);
        EXPECT_TRUE(blocked.finished);
        return first;
    };
    auto one = std::async(std::launch::async, end);
    while (CallbackMapTestPeer::contains(map, CallbackSet::Active, handle)) {
        std::this_thread::yield();
    }
    auto other = std::async(std::launch::async, end);
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(one.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    blocked.release();
    EXPECT_TRUE(one.get());
    EXPECT_FALSE(other.get());
    producer.join();
}

TEST(CallbackMap, AfterEitherOfTwoEndsTheSubscriberMayBeDestroyed) {
    Map map;
    std::atomic<bool> stop{false};
    std::thread producer([&] {
        while (!stop) {
            map.trigger("x");
        }
    });
    for (int round = 0; round < 500; ++round) {
        // Destroyed by whichever thread returns first.
        auto calls = std::make_unique<std::atomic<int>>(0);
        auto callback =
            std::make_unique<Callback>([calls = calls.get()](const std::string&) { ++*calls; });
        const int handle = map.registerCallback(*callback);
        ASSERT_NE(handle, -1);
        while (round % 2 == 0 && *calls == 0) {
            std::this_thread::yield();
        }
        std::atomic<bool> destroyed{false};
        const auto end = [&] {
            map.unregisterCallback(handle);
            if (!destroyed.exchange(true)) {
                callback.reset();
                calls.reset();
            }
        };
        std::thread other(end);
        end();
        other.join();
        map.trigger("clears");
    }
    stop = true;
    producer.join();
}

TEST(CallbackMap, TriggerDoesNotFreeAHandleWhoseUnregistrationIsUnderWay) {
    Map map;
    Blocked blocked;
    Callback callback = blocked.callback();
    const int handle = map.registerCallback(callback);
    std::thread producer([&] { map.trigger("x"); });
    blocked.waitUntilEntered();
    std::thread unregistering([&] { map.unregisterCallback(handle); });
    while (CallbackMapTestPeer::contains(map, CallbackSet::Active, handle)) {
        std::this_thread::yield();
    }
    map.trigger("skips it and keeps its number");
    EXPECT_TRUE(CallbackMapTestPeer::contains(map, CallbackSet::Inactive, handle));
    blocked.release();
    unregistering.join();
    producer.join();
    map.trigger("clears");
    EXPECT_FALSE(CallbackMapTestPeer::contains(map, CallbackSet::Inactive, handle));
}

TEST(CallbackMap, SubscriberThatIsBeingUnregisteredIsNotCalledByATriggerUnderWay) {
    Map map;
    std::promise<void> snapshotTaken;
    std::promise<void> goOn;
    Callback first = [&](const std::string& value) {
        if (value == "late") {
            snapshotTaken.set_value();
            goOn.get_future().wait();
        }
    };
    map.registerCallback(first);
    Blocked blocked;
    std::atomic<int> calls{0};
    Callback second = [&calls, block = blocked.callback()](const std::string& value) {
        if (++calls == 1) {
            block(value);
        }
    };
    const int handle = map.registerCallback(second);

    std::thread early([&] { map.trigger("early"); });
    blocked.waitUntilEntered();
    std::thread late([&] { map.trigger("late"); });
    snapshotTaken.get_future().wait();
    // Waits for the early call, so the element itself does not refuse a second one yet.
    std::thread unregistering([&] { map.unregisterCallback(handle); });
    while (CallbackMapTestPeer::contains(map, CallbackSet::Active, handle)) {
        std::this_thread::yield();
    }
    goOn.set_value();
    late.join();
    EXPECT_EQ(calls, 1);
    blocked.release();
    early.join();
    unregistering.join();
}

TEST(CallbackMapElement, RemovedSubscriberIsNotCalled) {
    int calls = 0;
    std::function<void(int)> function = [&calls](int) { ++calls; };
    CallbackMapElement<std::function<void(int)>> element(function);
    element.call(1);
    element.remove();
    EXPECT_TRUE(element.removed());
    function = [&calls](int) { ++calls; };  // the place may hold another function by now
    element.call(2);
    EXPECT_EQ(calls, 1);
}

TEST(CallbackMap, RunningCallbackMayRegisterWhileItsUnregistrationWaits) {
    Map map;
    Callback late = nothing();
    int handle = -1;
    std::promise<void> entered;
    Callback callback = [&](const std::string&) {
        entered.set_value();
        while (CallbackMapTestPeer::contains(map, CallbackSet::Active, handle)) {
            std::this_thread::yield();
        }
        EXPECT_NE(map.registerCallback(late), -1);
    };
    handle = map.registerCallback(callback);
    std::thread producer([&] { map.trigger("x"); });
    entered.get_future().wait();
    EXPECT_TRUE(map.unregisterCallback(handle));
    producer.join();
}

TEST(CallbackMap, OfTwoThreadsThatUnregisterAHandleOneSucceeds) {
    Map map;
    for (int round = 0; round < 200; ++round) {
        Callback callback = nothing();
        const int handle = map.registerCallback(callback);
        ASSERT_NE(handle, -1);
        std::atomic<int> successes{0};
        const auto unregister = [&] { successes += map.unregisterCallback(handle) ? 1 : 0; };
        std::thread other(unregister);
        unregister();
        other.join();
        EXPECT_EQ(successes, 1);
        map.trigger("clears");
    }
}

TEST(CallbackMap, NoMoreThanTheCapacityRegistersFromManyThreads) {
    Map map;
    std::vector<Callback> callbacks(size_t{4} * kCapacity, nothing());
    std::atomic<int> registered{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < kCapacity; ++n) {
                registered +=
                    map.registerCallback(callbacks[static_cast<size_t>(i * kCapacity + n)]) != -1
                        ? 1
                        : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(registered, kCapacity);
}

TEST(CallbackMap, SubscribersComeAndGoWhileSeveralThreadsTrigger) {
    Map map;
    std::atomic<bool> stop{false};
    std::atomic<int> calls{0};
    std::vector<std::thread> producers;
    producers.reserve(2);
    for (int i = 0; i < 2; ++i) {
        producers.emplace_back([&] {
            while (!stop) {
                map.trigger("x");
            }
        });
    }
    const auto subscribe = [&] {
        for (int n = 0; n < 300; ++n) {
            // On the heap, and destroyed as soon as the subscription has ended.
            const auto data = std::make_unique<int>(n);
            std::atomic<int> own{0};
            Callback callback = [&own, &calls, value = data.get(), n](const std::string&) {
                EXPECT_EQ(*value, n);
                ++own;
                ++calls;
            };
            const int handle = map.registerCallback(callback);
            if (handle == -1) {
                std::this_thread::yield();
                continue;
            }
            while (n % 2 == 0 && own == 0) {
                std::this_thread::yield();
            }
            EXPECT_TRUE(map.unregisterCallback(handle));
        }
    };
    std::vector<std::thread> subscribers;
    subscribers.reserve(3);
    for (int i = 0; i < 3; ++i) {
        subscribers.emplace_back(subscribe);
    }
    for (std::thread& thread : subscribers) {
        thread.join();
    }
    stop = true;
    for (std::thread& thread : producers) {
        thread.join();
    }
    EXPECT_GT(calls, 0);
}

}  // namespace
}  // namespace Ursa::OS::Wifi
