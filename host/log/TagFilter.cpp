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

int TagFilter::levelOf(std::string_view word) {
    static constexpr std::string_view kLetters = "VDIWEFS";  // from ANDROID_LOG_VERBOSE upwards
    if (word.empty()) {
        return 0;
    }
    const int upper = std::toupper(static_cast<unsigned char>(word.front()));
    const size_t level = kLetters.find(static_cast<char>(upper));
    return level == std::string_view::npos ? 0 : ANDROID_LOG_VERBOSE + static_cast<int>(level);
}

void TagFilter::add_(std::string_view word) {
    const size_t colon = word.find(':');
    if (colon == 0 || colon == std::string_view::npos) {
        return;
    }
    const int lowest = levelOf(word.substr(colon + 1));
    if (lowest == 0) {
        return;
    }
    const std::string tag(word.substr(0, colon));
    if (tag == "*") {
        lowestOfOthers_ = lowest;
    } else {
        lowestByTag_[tag] = lowest;
    }
}

int TagFilter::lowest(std::string_view tag) const {
    const auto entry = lowestByTag_.find(tag);
    return entry != lowestByTag_.end() ? entry->second : lowestOfOthers_;
}

}  // namespace host
