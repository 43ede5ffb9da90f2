// An IWifi service for tests of its clients. It prints each call that it gets as one line, the
// method and its arguments, and is told on standard input what to do:
//
//   status CODE [DESCRIPTION]          answer this to the calls that answer a status
//   id NUMBER                          answer this to setScsV4 and setScsV6
//   p2p FREQUENCY BANDWIDTH            answer this to getP2pInfo
//   sta FREQUENCY RSSI BANDWIDTH       answer this to getStaInfo
//   text HEX                           answer these bytes to dumpInfo
//   report JSON                        write this in the debug call
//   channel FREQUENCY WIDTH true|false call the clients' onChannelSwitch
//   assoc                              call the clients' onAssocStarted
//   regdom HEX HEX HEX                 call the clients' onRegdomUpdated with these bytes
//   early                              call onAssocStarted of a client before it is registered
//   die                                end, without an answer, in the next call
//
// It prints "ready" when it is registered, and "ok" when it has done what it was told. It ends
// when standard input does.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <android-base/file.h>
#include <android-base/thread_annotations.h>
#include <cutils/native_handle.h>
#include <hidl/HidlTransportSupport.h>
#include <vendor/corvid/hardware/wifi/1.0/IWifi.h>

#include "os/Mutex.h"

namespace {

using ::android::sp;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::interfacesEqual;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::Ursa::OS::Mutex;
using ::Ursa::OS::MutexLock;
using namespace ::vendor::corvid::hardware::wifi::V1_0;

void printLine(const std::string& line) {
    static Mutex mutex;
    MutexLock lock(mutex);
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::string fromHex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

class FakeWifiService : public IWifi {
  public:
    /** Carries out a line of standard input. */
    void obey(const std::string& line) {
        std::istringstream words(line);
        std::string verb;
        words >> verb;
        if (verb == "channel") {
            int32_t frequency = 0;
            int32_t width = 0;
            bool isP2p = false;
            words >> frequency >> width >> std::boolalpha >> isP2p;
            for (const sp<ICorvidWifiManagerCallback>& client : clients()) {
                report(client->onChannelSwitch(frequency, width, isP2p));
            }
        } else if (verb == "assoc") {
            for (const sp<ICorvidWifiManagerCallback>& client : clients()) {
                report(client->onAssocStarted());
            }
        } else if (verb == "regdom") {
            std::string init;
            std::string type;
            std::string alpha2;
            words >> init >> type >> alpha2;
            for (const sp<ICorvidWifiManagerCallback>& client : clients()) {
                report(client->onRegdomUpdated(fromHex(init), fromHex(type), fromHex(alpha2)));
            }
        } else {
            setAnswer(verb, words);
        }
        printLine("ok");
    }

    Return<void> clearScs(int32_t id, clearScs_cb callback) override {
        return answer("clearScs", {id}, callback);
    }
    Return<void> debug(const hidl_handle& handle, const hidl_vec<hidl_string>& /*o*/) override {
        MutexLock lock(mutex_);
        if (die_) {
            ::_exit(0);
        }
        ::android::base::WriteStringToFd(report_, handle->data[0]);
        return Void();
    }
    Return<void> dumpInfo(dumpInfo_cb callback) override {
        note("dumpInfo");
        MutexLock lock(mutex_);
        callback(text_);
        return Void();
    }
    Return<void> getP2pInfo(getP2pInfo_cb callback) override {
        note("getP2pInfo");
        MutexLock lock(mutex_);
        callback(p2p_);
        return Void();
    }
    Return<void> getStaInfo(getStaInfo_cb callback) override {
        note("getStaInfo");
        MutexLock lock(mutex_);
        callback(sta_);
        return Void();
    }
    Return<void> isP2pPairedDeviceType(P2pDeviceType type,
                                       isP2pPairedDeviceType_cb callback) override {
        return answer("isP2pPairedDeviceType", {static_cast<uint32_t>(type)}, callback);
    }
    Return<void> registerCorvidWifiManagerCallback(
        const sp<ICorvidWifiManagerCallback>& client,
        registerCorvidWifiManagerCallback_cb callback) override {
        bool early = false;
        {
            MutexLock lock(mutex_);
            early = early_;
            if (client != nullptr && status_.code == 0) {
                clients_.push_back(client);
            }
        }
        if (early) {
            report(client->onAssocStarted());
        }
        return answer(client == nullptr ? "register null" : "register", {}, callback);
    }
    Return<void> setElnaBypass(uint32_t mode, setElnaBypass_cb callback) override {
        return answer("setElnaBypass", {mode}, callback);
    }
    Return<void> setMccTimeAllocation(uint32_t value, setMccTimeAllocation_cb callback) override {
        return answer("setMccTimeAllocation", {value}, callback);
    }
    Return<void> setP2pNoa(uint32_t count, uint32_t noaValue1, uint32_t noaValue2,
                           setP2pNoa_cb callback) override {
        return answer("setP2pNoa", {count, noaValue1, noaValue2}, callback);
    }
    Return<void> setP2pPairedDeviceType(P2pDeviceType type,
                                        setP2pPairedDeviceType_cb callback) override {
        return answer("setP2pPairedDeviceType", {static_cast<uint32_t>(type)}, callback);
    }
    Return<int32_t> setScsV4(const ScsProfileV4& profile) override {
        std::ostringstream line;
        line << "setScsV4 " << std::string(profile.localIp) << " " << profile.localPort << " "
             << std::string(profile.remoteIp) << " " << profile.remotePort << " "
             << int{profile.dscp} << " " << int{profile.protocol};
        note(line.str());
        MutexLock lock(mutex_);
        return id_;
    }
    Return<int32_t> setScsV6(const ScsProfileV6& profile) override {
        std::ostringstream line;
        line << "setScsV6 " << std::string(profile.localIp) << " " << profile.localPort << " "
             << std::string(profile.remoteIp) << " " << profile.remotePort << " "
             << profile.flowLabel << " " << int{profile.dscp} << " " << int{profile.protocol};
        note(line.str());
        MutexLock lock(mutex_);
        return id_;
    }
    Return<void> startCsa(uint32_t channel, uint32_t bandwidth, startCsa_cb callback) override {
        return answer("startCsa", {channel, bandwidth}, callback);
    }
    Return<void> unregisterCorvidWifiManagerCallback(
        const sp<ICorvidWifiManagerCallback>& client,
        unregisterCorvidWifiManagerCallback_cb callback) override {
        bool known = false;
        {
            MutexLock lock(mutex_);
            for (size_t i = 0; i < clients_.size(); ++i) {
                if (client != nullptr && interfacesEqual(clients_[i], client)) {
                    clients_.erase(clients_.begin() + static_cast<ptrdiff_t>(i));
                    known = true;
                    break;
                }
            }
        }
        const char* what = client == nullptr ? " null" : known ? "" : " unknown";
        return answer(std::string("unregister") + what, {}, callback);
    }
    Return<void> updateTxPowerConfig(bool allowed, updateTxPowerConfig_cb callback) override {
        return answer("updateTxPowerConfig", {allowed ? 1 : 0}, callback);
    }

  private:
    void setAnswer(const std::string& verb, std::istringstream& words) {
        MutexLock lock(mutex_);
        if (verb == "status") {
            std::string description;
            words >> status_.code >> std::ws;
            std::getline(words, description);
            status_.description = description;
        } else if (verb == "id") {
            words >> id_;
        } else if (verb == "p2p") {
            words >> p2p_.frequency >> p2p_.bandwidth;
        } else if (verb == "sta") {
            words >> sta_.frequency >> sta_.rssi >> sta_.bandwidth;
        } else if (verb == "text") {
            std::string hex;
            words >> hex;
            text_ = fromHex(hex);
        } else if (verb == "report") {
            std::getline(words >> std::ws, report_);
        } else if (verb == "early") {
            early_ = true;
        } else if (verb == "die") {
            die_ = true;
        } else {
            printLine("unknown: " + verb);
            std::exit(1);
        }
    }

    /** Prints a call. */
    void note(const std::string& line) {
        {
            MutexLock lock(mutex_);
            if (die_) {
                ::_exit(0);
            }
        }
        printLine(line);
    }

    template <typename Callback>
    Return<void> answer(std::string line, const std::vector<int64_t>& arguments,
                        const Callback& callback) {
        for (const int64_t argument : arguments) {
            line += " " + std::to_string(argument);
        }
        note(line);
        MutexLock lock(mutex_);
        callback(status_);
        return Void();
    }

    std::vector<sp<ICorvidWifiManagerCallback>> clients() {
        MutexLock lock(mutex_);
        return clients_;
    }

    static void report(const Return<void>& result) {
        if (!result.isOk()) {
            printLine("callback failed");
        }
    }

    Mutex mutex_;
    Status status_ GUARDED_BY(mutex_) = {0, ""};
    P2pInfo p2p_ GUARDED_BY(mutex_) = {-1, -1};
    StaInfo sta_ GUARDED_BY(mutex_) = {-1, -1, 0};
    int32_t id_ GUARDED_BY(mutex_) = 0;
    std::string text_ GUARDED_BY(mutex_);
    std::string report_ GUARDED_BY(mutex_);
    bool early_ GUARDED_BY(mutex_) = false;
    bool die_ GUARDED_BY(mutex_) = false;
    std::vector<sp<ICorvidWifiManagerCallback>> clients_ GUARDED_BY(mutex_);
};

}  // namespace

int main() {
    const sp<FakeWifiService> service = new FakeWifiService();
    ::android::hardware::configureRpcThreadpool(1, true);
    if (service->registerAsService("default") != ::android::OK) {
        std::fprintf(stderr, "can't register\n");
        return 1;
    }
    std::thread([service] {
        std::string line;
        while (std::getline(std::cin, line)) {
            service->obey(line);
        }
        ::_exit(0);  // joinRpcThreadpool never returns
    }).detach();
    printLine("ready");
    ::android::hardware::joinRpcThreadpool();
    return 0;
}
