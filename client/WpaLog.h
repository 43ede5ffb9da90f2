#pragma once

#include "client/NetInterfaceType.h"
#include "os/Log.h"

/** Logs a line of one supplicant connection. It begins "[WPA-STA]", without the source's name. */
#define WPA_LOG(level, type, ...) WPA_LOG_WITH_END(level, type, __VA_ARGS__, "")
// A macro's "..." must not be empty in C++17; so there is always an argument, which prints nothing.
#define WPA_LOG_WITH_END(level, type, format, ...) \
    ALOG##level("[WPA-%s] " format "%s", toString(type), __VA_ARGS__)
