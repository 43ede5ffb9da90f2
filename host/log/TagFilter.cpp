#include "TagFilter.h"

#include <algorithm>
#include <cctype>

namespace host {

TagFilter::TagFilter(std::string_view words) {
    static constexpr const char* kBlanks = " \t\n";
    size_t end = 0;
    for (size_t begin = words.find_first_not_of(kBlanks); begin != std::string_view::npos;
         begin = words.find_first_not_of(kBlanks, end)) {
        end = std::min(words.find_first_of(kBlanks, begin), words.size());
        add_(words.substr(begin, end - begin));
    }
}

void TagFilter::add_(std::string_view word) {
    static constexpr std::string_view kLetters = "VDIWEFS";  // from ANDROID_LOG_VERBOSE upwards
    const size_t colon = word.find(':');
    if (colon == 0 || colon == std::string_view::npos || colon + 2 != word.size()) {
        return;
    }
    const int letter = std::toupper(static_cast<unsigned char>(word.back()));
    const size_t level = kLetters.find(static_cast<char>(letter));
    if (level == std::string_view::npos) {
        return;
    }
    const int lowest = ANDROID_LOG_VERBOSE + static_cast<int>(level);
    const std::string tag(word.substr(0, colon));
    if (tag == "*") {
        lowestOfOthers_ = lowest;
    } else {
        lowestByTag_[tag] = lowest;
    }
}

bool TagFilter::shows(int priority, std::string_view tag) const {
    const auto entry = lowestByTag_.find(tag);
    return priority >= (entry != lowestByTag_.end() ? entry->second : lowestOfOthers_);
}

int TagFilter::lowestShown() const {
    int lowest = lowestOfOthers_;
    for (const auto& entry : lowestByTag_) {
        lowest = std::min(lowest, entry.second);
    }
    return lowest;
}

}  // namespace host
