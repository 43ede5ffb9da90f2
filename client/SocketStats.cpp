#include "client/SocketStats.h"

#include <optional>

#include "client/StartsWith.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int64_t kMicrosecond = 1000;

bool isRefusal(std::string_view reply) {
    return startsWith(reply, "FAIL") || startsWith(reply, "UNKNOWN COMMAND");
}

}  // namespace

const char* eventName(WifiClientCallbackType type) {
    switch (type) {
        case WifiClientCallbackType::WPA_STA_SCAN_RESULTS:
            return "SCAN-RESULTS";
        case WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH:
            return "CHANNEL-SWITCH";
        case WifiClientCallbackType::WPA_STA_ASSOC_STARTED:
            return "ASSOC-STARTED";
        case WifiClientCallbackType::WPA_STA_CONNECTED:
            return "CONNECTED";
        case WifiClientCallbackType::WPA_STA_DISCONNECTED:
            return "DISCONNECTED";
        case WifiClientCallbackType::WPA_SOCKET_DISCONNECTED:
            return "SOCKET-DISCONNECTED";
        case WifiClientCallbackType::WPA_P2P_CSA_FINISHED:
            return "CSA-FINISHED";
        case WifiClientCallbackType::WPA_P2P_GROUP_REMOVED:
            return "GROUP-REMOVED";
        case WifiClientCallbackType::WPA_P2P_GROUP_STARTED:
            return "GROUP-STARTED";
        case WifiClientCallbackType::WPA_REGDOM_CHANGE:
            return "REGDOM-CHANGE";
    }
    return "UNKNOWN";
}

void SocketStats::setPath(const std::string& path) {
    MutexLock lock(mutex_);
    path_ = path;
}

void SocketStats::setState(const char* state, bool isConnected) {
    history_.addState(type_, std::string("socket ") + state);
    MutexLock lock(mutex_);
    state_ = state;
    stateSince_ = Moment::now();
    connects_ += isConnected ? 1 : 0;
    disconnects_ += isConnected_ && !isConnected ? 1 : 0;
    isConnected_ = isConnected;
}

void SocketStats::beginConnecting() {
    MutexLock lock(mutex_);
    attempts_ = 0;
}

void SocketStats::addAttempt() {
    MutexLock lock(mutex_);
    ++attempts_;
}

void SocketStats::setError(std::string_view text) {
    MutexLock lock(mutex_);
    error_ = text;
    errorAt_ = Moment::now();
}

void SocketStats::addEvent(WifiClientCallbackType type, std::string_view payload) {
    const Moment now = Moment::coarseNow();
    events_[static_cast<size_t>(type)].add();
    lastEventNs_.store(now.monotonicNs, std::memory_order_relaxed);
    history_.addEvent(type_, eventName(type), payload, now);
}

void SocketStats::addCommand(std::string_view command, CommandOutcome outcome,
                             std::string_view reply, int64_t startNs) {
    const int64_t endNs = Moment::monotonicNow();
    commands_.add();
    switch (outcome) {
        case CommandOutcome::Answered:
            if (isRefusal(reply)) {
                refusals_.add();
            }
            if (endNs - startNs > slowestReplyNs_.load(std::memory_order_relaxed)) {
                slowestReplyNs_.store(endNs - startNs, std::memory_order_relaxed);
            }
            break;
        case CommandOutcome::TimedOut:
            timeouts_.add();
            break;
        default:
            failures_.add();
            break;
    }
    history_.addCommand(HistoryKind::Command, type_, command, outcome, reply, startNs, endNs);
}

StateTree SocketStats::describePending() const {
    const std::optional<PendingText::Value> pending = pending_.get();
    if (!pending) {
        return {};
    }
    HistoryEntry entry;
    entry.kind = HistoryKind::Command;
    entry.at = Moment::fromMonotonic(pending->sinceNs);
    entry.interfaceType = type_;
    entry.outcome = CommandOutcome::Pending;
    entry.setTexts(pending->text, {});
    const int64_t waitedUs = (Moment::monotonicNow() - pending->sinceNs) / kMicrosecond;
    entry.durationUs = static_cast<uint32_t>(waitedUs);
    return toState(entry);
}

StateTree SocketStats::describe() const {
    StateTree state = StateTree::parts();
    state.set("interface", toString(type_));
    {
        MutexLock lock(mutex_);
        state.set("path", path_.empty() ? StateTree() : StateTree(path_));
        state.set("state", state_);
        state.set("since", stateSince_);
        state.set("attempts", attempts_);
        StateTree& error = state.set("lastError", {});
        if (errorAt_) {
            error = StateTree::parts();
            error.set("text", error_);
            error.set("at", errorAt_);
            error.asLine(error_ + ", " + momentText(errorAt_));
        }
        state.set("connects", connects_);
        state.set("reconnects", connects_ > 0 ? connects_ - 1 : 0);
        state.set("disconnects", disconnects_);
    }
    StateTree& events = state.set("events", StateTree::parts());
    for (size_t type = 0; type < events_.size(); ++type) {
        if (const uint32_t count = events_[type].get(); count > 0) {
            events.set(eventName(static_cast<WifiClientCallbackType>(type)), count);
        }
    }
    state.set("lastEvent", Moment::fromMonotonic(lastEventNs_.load(std::memory_order_relaxed)));
    state.set("commands", commands_.get());
    state.set("timeouts", timeouts_.get());
    state.set("failures", failures_.get());
    state.set("refused", refusals_.get());
    const int64_t slowest = slowestReplyNs_.load(std::memory_order_relaxed);
    state.set("slowestReplyUs", slowest / kMicrosecond);
    state.set("pending", describePending());
    return state;
}

}  // namespace Ursa::OS::Wifi
