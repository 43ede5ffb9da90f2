#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "client/CompositionRoot.h"
#include "client/History.h"
#include "client/NetInterfaceType.h"
#include "client/Nl80211Client.h"
#include "client/WifiClientCallbackType.h"
#include "client/WpaClient.h"
#include "os/Mutex.h"
#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

/**
 * The one object through which managers reach the supplicant and the kernel. Thread-safe: one
 * recursive lock serialises supplicant commands and registrations, another netlink sends; each is
 * held until the answer has come. A command and a netlink send may overlap.
 */
class CorvidWifiClient {
  public:
    /**
     * Starts to watch `socketDirectory` (with trailing slash) for the supplicant's sockets. A
     * command waits for its reply as long as `replyTimeout`.
     */
    explicit CorvidWifiClient(const std::string& socketDirectory = WpaClient::socketDirectory(),
                              std::chrono::milliseconds replyTimeout = WpaSocket::kReplyTimeout);

    CorvidWifiClient(const CorvidWifiClient&) = delete;
    CorvidWifiClient& operator=(const CorvidWifiClient&) = delete;

    /** Returns the handle, or -1. See WpaSocket::registerEventCallback. */
    int registerWpaCallback(WifiClientCallbackType type,
                            std::function<void(const std::string&)>& callback,
                            NetInterfaceType interfaceType);

    /**
     * Ends a subscription: once it returns, the callback is not running and never runs again. Takes
     * no lock, because it waits for a running callback, which may be about to send a command.
     * Returns false if the handle is not registered.
     */
    bool unregisterWpaCallback(WifiClientCallbackType type, int handle,
                               NetInterfaceType interfaceType);

    /** Sends a command on one interface's socket. See WpaSocket::sendCtrlCmd. */
    bool sendWpaCtrlCmd(const std::string& cmd, std::string& reply, NetInterfaceType interfaceType);

    /**
     * Fills in the interface's name and sends a generic nl80211 command. Returns false if the
     * interface does not exist (not logged) or the kernel rejects the command (Nl80211Client logs
     * why).
     */
    bool sendGenericNlCmd(Nl80211GenericCmdInfo& info);

    /** As above for a vendor command; logs the outcome too. */
    bool sendVendorNlCmd(Nl80211VendorCmdInfo& info);

    /** For interface names and the station's bandwidth. These queries do not take netlinkLock_. */
    Nl80211Client* getNl80211Client() { return &nl80211Client_; }

    // For reports: these do not wait for a command or a netlink request.
    const History& history() const { return history_; }
    /** The supplicant's sockets. */
    StateTree describeSockets();
    StateTree describeNetlink() const { return nl80211Client_.stats().describe(); }
    /** The commands that wait for the supplicant or the kernel: a list of COMMANDs. */
    StateTree describePending();

    /** Not owned. The root sets itself before it creates managers, and null in its destructor. */
    void setCompositionRoot(CompositionRoot* root) EXCLUDES(rootMutex_);
    CompositionRoot* compositionRoot() EXCLUDES(rootMutex_);

    /**
     * Notes in the composition root's task map that `task` runs on the calling thread. Does nothing
     * without a root, so a thread that outlives the root may call it.
     */
    void recordTask(const std::string& task) EXCLUDES(rootMutex_);

  private:
    /** Sends `info` through `send` and adds it to the history. */
    template <typename Info>
    bool sendNetlink_(const Info& info, const std::string& text,
                      int (Nl80211Client::*send)(const Info&, int* error));

    History history_;
    RecursiveMutex supplicantLock_;
    RecursiveMutex netlinkLock_;
    WpaClient wpaClient_;
    Nl80211Client nl80211Client_;
    Mutex rootMutex_;  ///< held while the task map is written
    CompositionRoot* root_ GUARDED_BY(rootMutex_) = nullptr;
};

}  // namespace Ursa::OS::Wifi
