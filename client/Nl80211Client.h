#pragma once

#include <array>
#include <chrono>
#include <string>

#include "client/InterfaceNames.h"
#include "client/NetInterfaceType.h"
#include "client/NetlinkStats.h"
#include "client/Nl80211Types.h"
#include "os/Mutex.h"

struct nl_msg;
struct nl_sock;
struct nlmsgerr;
struct sockaddr_nl;

namespace Ursa::OS::Wifi {

/**
 * The daemon's only access to the kernel's nl80211 family: sends generic and vendor commands, finds
 * interface names and reads the station link's bandwidth. Each operation opens and closes a netlink
 * socket of its own. Thread-safe: a mutex is held across an operation, 10 s at most. Failures are
 * logged, and nothing is retried.
 */
class Nl80211Client {
  public:
    /** For one request. An operation makes two: one for the family's number, one of its own. */
    static constexpr std::chrono::milliseconds kAnswerTimeout{5000};

    /** `answerTimeout` limits the wait for the complete answer to one request. */
    explicit Nl80211Client(std::chrono::milliseconds answerTimeout = kAnswerTimeout)
        : answerTimeout_(answerTimeout) {}
    Nl80211Client(const Nl80211Client&) = delete;
    Nl80211Client& operator=(const Nl80211Client&) = delete;

    /**
     * Sends `info`, whose `ifname` must be set, and waits for the kernel's answer. Returns 0, or -1
     * on any failure, and in `error`, unless it is null, 0 or a negative errno. A missing interface
     * is sent as index 0, which the kernel rejects.
     */
    int sendGenericCommand(const Nl80211GenericCmdInfo& info, int* error = nullptr)
        EXCLUDES(mutex_);

    /** As above for a vendor command. */
    int sendVendorCommand(const Nl80211VendorCmdInfo& info, int* error = nullptr) EXCLUDES(mutex_);

    /**
     * The last interface in the kernel's list whose name begins with "wlan" (STA) or "p2p" (P2P),
     * cut to 15 characters; null if there is none or the query fails. STA is kept once found; P2P
     * is queried at each call and keeps the previous name if there is none. The text stays valid
     * and unchanged for this object's lifetime; but after InterfaceNames::kCapacity P2P names, a
     * new one only until the same thread's next call.
     */
    const char* getNetInterfaceName(NetInterfaceType type) EXCLUDES(mutex_);

    /**
     * The channel bandwidth of the station link, taken from the transmit rate to its access point:
     * 1 = 20 MHz, 2 = 40 MHz, 3 = 80 MHz, 4 = 80+80 MHz, 5 = 160 MHz; 0 if it could not be read.
     */
    int getStaBandwidth() EXCLUDES(mutex_);

    /** Does not wait for an exchange. */
    const NetlinkStats& stats() const { return stats_; }

  private:
    /** One operation's socket, callbacks and message. */
    struct Request;

    struct InterfaceSlot {
        const char* prefix;
        std::string name;  ///< empty until an interface was found; STA's is written once
    };

    /** Asks for the number of the nl80211 family; negative if there is none, or no answer. */
    int resolveFamily_(nl_sock* socket) const;

    // The steps of an operation. Each returns 0, or -1 after logging why.
    int initState_(Request& request) const;
    static int constructGenericMsg_(Request& request, const Nl80211GenericCmdInfo& info);
    static int constructVendorMsg_(Request& request, const Nl80211VendorCmdInfo& info);
    int sendMsg_(Request& request) const;

    /**
     * Runs an operation on a new request, noted as `text` for reports. Returns its result, and in
     * `error`, unless it is null, 0 or a negative errno.
     */
    template <typename Operation>
    int noted_(const std::string& text, Operation operation, int* error = nullptr) REQUIRES(mutex_);

    // libnl's callbacks, one for each kind of answer; they run inside sendMsg_. They return NL_SKIP
    // (go on to the next message) or NL_STOP (drop the rest of this packet).
    static int sequenceHandler(nl_msg* message, void* arg);
    static int errorHandler(sockaddr_nl* peer, nlmsgerr* err, void* arg);
    static int finishHandler(nl_msg* message, void* arg);
    static int ackHandler(nl_msg* message, void* arg);
    static int invalidHandler(nl_msg* message, void* arg);
    static int controlHandler(nl_msg* message, void* arg);
    static int findIfaceHandler(nl_msg* message, void* arg);
    static int stationHandler(nl_msg* message, void* arg);

    const std::chrono::milliseconds answerTimeout_;
    NetlinkStats stats_;
    Mutex mutex_;

    InterfaceNames names_ GUARDED_BY(mutex_);  ///< the P2P names that were returned
    /** Indexed by NetInterfaceType. */
    std::array<InterfaceSlot, 2> slots_ GUARDED_BY(mutex_) = {{{"wlan", {}}, {"p2p", {}}}};
};

}  // namespace Ursa::OS::Wifi
