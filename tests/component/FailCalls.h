#pragma once

/* Read by C and C++: FailCalls.c shares it with the test that preloads it into a daemon. */

/** One kind of call. Plain numbers, changed with the compiler's atomic builtins. */
struct FailedCall {
    long count;     /**< calls until now */
    long firstFail; /**< the number of the first call that fails; 0: none does */
    long lastFail;  /**< the number of the last one */
};

struct FailCalls {
    struct FailedCall memory; /**< malloc, calloc, realloc */
    struct FailedCall thread; /**< pthread_create */
};
