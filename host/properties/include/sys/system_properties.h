#pragma once

#include <stddef.h>
#include <stdint.h>

/**
 * System properties, with the names and types of the device's libc. On a host the property NAME is
 * the file dev/__properties__/NAME (inside CORVID_WIFI_ROOT, if set). Its content is the value, but
 * for one trailing newline; without the file the property is not set. Each read reads the file, so
 * it sees a rename over it. Thread-safe.
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
 * Calls `callback` once, on this thread, with the name and the current value, of any length; empty
 * if the property is no longer set. Both are valid during the call. `serial` is always 0.
 */
void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name,
                                                      const char* value, uint32_t serial),
                                     void* cookie);

/**
 * Calls `callback` on this thread for each property that is set, in the order of their names. A
 * file whose name begins with a dot is none: one may be on its way to a rename. Returns 0, or -1
 * with errno when the folder can't be read; a missing folder means that none is set.
 */
int __system_property_foreach(void (*callback)(const prop_info* property, void* cookie),
                              void* cookie);

/**
 * Sets the property; an empty value counts as one. Returns 0, or -1 with errno: the name is none
 * (EINVAL), or the file can't be written.
 */
int __system_property_set(const char* name, const char* value);

/**
 * Copies the value, cut to PROP_VALUE_MAX - 1 characters, and a NUL. Returns the number of
 * characters, 0 if the property is not set.
 */
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif

// NOLINTEND(bugprone-reserved-identifier)
