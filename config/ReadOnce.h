#pragma once

#include <atomic>
#include <mutex>

namespace Ursa::OS::Wifi {

/** A property's value, read at its first use; later changes have no effect. Any thread. */
template <typename T>
class ReadOnce {
  public:
    /** `read` is the property's wrapper from Sysprop, `fallback` the default that it is given. */
    constexpr ReadOnce(T (*read)(T), T fallback) : read_(read), value_(fallback) {}

    T operator()() const {
        if (!isRead_.load(std::memory_order_acquire)) {
            std::call_once(once_, [this] {
                value_ = read_(value_);
                isRead_.store(true, std::memory_order_release);
            });
        }
        return value_;
    }

  private:
    T (*const read_)(T);
    mutable std::once_flag once_;
    mutable std::atomic<bool> isRead_{false};  ///< once_ is done, asked in a fraction of its time
    mutable T value_;                          ///< the default until then
};

}  // namespace Ursa::OS::Wifi
