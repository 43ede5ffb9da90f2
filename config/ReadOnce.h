#pragma once

#include <mutex>

namespace Ursa::OS::Wifi {

/** A property's value, read at its first use; later changes have no effect. Any thread. */
template <typename T>
class ReadOnce {
  public:
    /** `read` is the property's wrapper from Sysprop, `fallback` the default that it is given. */
    constexpr ReadOnce(T (*read)(T), T fallback) : read_(read), value_(fallback) {}

    T operator()() const {
        std::call_once(once_, [this] { value_ = read_(value_); });
        return value_;
    }

  private:
    T (*const read_)(T);
    mutable std::once_flag once_;
    mutable T value_;  ///< the default until once_ is done
};

}  // namespace Ursa::OS::Wifi
