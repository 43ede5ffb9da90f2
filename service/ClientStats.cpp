#include "service/ClientStats.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "client/SlowTasks.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int64_t kMicrosecond = 1000;

}  // namespace

void ClientStats::add(Key client, int pid) {
    MutexLock lock(mutex_);
    Record& record = records_[client];
    record = {};
    record.number = ++registrations_;
    record.pid = pid;
    record.registered = Moment::now();
}

void ClientStats::remove(Key client) {
    MutexLock lock(mutex_);
    const auto found = records_.find(client);
    if (found == records_.end()) {
        return;
    }
    if (found->second.method == nullptr) {
        records_.erase(found);
    } else {
        found->second.isGone = true;
    }
}

void ClientStats::beginCall_(Key client, const char* method) {
    MutexLock lock(mutex_);
    const auto found = records_.find(client);
    if (found != records_.end()) {
        found->second.method = method;
        found->second.since = Moment::now();
    }
}

void ClientStats::endCall_(Key client, bool success) noexcept {
    int pid = 0;
    const char* method = nullptr;
    int64_t duration = 0;
    {
        MutexLock lock(mutex_);
        const auto found = records_.find(client);
        if (found == records_.end() || found->second.method == nullptr) {
            return;
        }
        Record& record = found->second;
        duration = Moment::monotonicNow() - record.since.monotonicNs;
        pid = record.pid;
        method = std::exchange(record.method, nullptr);
        ++record.calls;
        record.failures += success ? 0 : 1;
        if (duration > record.slowestNs) {
            record.slowestNs = duration;
            record.slowestMethod = method;
        }
        if (record.isGone) {
            records_.erase(found);
        }
    }
    if (duration > SlowTasks::kLimitNs) {
        std::array<char, 64> name;
        snprintf(name.data(), name.size(), "%s of process %d", method, pid);
        SlowTasks::ofProcess().note(SlowTasks::Kind::Callback, name.data(), duration);
    }
}

StateTree ClientStats::describe_(const Record& record) {
    StateTree state = StateTree::parts();
    state.set("pid", record.pid);
    state.set("registered", record.registered);
    state.set("calls", record.calls);
    state.set("failures", record.failures);
    state.set("slowestUs", record.slowestNs / kMicrosecond);
    state.set("slowestMethod",
              record.slowestMethod == nullptr ? StateTree() : StateTree(record.slowestMethod));
    StateTree& current = state.set("current", {});
    if (record.method != nullptr) {
        current = StateTree::parts();
        current.set("method", record.method);
        current.set("since", record.since);
        current.asLine(std::string(record.method) + ", has not returned since " +
                       momentText(record.since));
    }
    return state;
}

StateTree ClientStats::describe() const {
    std::vector<Record> records;
    {
        MutexLock lock(mutex_);
        for (const auto& [client, record] : records_) {
            records.push_back(record);
        }
    }
    std::sort(records.begin(), records.end(),
              [](const Record& a, const Record& b) { return a.number < b.number; });
    StateTree list = StateTree::list();
    for (const Record& record : records) {
        list.add(describe_(record));
    }
    return list;
}

}  // namespace Ursa::OS::Wifi
