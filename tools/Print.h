#pragma once

#include <cstdio>
#include <string>

namespace Ursa::OS::Wifi::Tools {

/** Writes to standard output. main() checks for write errors at the end. */
inline void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

/** Whether it is a terminal that knows escape sequences. */
bool knowsEscapes(int descriptor);

/**
 * A text from elsewhere as a terminal may show it in a line: a line's end is a blank, every other
 * control character is \xHH, and bytes that are not UTF-8 are U+FFFD.
 */
std::string printable(const std::string& text);

}  // namespace Ursa::OS::Wifi::Tools
