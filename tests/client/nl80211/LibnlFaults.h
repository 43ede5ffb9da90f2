#pragma once

#include <chrono>

namespace test {

/** Calls of libnl that fail in a way that no peer can bring about. */
enum class LibnlCall {
    SocketAlloc,
    CallbackAlloc,
    MessageAlloc,
    PutU32,
    Send,
    Receive,         ///< fails, as when the kernel had no memory for the answer
    ReceiveNothing,  ///< the connection was closed
    Convert,         ///< out of memory for one message of a packet
};

/**
 * The daemon's next call of this function but for `calls` before it fails without any effect; the
 * ones after it work.
 */
void failNext(LibnlCall call, int calls = 0);

/**
 * The daemon's next receive but for `calls` before it returns late, as if the process had been
 * stopped: once another packet is there, and `pause` after that.
 */
void pauseAfterReceive(std::chrono::milliseconds pause, int calls = 0);

/** Whether a failure was ordered that has not happened yet. */
bool isFaultPending();

}  // namespace test
