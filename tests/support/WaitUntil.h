#pragma once

#include <chrono>
#include <thread>

namespace test {

/** Waits, at most 30 s, until `condition` returns true. Returns whether it did. */
template <typename Condition>
bool waitUntil(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace test
