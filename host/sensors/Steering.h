#pragma once

namespace Ursa::Sensors {

/**
 * Whether an operation goes on, as the system property that steers it says; the property is read at
 * each call.
 *
 * Returns false when the value is `failure`. "hang" does not return: it blocks until the thread is
 * ended, which a signal handler may do with pthread_exit. Unset, "ok", and (with an error line in
 * the log) any other value return true.
 */
bool goesOn(const char* property, const char* failure = "");

}  // namespace Ursa::Sensors
