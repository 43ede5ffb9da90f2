#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * Interns interface names: a pointer that add() returned stays valid and unchanged for this
 * object's lifetime, so any thread may read it without a lock. Keeps at most `capacity` different
 * names. Not thread-safe: the owner's lock guards add().
 */
class InterfaceNames {
  public:
    /** Under 1 MB. Names accumulate because the supplicant may number each new P2P group. */
    static constexpr size_t kCapacity = 10'000;

    explicit InterfaceNames(size_t capacity = kCapacity) : capacity_(capacity) {}
    InterfaceNames(const InterfaceNames&) = delete;
    InterfaceNames& operator=(const InterfaceNames&) = delete;

    /** Returns the interned name; null if `name` is new and the capacity is reached. */
    const char* add(std::string_view name) {
        auto found = names_.find(name);
        if (found == names_.end()) {
            if (names_.size() >= capacity_) {
                return nullptr;
            }
            found = names_.emplace(name).first;
        }
        return found->c_str();
    }

  private:
    const size_t capacity_;
    std::set<std::string, std::less<>> names_;
};

}  // namespace Ursa::OS::Wifi
