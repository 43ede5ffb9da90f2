#pragma once

#include <malloc.h>

#include <cstddef>

#include "tests/support/Descriptors.h"

namespace test {

/** What this process has in its hands when it is made: what something done often may not add to. */
struct Footprint {
    int threads = runningThreads();
    int descriptors = openDescriptors();
    size_t bytes = mallinfo2().uordblks;  ///< allocated; 0 under a sanitizer

    /** How many more bytes were allocated than then. */
    long grownSince(const Footprint& before) const {
        return static_cast<long>(bytes) - static_cast<long>(before.bytes);
    }
};

}  // namespace test
