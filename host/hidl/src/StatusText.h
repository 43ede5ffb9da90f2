#pragma once

#include <string>

#include <utils/Errors.h>

namespace host::hidl {

/** A status by its name, for people. Debian's libutils declares such a function and has none. */
std::string statusText(android::status_t status);

}  // namespace host::hidl
