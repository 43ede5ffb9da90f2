#pragma once

namespace Ursa::OS {

/**
 * The calling thread's id, as gettid(2) gives it, but without a system call from the thread's
 * second call on. Right in the child of a fork(), too. Any thread.
 */
int threadId();

}  // namespace Ursa::OS
