#pragma once

namespace test {

/** Whether the tests are compiled for another machine's processor, and so run by an emulator. */
#ifdef CORVID_EMULATED
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

}  // namespace test
