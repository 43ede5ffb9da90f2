#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/History.h"
#include "client/NetInterfaceType.h"
#include "client/PendingText.h"
#include "client/WifiClientCallbackType.h"
#include "os/Moment.h"
#include "os/Mutex.h"
#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

/** The last part of a supplicant event's name, used in reports: "CONNECTED". */
const char* eventName(WifiClientCallbackType type);

/**
 * State, counters and errors of a supplicant socket, for reports; also adds to the history. The
 * loop thread notes events, one thread at a time commands. Any thread reads, without waiting for a
 * command.
 */
class SocketStats {
  public:
    SocketStats(NetInterfaceType type, History& history) : type_(type), history_(history) {}

    void setPath(const std::string& path) EXCLUDES(mutex_);
    /** `state` must be a string literal. */
    void setState(const char* state, bool isConnected) EXCLUDES(mutex_);
    void beginConnecting() EXCLUDES(mutex_);
    void addAttempt() EXCLUDES(mutex_);
    void setError(std::string_view text) EXCLUDES(mutex_);
    void addEvent(WifiClientCallbackType type, std::string_view payload);

    /** The command is reported as waiting for its reply for as long as the result lives. */
    PendingText::Scope pending(std::string_view command, int64_t startNs) {
        return {pending_, command, startNs};
    }
    void addCommand(std::string_view command, CommandOutcome outcome, std::string_view reply,
                    int64_t startNs);

    StateTree describe() const EXCLUDES(mutex_);
    /** The command that waits for its reply; nothing if there is none. */
    StateTree describePending() const;

  private:
    /** A counter that one thread at a time increments and any thread reads. */
    class Counter {
      public:
        void add() { value_.store(get() + 1, std::memory_order_relaxed); }
        uint32_t get() const { return value_.load(std::memory_order_relaxed); }

      private:
        std::atomic<uint32_t> value_{0};
    };

    const NetInterfaceType type_;
    History& history_;

    mutable Mutex mutex_;
    std::string path_ GUARDED_BY(mutex_);
    const char* state_ GUARDED_BY(mutex_) = "Stopped";
    bool isConnected_ GUARDED_BY(mutex_) = false;
    Moment stateSince_ GUARDED_BY(mutex_) = Moment::now();
    std::string error_ GUARDED_BY(mutex_);
    Moment errorAt_ GUARDED_BY(mutex_);
    uint32_t attempts_ GUARDED_BY(mutex_) = 0;
    uint32_t connects_ GUARDED_BY(mutex_) = 0;
    uint32_t disconnects_ GUARDED_BY(mutex_) = 0;

    std::array<Counter, kWifiClientCallbackTypeCount> events_;
    std::atomic<int64_t> lastEventNs_{0};
    Counter commands_;
    Counter timeouts_;
    Counter failures_;
    Counter refusals_;
    std::atomic<int64_t> slowestReplyNs_{0};
    PendingText pending_;
};

}  // namespace Ursa::OS::Wifi
