#pragma once

#include <chrono>

#include "tests/support/Emulated.h"

namespace test {

/**
 * How long a test waits for what it expects, which takes less also on a busy machine unless it is
 * prescribed to take longer. Only a test that fails waits so long.
 */
constexpr std::chrono::seconds kPatience{kEmulated ? 120 : 30};

}  // namespace test
