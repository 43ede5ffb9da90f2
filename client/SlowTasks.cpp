#include "client/SlowTasks.h"

#include <algorithm>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

SlowTasks& SlowTasks::ofProcess() {
    static SlowTasks tasks;
    return tasks;
}

std::vector<SlowTasks::Entry> SlowTasks::entries() const {
    MutexLock lock(mutex_);
    return {entries_.begin(), entries_.begin() + count_};
}

SlowTasks::Entry& SlowTasks::entryOf_(Kind kind, std::string_view name) {
    const auto end = entries_.begin() + count_;
    const auto found = std::find_if(entries_.begin(), end, [&](const Entry& known) {
        return known.kind == kind && known.name() == name;
    });
    if (found != end) {
        return *found;
    }
    if (count_ == kMaxNames) {
        const auto oldest = std::min_element(
            entries_.begin(), end,
            [](const Entry& a, const Entry& b) { return a.last.monotonicNs < b.last.monotonicNs; });
        std::move(oldest + 1, end, oldest);
        --count_;
    }
    Entry& entry = entries_[count_++];
    entry = {};
    entry.kind = kind;
    entry.nameLength = name.copy(entry.nameText.data(), Entry::kNameSize);
    return entry;
}

void SlowTasks::noteSlow_(Kind kind, std::string_view name, int64_t durationNs,
                          const Moment& now) noexcept {
    name = name.substr(0, Entry::kNameSize);
    {
        MutexLock lock(mutex_);
        Entry& entry = entryOf_(kind, name);
        ++entry.count;
        entry.longestNs = std::max(entry.longestNs, durationNs);
        entry.last = now;
        int64_t& warned = warnedNs_[static_cast<size_t>(kind)];
        if (warned != 0 && now.monotonicNs - warned < kQuietNs) {
            return;
        }
        warned = now.monotonicNs;
    }
    WIFI_LOGW("%s %.*s took %d ms", kind == Kind::Subscriber ? "subscriber" : "client callback",
              static_cast<int>(name.size()), name.data(), static_cast<int>(durationNs / 1'000'000));
}

}  // namespace Ursa::OS::Wifi
