#include "client/CorvidWifiClient.h"

#include <unistd.h>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

CorvidWifiClient::CorvidWifiClient(const std::string& socketDirectory)
    : wpaClient_(socketDirectory) {}

int CorvidWifiClient::registerWpaCallback(WifiClientCallbackType type,
                                          std::function<void(const std::string&)>& callback,
                                          NetInterfaceType interfaceType) {
    RecursiveMutexLock lock(supplicantLock_);
    return wpaClient_.registerEventCallback(type, callback, interfaceType);
}

bool CorvidWifiClient::unregisterWpaCallback(WifiClientCallbackType type, int handle,
                                             NetInterfaceType interfaceType) {
    // Without the lock: this waits for a running callback, which may be waiting for the lock to
    // send its command. The callback map below is safe by itself.
    return wpaClient_.unregisterEventCallback(type, handle, interfaceType);
}

bool CorvidWifiClient::sendWpaCtrlCmd(const std::string& cmd, std::string& reply,
                                      NetInterfaceType interfaceType) {
    RecursiveMutexLock lock(supplicantLock_);
    return wpaClient_.sendCtrlCmd(cmd, reply, interfaceType);
}

bool CorvidWifiClient::sendGenericNlCmd(Nl80211GenericCmdInfo& info) {
    RecursiveMutexLock lock(netlinkLock_);
    info.ifname = nl80211Client_.getNetInterfaceName(info.interfaceType);
    return info.ifname != nullptr && nl80211Client_.sendGenericCommand(info) == 0;
}

bool CorvidWifiClient::sendVendorNlCmd(Nl80211VendorCmdInfo& info) {
    RecursiveMutexLock lock(netlinkLock_);
    info.ifname = nl80211Client_.getNetInterfaceName(info.interfaceType);
    if (info.ifname == nullptr) {
        WIFI_LOGE("%s interface not found. Ignoring NlCmd [%s].", toString(info.interfaceType),
                  info.command.c_str());
        return false;
    }
    if (nl80211Client_.sendVendorCommand(info) != 0) {
        WIFI_LOGE("Failed to send vendor command to driver.");
        return false;
    }
    WIFI_LOGD("NL80211: ifname=%s cmd=[%s] oui=0x%06x", info.ifname, info.command.c_str(),
              info.vendorId);
    return true;
}

void CorvidWifiClient::setCompositionRoot(CompositionRoot* root) {
    MutexLock lock(rootMutex_);
    root_ = root;
}

CompositionRoot* CorvidWifiClient::compositionRoot() {
    MutexLock lock(rootMutex_);
    return root_;
}

void CorvidWifiClient::recordTask(const std::string& task) {
    MutexLock lock(rootMutex_);
    if (root_ != nullptr) {
        root_->mapTaskToPid(task, gettid());
    }
}

}  // namespace Ursa::OS::Wifi
