#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "client/NetInterfaceType.h"
#include "os/Moment.h"
#include "os/Mutex.h"
#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

/** "-95 Operation not supported", for a negative errno. */
std::string errorText(int code);

/**
 * Counts nl80211 requests and their errors, for reports. One thread at a time notes its request;
 * any thread reads, without waiting for the kernel.
 */
class NetlinkStats {
  public:
    struct Result {
        int code = -EIO;  ///< 0 or a negative errno
        int family = -1;  ///< the family's number, negative if not found
    };

    /** Notes a request for a scope, also one that an exception leaves; `result` at its end. */
    class Pending {
      public:
        Pending(NetlinkStats& stats, std::string_view text, const Result& result)
            : stats_(stats), result_(result) {
            stats_.begin_(text);
        }
        ~Pending() { stats_.end_(result_); }
        Pending(const Pending&) = delete;
        Pending& operator=(const Pending&) = delete;

      private:
        NetlinkStats& stats_;
        const Result& result_;
    };

    void setName(NetInterfaceType type, const std::string& name) EXCLUDES(mutex_);

    StateTree describe() const EXCLUDES(mutex_);
    /** The request that waits for its answer, as a COMMAND; nothing if there is none. */
    StateTree describePending() const EXCLUDES(mutex_);

  private:
    struct Failures {
        uint32_t count = 0;
        Moment last;
    };

    static constexpr size_t kMaxCodes = 64;

    void begin_(std::string_view text) EXCLUDES(mutex_);
    void end_(const Result& result) noexcept EXCLUDES(mutex_);
    StateTree pending_() const REQUIRES(mutex_);

    mutable Mutex mutex_;
    uint32_t requests_ GUARDED_BY(mutex_) = 0;
    int family_ GUARDED_BY(mutex_) = -1;
    std::array<std::string, 2> names_ GUARDED_BY(mutex_);
    std::map<int, Failures> failures_ GUARDED_BY(mutex_);  ///< by code, at most kMaxCodes
    int64_t slowestNs_ GUARDED_BY(mutex_) = 0;
    std::string text_ GUARDED_BY(mutex_);
    Moment since_ GUARDED_BY(mutex_);  ///< start of the pending request; never: none
};

}  // namespace Ursa::OS::Wifi
