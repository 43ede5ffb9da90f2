#include "client/Task.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <utility>

#include "client/SlowTasks.h"
#include "os/Moment.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

namespace {

/** The task that one thread runs; other threads read it. */
struct Slot {
    std::atomic<int> thread{0};  ///< 0: the slot is free
    std::atomic<const Task*> task{nullptr};
    std::atomic<int64_t> sinceNs{0};
};

/** More threads than the daemon has; a thread that finds no free slot is not reported. */
std::array<Slot, 16> slots;

/** A thread's slot, from its first task until the thread ends. */
class OwnSlot {
  public:
    OwnSlot() {
        for (Slot& slot : slots) {
            int expected = 0;
            if (slot.thread.compare_exchange_strong(expected, currentThread())) {
                slot_ = &slot;
                return;
            }
        }
        slot_ = &unseen_;
    }
    ~OwnSlot() {
        slot_->task.store(nullptr, std::memory_order_relaxed);
        slot_->thread.store(0, std::memory_order_release);
    }
    OwnSlot(const OwnSlot&) = delete;
    OwnSlot& operator=(const OwnSlot&) = delete;

    Slot* operator->() { return slot_; }

  private:
    Slot* slot_;
    Slot unseen_;
};

Slot& ownSlot() {
    thread_local OwnSlot slot;
    return *slot.operator->();
}

}  // namespace

const Task& Task::named(const std::string& name, Kind kind) {
    static Mutex mutex;
    static auto* const tasks = new std::map<std::pair<std::string, Kind>, std::unique_ptr<Task>>;
    static auto* const owners = new std::map<std::string, size_t, std::less<>>;
    MutexLock lock(mutex);
    std::unique_ptr<Task>& task = (*tasks)[{name, kind}];
    if (task == nullptr) {
        const std::string_view owner = ownerOf(name);
        const size_t number =
            owners->emplace(owner, std::min(owners->size(), kMaxOwners)).first->second;
        task = std::make_unique<Task>(name, kind, number);
    }
    return *task;
}

TaskScope::TaskScope(const Task& task)
    : outer_(ownSlot().task.load(std::memory_order_relaxed)),
      outerSince_(ownSlot().sinceNs.load(std::memory_order_relaxed)) {
    Slot& slot = ownSlot();
    slot.sinceNs.store(Moment::coarseMonotonicNow(), std::memory_order_relaxed);
    slot.task.store(&task, std::memory_order_release);
}

TaskScope::~TaskScope() {
    Slot& slot = ownSlot();
    const Task* const task = slot.task.load(std::memory_order_relaxed);
    const int64_t sinceNs = slot.sinceNs.load(std::memory_order_relaxed);
    slot.sinceNs.store(outerSince_, std::memory_order_relaxed);
    slot.task.store(outer_, std::memory_order_release);
    const auto isSubscriber = [](const Task* marked) {
        return marked != nullptr && marked->kind() == Task::Kind::Subscriber;
    };
    if (isSubscriber(task) || isSubscriber(outer_)) {
        SlowTasks::ofProcess().note(SlowTasks::Kind::Subscriber, task->name(),
                                    Moment::coarseMonotonicNow() - sinceNs);
    }
}

const Task* TaskScope::current() { return ownSlot().task.load(std::memory_order_relaxed); }

std::vector<RunningTask> runningTasks() {
    std::vector<RunningTask> running;
    for (const Slot& slot : slots) {
        const Task* const task = slot.task.load(std::memory_order_acquire);
        if (task != nullptr) {
            running.push_back({slot.thread.load(std::memory_order_relaxed), task,
                               slot.sinceNs.load(std::memory_order_relaxed)});
        }
    }
    return running;
}

int currentThread() {
    thread_local const int thread = gettid();
    return thread;
}

}  // namespace Ursa::OS::Wifi
