#pragma once

namespace test {

/** Whether the tests are compiled for another machine's processor, and so run by an emulator. */
#ifdef CORVID_EMULATED
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

/** The threads that the emulator has in each process, beside the program's own. */
constexpr unsigned kEmulatorThreads = kEmulated ? 1 : 0;

}  // namespace test
