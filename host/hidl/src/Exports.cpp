#include "Exports.h"

#include <utility>

#include "Process.h"

namespace host::hidl {

using android::sp;
using android::hardware::BHwBinder;

Exports::Pin& Exports::Pin::operator=(Pin&& other) noexcept {
    std::swap(exports_, other.exports_);
    std::swap(object_, other.object_);
    return *this;
}

Exports::Pin::~Pin() {
    if (exports_ != nullptr) {
        exports_->release(object_, 1);
    }
}

Exports::Pin Exports::pin(const sp<BHwBinder>& binder) {
    const android::Mutex::Autolock lock(mutex_);
    uint64_t& number = numbers_[binder.get()];
    if (number == 0) {
        number = ++lastNumber_;
        entries_[number] = {binder, 0, 0};
    }
    ++entries_[number].uses;
    return {this, number};
}

sp<BHwBinder> Exports::find(uint64_t object) {
    const android::Mutex::Autolock lock(mutex_);
    const auto entry = entries_.find(object);
    return entry == entries_.end() ? nullptr : entry->second.binder;
}

bool Exports::acquire(uint64_t object) {
    const android::Mutex::Autolock lock(mutex_);
    const auto entry = entries_.find(object);
    if (entry == entries_.end()) {
        return false;
    }
    ++entry->second.uses;
    return true;
}

void Exports::release(uint64_t object, uint32_t uses) {
    {
        const android::Mutex::Autolock lock(mutex_);
        Entry& entry = entries_.at(object);
        entry.uses -= uses;
        if (entry.uses > 0) {
            return;
        }
        entry.unusedSince = ++moments_;
        unused_.push_back(object);
    }
    Process::self().server().wake();
}

uint64_t Exports::lastUnused() {
    const android::Mutex::Autolock lock(mutex_);
    return unused_.empty() ? 0 : moments_;
}

void Exports::collect(uint64_t moment) {
    std::vector<sp<BHwBinder>> dropped;  // outside the lock: an object's end may use this table
    {
        const android::Mutex::Autolock lock(mutex_);
        std::vector<uint64_t> later;
        for (const uint64_t object : unused_) {
            const auto entry = entries_.find(object);
            if (entry == entries_.end() || entry->second.uses > 0) {
                continue;
            }
            if (entry->second.unusedSince > moment) {
                later.push_back(object);
                continue;
            }
            numbers_.erase(entry->second.binder.get());
            dropped.push_back(std::move(entry->second.binder));
            entries_.erase(entry);
        }
        unused_ = std::move(later);
    }
}

}  // namespace host::hidl
