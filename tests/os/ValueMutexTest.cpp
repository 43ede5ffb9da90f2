#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "os/ValueMutex.h"

namespace Ursa::OS {
namespace {

TEST(ValueMutex, ValueIsBuiltFromTheArgumentsAndReachedThroughTheLock) {
    ValueMutexBase<std::string, std::mutex> text(3, 'x');
    EXPECT_EQ(text.lock()->size(), 3u);
    *text.lock() = "changed";
    EXPECT_EQ(*text.lock(), "changed");
}

TEST(ValueMutex, MutatorReachesTheEntriesOfAGuardedContainer) {
    std::mutex mutex;
    std::map<std::string, int> tasks;
    {
        const ValueMutator guarded(mutex, tasks);
        guarded["StaManager.worker"] = 17;
        std::thread([&] { EXPECT_FALSE(mutex.try_lock()); }).join();
    }
    EXPECT_EQ(tasks.at("StaManager.worker"), 17);
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(ValueMutex, ManyThreadsChangeTheValueOneAtATime) {
    ValueMutexBase<int, std::mutex> counter(0);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                ++*counter.lock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(*counter.lock(), 4000);
}

}  // namespace
}  // namespace Ursa::OS
