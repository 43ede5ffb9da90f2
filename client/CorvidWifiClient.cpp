#include "client/CorvidWifiClient.h"

#include <array>
#include <cstdio>
#include <utility>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

/** "vendor 0x001018/2 P2P_SET_NOA 255 0 50" */
std::string vendorText(const Nl80211VendorCmdInfo& info) {
    std::array<char, 40> number;
    snprintf(number.data(), number.size(), "vendor 0x%06x/%u", info.vendorId, info.subcmd);
    return info.command.empty() ? number.data() : number.data() + (" " + info.command);
}

}  // namespace

CorvidWifiClient::CorvidWifiClient(const std::string& socketDirectory,
                                   std::chrono::milliseconds replyTimeout)
    : wpaClient_(history_, socketDirectory, replyTimeout) {}

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
    return info.ifname != nullptr && sendNetlink_(info, "command " + std::to_string(info.cmd),
                                                  &Nl80211Client::sendGenericCommand);
}

template <typename Info>
bool CorvidWifiClient::sendNetlink_(const Info& info, const std::string& text,
                                    int (Nl80211Client::*send)(const Info&, int* error)) {
    const int64_t startNs = Moment::monotonicNow();
    int error = 0;
    const bool sent = (nl80211Client_.*send)(info, &error) == 0;
    history_.addCommand(HistoryKind::Netlink, info.interfaceType, text,
                        sent ? CommandOutcome::Answered : CommandOutcome::Failed,
                        sent ? "" : errorText(error), startNs, Moment::monotonicNow());
    return sent;
}

StateTree CorvidWifiClient::describeSockets() {
    StateTree state = StateTree::parts();
    state.set("directory", wpaClient_.directory());
    StateTree& sockets = state.set("sockets", StateTree::list());
    for (const NetInterfaceType type : {NetInterfaceType::STA, NetInterfaceType::P2P}) {
        sockets.add(wpaClient_.describe(type));
    }
    return state;
}

StateTree CorvidWifiClient::describePending() {
    StateTree pending = StateTree::list();
    for (const NetInterfaceType type : {NetInterfaceType::STA, NetInterfaceType::P2P}) {
        if (StateTree command = wpaClient_.describePending(type); !command.isNothing()) {
            pending.add(std::move(command));
        }
    }
    if (StateTree exchange = nl80211Client_.stats().describePending(); !exchange.isNothing()) {
        pending.add(std::move(exchange));
    }
    return pending;
}

bool CorvidWifiClient::sendVendorNlCmd(Nl80211VendorCmdInfo& info) {
    RecursiveMutexLock lock(netlinkLock_);
    info.ifname = nl80211Client_.getNetInterfaceName(info.interfaceType);
    if (info.ifname == nullptr) {
        WIFI_LOGE("%s interface not found. Ignoring NlCmd [%s].", toString(info.interfaceType),
                  info.command.c_str());
        return false;
    }
    if (!sendNetlink_(info, vendorText(info), &Nl80211Client::sendVendorCommand)) {
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
        root_->mapTaskToPid(task, currentThread());
    }
}

}  // namespace Ursa::OS::Wifi
