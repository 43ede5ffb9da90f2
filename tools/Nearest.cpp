#include "tools/Nearest.h"

#include <strings.h>

#include <algorithm>

#include "tools/Json.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

/**
 * Whether `most` letters added, removed, replaced or swapped at most make `to` of `from`. The
 * search ends early: it is cheap for the few letters that a typo is.
 */
bool isWithin(const char* from, const char* to, int most) {
    while (*from != 0 && strncasecmp(from, to, 1) == 0) {
        ++from;
        ++to;
    }
    if (*from == 0 && *to == 0) {
        return true;
    }
    if (most == 0) {
        return false;
    }
    const bool swapped = from[0] != 0 && from[1] != 0 && strncasecmp(from, to + 1, 1) == 0 &&
                         strncasecmp(from + 1, to, 1) == 0;
    return (*from != 0 && isWithin(from + 1, to, most - 1)) ||
           (*to != 0 && isWithin(from, to + 1, most - 1)) ||
           (*from != 0 && *to != 0 && isWithin(from + 1, to + 1, most - 1)) ||
           (swapped && isWithin(from + 2, to + 2, most - 1));
}

}  // namespace

std::string didYouMean(const std::string& word, const std::vector<std::string>& known) {
    constexpr int kMost = 3;
    const int most = std::clamp(static_cast<int>(word.size() / 3), 1, kMost);
    for (int letters = 0; letters <= most; ++letters) {
        for (const std::string& candidate : known) {
            if (isWithin(word.c_str(), candidate.c_str(), letters)) {
                return " (did you mean " + toLine(candidate) + "?)";
            }
        }
    }
    return "";
}

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words) {
        out += (out.empty() ? "" : ", ") + word;
    }
    return out;
}

}  // namespace Ursa::OS::Wifi::Tools
