#include "os/ThreadId.h"

#include <pthread.h>
#include <unistd.h>

namespace Ursa::OS {

namespace {

thread_local int knownId = 0;  ///< 0: not asked for yet

/** The thread that comes out of a fork has another id. */
void forgetId() { knownId = 0; }

}  // namespace

int threadId() {
    if (knownId == 0) {
        [[maybe_unused]] static const int error = pthread_atfork(nullptr, nullptr, forgetId);
        knownId = gettid();
    }
    return knownId;
}

}  // namespace Ursa::OS
