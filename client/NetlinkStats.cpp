#include "client/NetlinkStats.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "client/History.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int64_t kMicrosecond = 1000;

StateTree nameOf(const std::string& name) { return name.empty() ? StateTree() : StateTree(name); }

}  // namespace

std::string errorText(int code) { return std::to_string(code) + " " + strerror(-code); }

void NetlinkStats::begin_(std::string_view text) {
    MutexLock lock(mutex_);
    text_ = text;
    ++requests_;
    since_ = Moment::now();
}

void NetlinkStats::end_(const Result& result) noexcept {
    const Moment now = Moment::now();
    MutexLock lock(mutex_);
    slowestNs_ = std::max(slowestNs_, now.monotonicNs - since_.monotonicNs);
    since_ = {};
    family_ = result.family;
    if (result.code < 0 && (failures_.size() < kMaxCodes || failures_.count(result.code) != 0)) {
        try {
            Failures& failures = failures_[result.code];
            ++failures.count;
            failures.last = now;
        } catch (const std::exception&) {
            // Out of memory: the report lacks this one.
        }
    }
}

void NetlinkStats::setName(NetInterfaceType type, const std::string& name) {
    MutexLock lock(mutex_);
    names_[static_cast<size_t>(type)] = name;
}

StateTree NetlinkStats::pending_() const {
    if (!since_) {
        return {};
    }
    StateTree state = StateTree::parts();
    state.set("text", text_);
    state.set("since", since_);
    return state.asLine(text_ + ", waits since " + momentText(since_));
}

StateTree NetlinkStats::describePending() const {
    MutexLock lock(mutex_);
    if (!since_) {
        return {};
    }
    HistoryEntry entry;
    entry.kind = HistoryKind::Netlink;
    entry.at = since_;
    entry.outcome = CommandOutcome::Pending;
    entry.setTexts(text_, {});
    entry.durationUs =
        static_cast<uint32_t>((Moment::monotonicNow() - since_.monotonicNs) / kMicrosecond);
    return toState(entry);
}

StateTree NetlinkStats::describe() const {
    MutexLock lock(mutex_);
    StateTree state = StateTree::parts();
    state.set("family", "nl80211");
    state.set("familyId", family_ < 0 ? StateTree() : StateTree(family_));
    StateTree& names = state.set("interfaces", StateTree::parts());
    names.set("sta", nameOf(names_[static_cast<size_t>(NetInterfaceType::STA)]));
    names.set("p2p", nameOf(names_[static_cast<size_t>(NetInterfaceType::P2P)]));
    state.set("requests", requests_);
    StateTree& failures = state.set("failures", StateTree::list());
    for (const auto& [code, failure] : failures_) {
        StateTree& entry = failures.add(StateTree::parts());
        entry.set("code", code);
        entry.set("text", strerror(-code));
        entry.set("count", failure.count);
        entry.set("last", failure.last);
        entry.asLine(errorText(code) + ": " + std::to_string(failure.count) + ", the last " +
                     momentText(failure.last));
    }
    state.set("slowestUs", slowestNs_ / kMicrosecond);
    state.set("pending", pending_());
    return state;
}

}  // namespace Ursa::OS::Wifi
