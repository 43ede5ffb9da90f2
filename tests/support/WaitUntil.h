#pragma once

#include <chrono>
#include <thread>

#include "tests/support/Patience.h"

namespace test {

/** Waits, at most for kPatience, until `condition` returns true. Returns whether it did. */
template <typename Condition>
bool waitUntil(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace test
