#pragma once

/* Read by C and C++: FailCalls.c shares it with the test that preloads it into a daemon. */

/** One kind of call. Plain numbers, changed with the compiler's atomic builtins. */
struct FailedCall {
    long count;  /**< calls until now */
    long failAt; /**< the number of the call that fails; 0: none */
};

struct FailCalls {
    struct FailedCall memory; /**< malloc, calloc, realloc */
    struct FailedCall thread; /**< pthread_create */
};
