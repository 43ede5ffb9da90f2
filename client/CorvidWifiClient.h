#pragma once

#include <functional>
#include <string>

#include "client/CompositionRoot.h"
#include "client/NetInterfaceType.h"
#include "client/Nl80211Client.h"
#include "client/WifiClientCallbackType.h"
#include "client/WpaClient.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

/**
 * The one object through which managers reach the supplicant and the kernel. Thread-safe, with one
 * recursive lock for each of the two: supplicant commands and registrations run one at a time, and
 * so do netlink sends, but a command and a send may overlap. A lock is held until the answer has
 * come, so that two commands cannot interleave.
 */
class CorvidWifiClient {
  public:
    /** Starts following the supplicant's sockets in `socketDirectory` (with trailing slash). */
    explicit CorvidWifiClient(const std::string& socketDirectory = WpaClient::socketDirectory());

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

    /** Direct access past the netlink lock, for interface names and the station's bandwidth. */
    Nl80211Client* getNl80211Client() { return &nl80211Client_; }

    /**
     * Not owned. Set once, before the first manager exists, and back to null when the root goes;
     * null outside of that.
     */
    void setCompositionRoot(CompositionRoot* root) EXCLUDES(rootMutex_);
    CompositionRoot* compositionRoot() EXCLUDES(rootMutex_);

    /**
     * Notes in the composition root's task map that `task` runs on the calling thread. Safe also
     * for a thread that may outlive the root.
     */
    void recordTask(const std::string& task) EXCLUDES(rootMutex_);

  private:
    RecursiveMutex supplicantLock_;
    RecursiveMutex netlinkLock_;
    WpaClient wpaClient_;
    Nl80211Client nl80211Client_;
    Mutex rootMutex_;  ///< held while the task map is written
    CompositionRoot* root_ GUARDED_BY(rootMutex_) = nullptr;
};

}  // namespace Ursa::OS::Wifi
