#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "managers/support/RelayListener.h"

namespace Ursa::OS::Wifi {

namespace {

using Listener = RelayListener<>;

bool isLinked(Listener& listener) { return *listener.lock() != nullptr; }

TEST(RelayListener, AnEmptyFunctionIsNoListener) {
    Listener listener;
    EXPECT_TRUE(listener.link(nullptr));
    EXPECT_FALSE(isLinked(listener));
    EXPECT_TRUE(listener.link([] {}));
    EXPECT_TRUE(isLinked(listener));
    EXPECT_FALSE(listener.link(nullptr));
    EXPECT_TRUE(isLinked(listener));
}

/** Runs both at the same time, beginning while the listener's mutex is held. */
template <typename First, typename Second>
void race(Listener& listener, First first, Second second) {
    std::atomic<int> begun{0};
    std::thread one;
    std::thread two;
    {
        const auto held = listener.lock();
        one = std::thread([&] {
            ++begun;
            first();
        });
        two = std::thread([&] {
            ++begun;
            second();
        });
        while (begun < 2) {
            std::this_thread::yield();
        }
    }
    one.join();
    two.join();
}

TEST(RelayListener, LinkingWhileAnotherUnlinksLeavesALinkedListenerOrNone) {
    for (int i = 0; i < 2000; ++i) {
        Listener listener;
        race(
            listener, [&] { listener.link([] {}); }, [&] { listener.unlink(); });
        const bool linked = isLinked(listener);
        ASSERT_EQ(listener.link([] {}), !linked) << "round " << i;
    }
}

TEST(RelayListener, OfTwoThatLinkAtOnceOneIsRefused) {
    for (int i = 0; i < 2000; ++i) {
        Listener listener;
        std::atomic<int> accepted{0};
        const auto link = [&] { accepted += listener.link([] {}) ? 1 : 0; };
        race(listener, link, link);
        ASSERT_EQ(accepted, 1) << "round " << i;
    }
}

}  // namespace

}  // namespace Ursa::OS::Wifi
