#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * Interface names that are handed out as pointers. A text is neither changed nor freed while this
 * object lives, so a thread reads it without a lock; equal names share one text. Not synchronised:
 * the owner's lock guards add(). What it keeps is bounded by `capacity` different names.
 */
class InterfaceNames {
  public:
    /** Under 1 MB. A group interface's name is new when the supplicant counts its groups up. */
    static constexpr size_t kCapacity = 10'000;

    explicit InterfaceNames(size_t capacity = kCapacity) : capacity_(capacity) {}
    InterfaceNames(const InterfaceNames&) = delete;
    InterfaceNames& operator=(const InterfaceNames&) = delete;

    /** The kept text that equals `name`; null when that is a new name and there is no room. */
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
