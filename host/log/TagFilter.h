#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include <android/log.h>

namespace host {

/**
 * Which log lines are shown, from ANDROID_LOG_TAGS: words "TAG:LEVEL", separated by blanks. TAG `*`
 * is every tag without a word of its own (INFO and above without one). LEVEL is V, D, I, W, E, F or
 * S (silent), in either case, or a word that begins with it ("DEBUG"). The last word about a tag
 * counts; other words are ignored. Immutable, so any thread may use it.
 */
class TagFilter {
  public:
    explicit TagFilter(std::string_view words);

    /** Whether a line of that priority (an android_LogPriority) and tag is shown. */
    bool shows(int priority, std::string_view tag) const { return priority >= lowest(tag); }

    /** The lowest priority of the tag's lines that is shown. */
    int lowest(std::string_view tag) const;

    /** The android_LogPriority of "V", "d", "debug", ...: of the first letter. 0 for another. */
    static int levelOf(std::string_view word);

  private:
    void add_(std::string_view word);

    std::map<std::string, int, std::less<>> lowestByTag_;
    int lowestOfOthers_ = ANDROID_LOG_INFO;
};

}  // namespace host
