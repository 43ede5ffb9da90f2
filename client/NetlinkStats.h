#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "client/NetInterfaceType.h"
#include "os/Moment.h"
#include "os/Mutex.h"
#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

/**
 * What has come of the requests to nl80211. One request at a time is noted, by the thread that
 * makes it; any thread reads, without waiting for an exchange.
 */
class NetlinkStats {
  public:
    void begin(std::string_view text) EXCLUDES(mutex_);
    /** `code`: 0 or a negative errno. `family`: its number, negative if it was not found. */
    void end(int code, int family) EXCLUDES(mutex_);
    void setName(NetInterfaceType type, const std::string& name) EXCLUDES(mutex_);

    StateTree describe() const EXCLUDES(mutex_);
    /** The request that waits for its answer, as a COMMAND; null when there is none. */
    StateTree describePending() const EXCLUDES(mutex_);
    /** "-95 Operation not supported"; empty when none has failed. */
    std::string lastFailure() const EXCLUDES(mutex_);

  private:
    struct Failures {
        uint32_t count = 0;
        Moment last;
    };

    static constexpr size_t kMaxCodes = 64;

    StateTree pending_() const REQUIRES(mutex_);

    mutable Mutex mutex_;
    uint32_t requests_ GUARDED_BY(mutex_) = 0;
    int family_ GUARDED_BY(mutex_) = -1;
    std::array<std::string, 2> names_ GUARDED_BY(mutex_);
    std::map<int, Failures> failures_ GUARDED_BY(mutex_);  ///< by code, at most kMaxCodes
    int lastCode_ GUARDED_BY(mutex_) = 0;
    int64_t slowestNs_ GUARDED_BY(mutex_) = 0;
    std::string text_ GUARDED_BY(mutex_);
    Moment since_ GUARDED_BY(mutex_);  ///< never: nothing is under way
};

}  // namespace Ursa::OS::Wifi
