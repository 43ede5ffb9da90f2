#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Ursa::OS::Wifi {

/** A named handler of a manager: "TxPowerManager.onStaConnected". Never destroyed. */
class Task {
  public:
    enum class Kind {
        Subscriber,  ///< blocks the listener thread while it runs
        Other,
    };

    /** The most owners (managers) that are told apart. */
    static constexpr size_t kMaxOwners = 24;

    /** The task with that name and kind, created at the first call. Any thread. */
    static const Task& named(const std::string& name, Kind kind);

    Task(std::string name, Kind kind, size_t owner)
        : name_(std::move(name)), kind_(kind), owner_(owner) {}

    const std::string& name() const { return name_; }
    Kind kind() const { return kind_; }
    /** The manager: the part of the name before the dot. */
    std::string_view ownerName() const { return ownerOf(name_); }
    /** The manager's number, below kMaxOwners; kMaxOwners if there were too many managers. */
    size_t owner() const { return owner_; }

    static std::string_view ownerOf(std::string_view name) {
        return name.substr(0, name.find('.'));
    }

  private:
    const std::string name_;
    const Kind kind_;
    const size_t owner_;
};

/**
 * Marks the calling thread as running `task`, for a scope. May be nested; the inner one counts.
 * Reports a slow subscriber, or a slow task inside one, to SlowTasks.
 */
class TaskScope {
  public:
    explicit TaskScope(const Task& task);
    ~TaskScope();
    TaskScope(const TaskScope&) = delete;
    TaskScope& operator=(const TaskScope&) = delete;

    /** The calling thread's task; null outside of any scope. */
    static const Task* current();

  private:
    const Task* const outer_;
    const int64_t outerSince_;
};

/** A thread inside a TaskScope. */
struct RunningTask {
    int thread = 0;
    const Task* task = nullptr;
    int64_t sinceNs = 0;  ///< monotonic
};

/** The threads that are inside a TaskScope now. Any thread; does not block. */
std::vector<RunningTask> runningTasks();

/** The calling thread's Linux id; one system call per thread. */
int currentThread();

}  // namespace Ursa::OS::Wifi
