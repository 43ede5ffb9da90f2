#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

/** The two sets of handles of a CallbackMap. */
enum class CallbackSet {
    Active = 0,    ///< registered
    Inactive = 1,  ///< unregistered, but still counted until the next trigger has finished
};

/** One subscriber of a CallbackMap. */
template <typename F>
class CallbackMapElement {
  public:
    /** `function` belongs to the subscriber and must not move while it is registered. */
    explicit CallbackMapElement(F& function) : function_(&function) {}

    /** Calls the subscriber unless it was removed. Throws if the function is empty. */
    template <typename T>
    void call(T&& value) {
        SharedLock lock(mutex_);
        if (!removed_.load(std::memory_order_relaxed)) {
            (*function_)(std::forward<T>(value));
        }
    }

    /**
     * Waits until no call is running on another thread, then empties the subscriber's function. A
     * second remove() also waits, but does not touch the function, which may be destroyed by then.
     */
    void remove() EXCLUDES(mutex_) {
        ExclusiveLock lock(mutex_);
        if (removed()) {
            return;
        }
        *function_ = nullptr;
        removed_.store(true, std::memory_order_release);
    }

    bool removed() const { return removed_.load(std::memory_order_acquire); }

  private:
    SharedMutex mutex_;  ///< shared while the subscriber runs, exclusive while it is removed
    F* const function_ PT_GUARDED_BY(mutex_);
    std::atomic<bool> removed_{false};  ///< written under mutex_
};

/**
 * The subscribers of one kind of notification; trigger() calls them on its own thread in the order
 * of their handles. Thread-safe: two threads may run the same callback at once. A callback may
 * register and unregister others; unregistering itself would deadlock, waiting for its own return.
 * At most 64 handles; an unregistered one counts until the next trigger has finished. Details:
 * docs/architecture.md ("Subscriptions").
 */
template <typename T>
class CallbackMap {
  public:
    using Callback = std::function<void(T)>;

    CallbackMap() = default;
    ~CallbackMap() { keepSnapshot_(nullptr); }
    CallbackMap(const CallbackMap&) = delete;
    CallbackMap& operator=(const CallbackMap&) = delete;

    /**
     * Returns the handle, 0 to 2,147,483,646, or -1 when the map is full. `callback` is not copied:
     * it must not move until it is unregistered.
     */
    int registerCallback(Callback& callback) {
        auto element = std::make_shared<Element>(callback);
        // Held across the capacity check and the registration.
        ExclusiveLock activeLock(activeMutex_);
        const int handle = getNewHandle_();
        if (handle == -1) {
            return -1;
        }
        // Handles count up, so the new one usually goes to the end.
        {
            ExclusiveLock elementsLock(elementsMutex_);
            elements_.emplace_hint(elements_.end(), handle, std::move(element));
        }
        active_.insert(active_.end(), handle);
        countChange_();
        return handle;
    }

    /**
     * Ends a subscription: waits for a call that is running on another thread, then empties the
     * subscriber's function object. Returns false if the handle is not active. Waits in that case
     * too, if another thread is ending the same subscription.
     */
    bool unregisterCallback(int handle) {
        const bool first = deactivate_(handle);
        // The wait for a running call happens without the elements' lock: that call may register.
        if (const auto element = findElement_(handle)) {
            element->remove();
        }
        return first;
    }

    /** Calls every active subscriber. A subscriber's exception reaches the caller of trigger(). */
    void trigger(T value) {
        auto snapshot = takeSnapshot_();
        for (const auto& [handle, element] : snapshot->elements) {
            if (snapshot->generation == generation_.load(std::memory_order_acquire) ||
                isActive_(handle)) {
                element->call(value);
            }
        }
        keepSnapshot_(std::move(snapshot));
        clearInactive_();
    }

  private:
    friend class CallbackMapTestPeer;

    using Element = CallbackMapElement<Callback>;

    /** The subscribers that were active at one moment, in ascending order of handles. */
    struct Snapshot {
        uint64_t generation;
        std::vector<std::pair<int, std::shared_ptr<Element>>> elements;
    };

    /** The most handles, active plus inactive. */
    static constexpr size_t kCapacity = 64;
    /** The last handle before they start again from 0. */
    static constexpr int kLastHandle = 0x7FFFFFFE;

    /** -1 when the map is full. */
    int getNewHandle_() REQUIRES(activeMutex_) {
        const size_t inactive = inactiveCount_.load(std::memory_order_acquire);
        if (kCapacity <= active_.size() + inactive) {
            return -1;
        }
        while (true) {
            int handle = counter_.load(std::memory_order_relaxed) + 1;
            if (handle > kLastHandle) {
                handle = 0;
                wrapped_ = true;
            }
            counter_.store(handle, std::memory_order_relaxed);
            // No number is used again before the first wrap.
            if (!wrapped_ ||
                (active_.count(handle) == 0 && !setContains_(CallbackSet::Inactive, handle))) {
                return handle;
            }
        }
    }

    /** Makes an active handle inactive. Returns false if it is not active. */
    bool deactivate_(int handle) {
        ExclusiveLock activeLock(activeMutex_);
        const auto found = active_.find(handle);
        if (found == active_.end()) {
            return false;
        }
        ExclusiveLock inactiveLock(inactiveMutex_);
        // Moved, so that nothing can fail in between.
        inactive_.insert(inactive_.end(), active_.extract(found));
        inactiveCount_.store(inactive_.size(), std::memory_order_release);
        countChange_();
        return true;
    }

    /** Outdates the snapshot. */
    void countChange_() REQUIRES(activeMutex_) {
        const uint64_t generation = generation_.load(std::memory_order_relaxed);
        generation_.store(generation + 1, std::memory_order_release);
    }

    /**
     * The active subscribers. The copy is made once and reused until one of the sets changes. It is
     * taken out for a trigger; one that runs at the same time makes a copy of its own.
     */
    std::unique_ptr<const Snapshot> takeSnapshot_() {
        std::unique_ptr<const Snapshot> kept(
            snapshot_.exchange(nullptr, std::memory_order_acq_rel));
        const uint64_t generation = generation_.load(std::memory_order_acquire);
        if (kept != nullptr && kept->generation == generation) {
            return kept;
        }
        auto snapshot = std::make_unique<Snapshot>();
        snapshot->generation = generation;
        SharedLock activeLock(activeMutex_);
        SharedLock elementsLock(elementsMutex_);
        snapshot->elements.reserve(active_.size());
        for (const int handle : active_) {
            snapshot->elements.emplace_back(handle, elements_.at(handle));
        }
        return snapshot;
    }

    /** Keeps a snapshot for the next trigger, instead of one that another trigger has kept. */
    void keepSnapshot_(std::unique_ptr<const Snapshot> snapshot) {
        const std::unique_ptr<const Snapshot> replaced(
            snapshot_.exchange(snapshot.release(), std::memory_order_acq_rel));
    }

    /** Frees the numbers of unregistered handles. */
    void clearInactive_() {
        if (inactiveCount_.load(std::memory_order_acquire) == 0) {
            return;
        }
        ExclusiveLock inactiveLock(inactiveMutex_);
        ExclusiveLock elementsLock(elementsMutex_);
        for (auto handle = inactive_.begin(); handle != inactive_.end();) {
            const auto found = elements_.find(*handle);
            if (found != elements_.end() && !found->second->removed()) {
                ++handle;  // another thread is still unregistering it
                continue;
            }
            if (found != elements_.end()) {
                elements_.erase(found);
            }
            handle = inactive_.erase(handle);
        }
        inactiveCount_.store(inactive_.size(), std::memory_order_release);
    }

    std::shared_ptr<Element> findElement_(int handle) {
        SharedLock lock(elementsMutex_);
        const auto found = elements_.find(handle);
        return found == elements_.end() ? nullptr : found->second;
    }

    bool isActive_(int handle) {
        return !setContains_(CallbackSet::Inactive, handle) &&
               setContains_(CallbackSet::Active, handle);
    }

    bool setContains_(CallbackSet set, int handle) {
        if (set == CallbackSet::Active) {
            SharedLock lock(activeMutex_);
            return active_.count(handle) != 0;
        }
        SharedLock lock(inactiveMutex_);
        return inactive_.count(handle) != 0;
    }

    std::atomic<int> counter_{-1};  ///< the last handle; written under activeMutex_

    // Lock order: activeMutex_, inactiveMutex_, elementsMutex_.
    SharedMutex activeMutex_;
    std::set<int> active_ GUARDED_BY(activeMutex_);
    bool wrapped_ GUARDED_BY(activeMutex_) = false;  ///< the handles have started again from 0
    SharedMutex inactiveMutex_ ACQUIRED_AFTER(activeMutex_);
    std::set<int> inactive_ GUARDED_BY(inactiveMutex_);
    SharedMutex elementsMutex_ ACQUIRED_AFTER(inactiveMutex_);
    std::map<int, std::shared_ptr<Element>> elements_ GUARDED_BY(elementsMutex_);

    /** Size of inactive_, for whoever does not have the lock. */
    std::atomic<size_t> inactiveCount_{0};

    /**
     * Counts changes of the sets, under activeMutex_; a snapshot with the same number is up to
     * date.
     */
    std::atomic<uint64_t> generation_{0};
    /** Owned; null while a trigger uses it. */
    std::atomic<const Snapshot*> snapshot_{nullptr};
};

}  // namespace Ursa::OS::Wifi
