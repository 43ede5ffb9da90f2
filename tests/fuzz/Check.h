#pragma once

#include <cstdio>
#include <cstdlib>

/** Ends the run, which makes the input a finding, unless it is so. */
#define FUZZ_CHECK(condition)                                                        \
    do {                                                                             \
        if (!(condition)) {                                                          \
            std::fprintf(stderr, "%s:%d: not %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                            \
        }                                                                            \
    } while (false)
