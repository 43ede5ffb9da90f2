#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Ursa::OS::Wifi {

/** What a thread does in a manager's name: "TxPowerManager.onStaConnected". Lives for ever. */
class Task {
  public:
    enum class Kind {
        Subscriber,  ///< holds up the listener thread
        Other,
    };

    /** Most managers, and so owners of tasks. */
    static constexpr size_t kMaxOwners = 24;

    /** The one of that name and kind, made at the first call. Any thread. */
    static const Task& named(const std::string& name, Kind kind);

    Task(std::string name, Kind kind, size_t owner)
        : name_(std::move(name)), kind_(kind), owner_(owner) {}

    const std::string& name() const { return name_; }
    Kind kind() const { return kind_; }
    /** The manager, the name's part before the dot. */
    std::string_view ownerName() const { return ownerOf(name_); }
    /** The manager's number, below kMaxOwners, or kMaxOwners when there were too many. */
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
 * Marks what the calling thread does, for a scope. May be nested; the inner one counts. One that is
 * slow, and is a subscriber or inside of one, is told to SlowTasks.
 */
class TaskScope {
  public:
    explicit TaskScope(const Task& task);
    ~TaskScope();
    TaskScope(const TaskScope&) = delete;
    TaskScope& operator=(const TaskScope&) = delete;

    /** The calling thread's; null outside of any. */
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

/** The threads that are inside a TaskScope now. Any thread, without a wait. */
std::vector<RunningTask> runningTasks();

/** The calling thread's number; asks the kernel once per thread. */
int currentThread();

}  // namespace Ursa::OS::Wifi
