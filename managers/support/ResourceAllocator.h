#pragma once

#include <limits>
#include <map>

#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

/** Stores copies of resources under integer ids that it allocates. Any thread. */
template <typename T>
class ResourceAllocator {
  public:
    /**
     * Stores a copy and returns its id: 0 if the allocator is empty, else the largest id present
     * plus one. Returns -1 if the largest is INT_MAX.
     */
    int add(const T& resource) {
        MutexLock lock(mutex_);
        int id = 0;
        if (!resources_.empty()) {
            const int largest = resources_.rbegin()->first;
            if (largest == std::numeric_limits<int>::max()) {
                return -1;
            }
            id = largest + 1;
        }
        return resources_.emplace(id, resource).second ? id : -1;
    }

    bool exist(int id) const {
        MutexLock lock(mutex_);
        return resources_.count(id) != 0;
    }

    /** Returns false for an unknown id. */
    bool remove(int id) {
        MutexLock lock(mutex_);
        return resources_.erase(id) != 0;
    }

    void removeAll() {
        MutexLock lock(mutex_);
        resources_.clear();
    }

    /** A copy of all resources, by id. */
    std::map<int, T> all() const {
        MutexLock lock(mutex_);
        return resources_;
    }

  private:
    mutable Mutex mutex_;
    std::map<int, T> resources_ GUARDED_BY(mutex_);
};

}  // namespace Ursa::OS::Wifi
