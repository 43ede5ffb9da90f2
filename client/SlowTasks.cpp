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
    return entries_;
}

void SlowTasks::noteSlow_(Kind kind, std::string_view name, int64_t durationNs, const Moment& now) {
    {
        MutexLock lock(mutex_);
        auto entry = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& known) {
            return known.kind == kind && known.name == name;
        });
        if (entry == entries_.end()) {
            if (entries_.size() == kMaxNames) {
                entries_.erase(std::min_element(entries_.begin(), entries_.end(),
                                                [](const Entry& a, const Entry& b) {
                                                    return a.last.monotonicNs < b.last.monotonicNs;
                                                }));
            }
            entry = entries_.insert(entries_.end(), {kind, std::string(name), 0, 0, {}});
        }
        ++entry->count;
        entry->longestNs = std::max(entry->longestNs, durationNs);
        entry->last = now;
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
