#pragma once

#include <mutex>
#include <utility>

namespace Ursa::OS {

/**
 * A lock and a pointer to the value that it guards: holds the mutex until it is destroyed.
 *
 *     ValueMutator tasks(mutex, map);
 *     tasks["StaManager.worker"] = gettid();
 */
template <typename T, typename M = std::mutex>
class ValueMutator {
  public:
    ValueMutator(M& mutex, T& value) : lock_(mutex), value_(&value) {}

    T* operator->() const { return value_; }
    T& operator*() const { return *value_; }

    /** The entry of a guarded container. */
    template <typename Key>
    decltype(auto) operator[](Key&& key) const {
        return (*value_)[std::forward<Key>(key)];
    }

  private:
    std::unique_lock<M> lock_;
    T* value_;
};

/**
 * A value with its mutex, accessible only through lock().
 *
 *     ValueMutexBase<State, std::mutex> state_;
 *     auto state = state_.lock();   // held until `state` goes out of scope
 *     state->counter += 1;
 */
template <typename T, typename M>
class ValueMutexBase {
  public:
    template <typename... Args>
    explicit ValueMutexBase(Args&&... args) : value_(std::forward<Args>(args)...) {}

    ValueMutator<T, M> lock() { return ValueMutator<T, M>(mutex_, value_); }

  private:
    M mutex_;
    T value_;
};

}  // namespace Ursa::OS
