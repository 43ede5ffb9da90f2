#pragma once

#include <stddef.h>
#include <stdint.h>

/**
 * System properties, with the names and types of the device's libc. On a host the property NAME is
 * the file dev/__properties__/NAME (inside CORVID_WIFI_ROOT, when that is set): its content is the
 * value, except for one trailing newline. Without the file the property is not set. The file is
 * read at every read, so a change (a rename over the file) is seen by the next one.
 *
 * Every function may be called from any thread.
 */

// NOLINTBEGIN(bugprone-reserved-identifier): libc's own names.

#ifdef __cplusplus
extern "C" {
#endif

/** A property that was set once. Valid as long as the process lives. */
typedef struct prop_info prop_info;

/** Room for the value of a property that can change, terminating NUL included. */
#define PROP_VALUE_MAX 92

/** The property of that name, or null when it is not set. */
const prop_info* __system_property_find(const char* name);

/**
 * Calls `callback` once, on this thread, with the property's name and its current value, of
 * whatever length; a property that is no longer set has an empty value. Both texts are valid during
 * the call only. `serial` is 0: a host does not count changes.
 */
void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name,
                                                      const char* value, uint32_t serial),
                                     void* cookie);

/**
 * Copies the value, at most PROP_VALUE_MAX - 1 characters of it, and a NUL to `value`. Returns the
 * number of characters; a property that is not set gives an empty value and 0.
 */
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif

// NOLINTEND(bugprone-reserved-identifier)
