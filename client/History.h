#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "client/NetInterfaceType.h"
#include "client/Task.h"
#include "os/Moment.h"
#include "os/Mutex.h"
#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

enum class HistoryKind : uint8_t { State, Event, Command, Netlink };

/** How a command ended. */
enum class CommandOutcome : uint8_t {
    None,      ///< the entry is no command
    Answered,  ///< with any reply, also a refusal
    Pending,
    TimedOut,
    NotSent,
    Failed,  ///< sent, but the connection failed or the kernel rejected it
    NotConnected,
    ReplyTooLong,
};

/** "ok" for Answered, "timeout", ... */
const char* toString(CommandOutcome outcome);

/** One entry of the history. Texts are cut to kTextSize bytes in all. */
struct HistoryEntry {
    static constexpr size_t kTextSize = 82;

    Moment at;                   ///< of a command: when it was sent
    const Task* task = nullptr;  ///< the task that it happened in; null: none
    uint32_t durationUs = 0;
    uint32_t sinceFirstMs = 0;  ///< if repeated: time from the first to the last
    int32_t thread = 0;         ///< Linux thread id
    uint16_t repeats = 1;
    HistoryKind kind = HistoryKind::State;
    CommandOutcome outcome = CommandOutcome::None;
    NetInterfaceType interfaceType = NetInterfaceType::STA;
    uint8_t textLength = 0;
    uint8_t replyLength = 0;
    std::array<char, kTextSize> texts;  ///< the text, then the reply

    std::string_view text() const { return {texts.data(), textLength}; }
    std::string_view reply() const { return {texts.data() + textLength, replyLength}; }
    void setTexts(std::string_view text, std::string_view reply);
    bool isAnswered() const { return outcome == CommandOutcome::Answered; }
};

/** A command for a report: in JSON an object (COMMAND), in the text form a line. */
StateTree toState(const HistoryEntry& command);

/**
 * The last state changes, events and commands in a ring buffer, and each manager's last command.
 * Equal consecutive commands share an entry, so that signal polls do not displace everything else.
 * Secrets in events are removed. Any thread; the mutex is held only while an entry is copied.
 */
class History {
  public:
    static constexpr size_t kCapacity = 128;

    struct Copy {
        uint64_t total = 0;  ///< entries since the start, which is the last one's number
        std::vector<HistoryEntry> entries;
    };

    History() { entries_.reserve(kCapacity); }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    void addState(NetInterfaceType interfaceType, std::string_view text) EXCLUDES(mutex_);
    void addEvent(NetInterfaceType interfaceType, std::string_view name, std::string_view payload,
                  const Moment& now) EXCLUDES(mutex_);
    /** `endNs` was just read from the monotonic clock. */
    void addCommand(HistoryKind kind, NetInterfaceType interfaceType, std::string_view text,
                    CommandOutcome outcome, std::string_view reply, int64_t startNs, int64_t endNs)
        EXCLUDES(mutex_);

    /** Oldest first. */
    Copy copy() const EXCLUDES(mutex_);
    std::optional<HistoryEntry> lastCommandOf(std::string_view manager) const EXCLUDES(mutex_);

  private:
    static_assert(sizeof(HistoryEntry) * kCapacity <= size_t{16} * 1024);

    /** The oldest entry's place, or a new one until all are in use. */
    HistoryEntry& next_() REQUIRES(mutex_) {
        const size_t place = total_++ % kCapacity;
        return place < entries_.size() ? entries_[place] : entries_.emplace_back();
    }
    void add_(const HistoryEntry& entry) EXCLUDES(mutex_);

    mutable Mutex mutex_;
    uint64_t total_ GUARDED_BY(mutex_) = 0;
    /** Reserved but not written beforehand: its pages cost memory only once they are in use. */
    std::vector<HistoryEntry> entries_ GUARDED_BY(mutex_);
    /** By Task::owner(). */
    std::array<HistoryEntry, Task::kMaxOwners> lastCommands_ GUARDED_BY(mutex_);
};

}  // namespace Ursa::OS::Wifi
