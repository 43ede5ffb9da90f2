#pragma once

#include <cstdint>
#include <map>

#include "os/Moment.h"
#include "os/Mutex.h"
#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

/**
 * Calls, failures and durations of the registered clients' callbacks, for reports, which so name
 * the process of a client that hangs. Any thread; the mutex is not held while a client is called.
 */
class ClientStats {
  public:
    /** Identifies a client. */
    using Key = const void*;

    /** A client's callback while it runs. It has failed unless succeed() was called. */
    class Call {
      public:
        /** `method` must be a string literal. */
        Call(ClientStats& stats, Key client, const char* method) : stats_(stats), client_(client) {
            stats_.beginCall_(client_, method);
        }
        ~Call() { stats_.endCall_(client_, success_); }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

        void succeed() { success_ = true; }

      private:
        ClientStats& stats_;
        const Key client_;
        bool success_ = false;
    };

    /** `pid` is the process that registers it; 0 if unknown. */
    void add(Key client, int pid) EXCLUDES(mutex_);
    /** A client that is being called stays listed until that call has ended. */
    void remove(Key client) EXCLUDES(mutex_);

    /** A list, in the order of registration. */
    StateTree describe() const EXCLUDES(mutex_);

  private:
    struct Record {
        uint64_t number = 0;
        int pid = 0;
        Moment registered;
        uint32_t calls = 0;
        uint32_t failures = 0;
        int64_t slowestNs = 0;
        const char* slowestMethod = nullptr;
        const char* method = nullptr;  ///< the method being called now; null: none
        Moment since;
        bool isGone = false;
    };

    void beginCall_(Key client, const char* method) EXCLUDES(mutex_);
    void endCall_(Key client, bool success) noexcept EXCLUDES(mutex_);
    static StateTree describe_(const Record& record);

    mutable Mutex mutex_;
    uint64_t registrations_ GUARDED_BY(mutex_) = 0;
    std::map<Key, Record> records_ GUARDED_BY(mutex_);
};

}  // namespace Ursa::OS::Wifi
