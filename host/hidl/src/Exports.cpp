#include "Exports.h"

#include <utility>

#include "Process.h"

namespace host {
namespace hidl {

using android::sp;
using android::hardware::BHwBinder;

Exports::Pin& Exports::Pin::operator=(Pin&& other) noexcept {
    std::swap(mExports, other.mExports);
    std::swap(mObject, other.mObject);
    return *this;
}

Exports::Pin::~Pin() {
    if (mExports != nullptr) {
        mExports->release(mObject, 1);
    }
}

Exports::Pin Exports::pin(const sp<BHwBinder>& binder) {
    Lock lock(mMutex);
    uint64_t& number = mNumbers[binder.get()];
    if (number == 0) {
        number = ++mLastNumber;
        mEntries[number] = {binder, 0, 0};
    }
    ++mEntries[number].uses;
    return {this, number};
}

sp<BHwBinder> Exports::find(uint64_t object) {
    Lock lock(mMutex);
    const auto entry = mEntries.find(object);
    return entry == mEntries.end() ? nullptr : entry->second.binder;
}

bool Exports::acquire(uint64_t object) {
    Lock lock(mMutex);
    const auto entry = mEntries.find(object);
    if (entry == mEntries.end()) {
        return false;
    }
    ++entry->second.uses;
    return true;
}

void Exports::release(uint64_t object, uint32_t uses) {
    {
        Lock lock(mMutex);
        Entry& entry = mEntries.at(object);
        entry.uses -= uses;
        if (entry.uses > 0) {
            return;
        }
        entry.unusedSince = ++mMoments;
        mUnused.push_back(object);
    }
    Process::self().server().wake();
}

uint64_t Exports::lastUnused() {
    Lock lock(mMutex);
    return mUnused.empty() ? 0 : mMoments;
}

void Exports::collect(uint64_t moment) {
    std::vector<sp<BHwBinder>> dropped;  // outside the lock: an object's end may use this table
    {
        Lock lock(mMutex);
        std::vector<uint64_t> later;
        for (const uint64_t object : mUnused) {
            const auto entry = mEntries.find(object);
            if (entry == mEntries.end() || entry->second.uses > 0) {
                continue;
            }
            if (entry->second.unusedSince > moment) {
                later.push_back(object);
                continue;
            }
            mNumbers.erase(entry->second.binder.get());
            dropped.push_back(std::move(entry->second.binder));
            mEntries.erase(entry);
        }
        mUnused = std::move(later);
    }
}

size_t Exports::size() {
    Lock lock(mMutex);
    return mEntries.size();
}

}  // namespace hidl
}  // namespace host
