#include "client/History.h"

#include <algorithm>
#include <string>

#include "client/WithoutSecrets.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int64_t kMicrosecond = 1000;
constexpr int64_t kMillisecond = 1'000'000;

uint32_t saturated(int64_t value) {
    return static_cast<uint32_t>(std::clamp<int64_t>(value, 0, UINT32_MAX));
}

}  // namespace

const char* toString(CommandOutcome outcome) {
    switch (outcome) {
        case CommandOutcome::None:
            break;
        case CommandOutcome::Answered:
            return "ok";
        case CommandOutcome::Pending:
            return "pending";
        case CommandOutcome::TimedOut:
            return "timeout";
        case CommandOutcome::NotSent:
            return "not-sent";
        case CommandOutcome::Failed:
            return "failed";
        case CommandOutcome::NotConnected:
            return "not-connected";
        case CommandOutcome::ReplyTooLong:
            return "too-long";
    }
    return "";
}

void HistoryEntry::setTexts(std::string_view text, std::string_view reply) {
    while (!reply.empty() && reply.back() == '\n') {
        reply.remove_suffix(1);
    }
    char* const first = texts.data();
    textLength = static_cast<uint8_t>(text.copy(first, kTextSize));
    replyLength = static_cast<uint8_t>(reply.copy(first + textLength, kTextSize - textLength));
}

StateTree toState(const HistoryEntry& command) {
    StateTree state = StateTree::parts();
    state.set("at", command.at);
    state.set("interface", toString(command.interfaceType));
    state.set("channel", command.kind == HistoryKind::Netlink ? "netlink" : "supplicant");
    state.set("by", command.task != nullptr ? StateTree(command.task->name()) : StateTree());
    state.set("text", command.text());
    state.set("outcome", toString(command.outcome));
    state.set("reply", command.reply());
    state.set("durationUs", command.durationUs);
    std::string line(toString(command.interfaceType));
    line += " " + std::string(command.text()) + "  -> ";
    line += command.isAnswered() ? std::string(command.reply()) : toString(command.outcome);
    line += ", " + durationText(command.durationUs * kMicrosecond) + ", " + momentText(command.at);
    return state.asLine(std::move(line));
}

void History::add_(const HistoryEntry& entry) {
    MutexLock lock(mutex_);
    next_() = entry;
}

void History::addState(NetInterfaceType interfaceType, std::string_view text) {
    HistoryEntry entry;
    entry.at = Moment::now();
    entry.kind = HistoryKind::State;
    entry.interfaceType = interfaceType;
    entry.thread = currentThread();
    entry.setTexts(text, {});
    add_(entry);
}

void History::addEvent(NetInterfaceType interfaceType, std::string_view name,
                       std::string_view payload, const Moment& now) {
    const std::string_view kept = withoutSecrets(payload);
    const int thread = currentThread();
    MutexLock lock(mutex_);
    HistoryEntry& entry = next_();
    entry.at = now;
    entry.task = nullptr;
    entry.durationUs = 0;
    entry.sinceFirstMs = 0;
    entry.thread = thread;
    entry.repeats = 1;
    entry.kind = HistoryKind::Event;
    entry.outcome = CommandOutcome::None;
    entry.interfaceType = interfaceType;
    entry.setTexts(name, kept);
}

void History::addCommand(HistoryKind kind, NetInterfaceType interfaceType, std::string_view text,
                         CommandOutcome outcome, std::string_view reply, int64_t startNs,
                         int64_t endNs) {
    HistoryEntry entry;
    entry.at = Moment::at(endNs);
    entry.at.monotonicNs = startNs;
    entry.at.wallMs -= (endNs - startNs) / kMillisecond;
    entry.task = TaskScope::current();
    entry.kind = kind;
    entry.outcome = outcome;
    entry.interfaceType = interfaceType;
    entry.thread = currentThread();
    entry.durationUs = saturated((endNs - startNs) / kMicrosecond);
    entry.setTexts(text, reply);

    MutexLock lock(mutex_);
    if (entry.task != nullptr && entry.task->owner() < lastCommands_.size()) {
        lastCommands_[entry.task->owner()] = entry;
    }
    HistoryEntry* last = total_ == 0 ? nullptr : &entries_[(total_ - 1) % kCapacity];
    if (last != nullptr && last->kind == kind && last->outcome == outcome &&
        last->interfaceType == interfaceType && last->task == entry.task &&
        last->text() == entry.text() && last->repeats < UINT16_MAX) {
        entry.repeats = static_cast<uint16_t>(last->repeats + 1);
        const int64_t apart = entry.at.monotonicNs - last->at.monotonicNs;
        entry.sinceFirstMs = saturated(last->sinceFirstMs + apart / kMillisecond);
        *last = entry;
    } else {
        next_() = entry;
    }
}

History::Copy History::copy() const {
    Copy copy;
    copy.entries.reserve(kCapacity);
    MutexLock lock(mutex_);
    copy.total = total_;
    for (uint64_t i = total_ - std::min<uint64_t>(total_, kCapacity); i < total_; ++i) {
        copy.entries.push_back(entries_[i % kCapacity]);
    }
    return copy;
}

std::optional<HistoryEntry> History::lastCommandOf(std::string_view manager) const {
    MutexLock lock(mutex_);
    for (const HistoryEntry& entry : lastCommands_) {
        if (entry.task != nullptr && entry.task->ownerName() == manager) {
            return entry;
        }
    }
    return std::nullopt;
}

}  // namespace Ursa::OS::Wifi
