// The path of a call: bytes as they arrive on a connection, put together to frames, and each call's
// data and objects read by the interface's generated stub into arguments that the service uses.
//
// An input begins with a byte: the size of the pieces in which the rest arrives. With the first
// piece of a frame come as many descriptors as the frame announces, if that is in the piece.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <cutils/native_handle.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <vendor/corvid/hardware/wifi/1.0/BnHwCorvidWifiManagerCallback.h>
#include <vendor/corvid/hardware/wifi/1.0/BnHwWifi.h>
#include <vendor/corvid/hardware/wifi/1.0/IWifi.h>

#include "host/hidl/src/Frame.h"
#include "tests/fuzz/Check.h"
#include "tests/support/IdleCallback.h"

using namespace vendor::corvid::hardware::wifi::V1_0;
using android::sp;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::IBinder;
using android::hardware::Parcel;
using android::hardware::Return;
using android::hardware::Void;
using host::hidl::Frame;
using host::hidl::FrameHeader;
using host::hidl::FrameReader;
using host::hidl::FrameType;
using host::hidl::ObjectId;

namespace {

/** Of descriptors with one message: what the kernel lets a process send. */
constexpr size_t kMostSent = 253;

class Deaths : public android::hardware::hidl_death_recipient {
  public:
    void serviceDied(uint64_t, const android::wp<android::hidl::base::V1_0::IBase>&) override {}
};

/** An object of this process without an interface of ours. */
class Stranger : public android::hardware::BHwBinder {
  public:
    android::status_t onTransact(uint32_t, const Parcel&, Parcel*, uint32_t,
                                 TransactCallback) override {
        return android::UNKNOWN_TRANSACTION;
    }
};

/** An object of another process, which has died or answers without a word. */
class Remote : public IBinder {
  public:
    explicit Remote(android::status_t status) : status_(status) {}

    android::status_t transact(uint32_t, const Parcel&, Parcel* reply, uint32_t,
                               TransactCallback callback) override {
        if (status_ == android::OK && reply != nullptr && callback != nullptr) {
            callback(*reply);
        }
        return status_;
    }
    android::status_t linkToDeath(const sp<DeathRecipient>&) override { return status_; }
    android::status_t unlinkToDeath(const sp<DeathRecipient>&) override { return status_; }

  private:
    const android::status_t status_;
};

/** Uses all of every argument. */
class Service : public IWifi {
  public:
    Return<void> clearScs(int32_t, clearScs_cb answer) override { return done_(answer); }
    Return<void> dumpInfo(dumpInfo_cb answer) override {
        answer("text");
        return Void();
    }
    Return<void> getP2pInfo(getP2pInfo_cb answer) override {
        answer({5180, 80});
        return Void();
    }
    Return<void> getStaInfo(getStaInfo_cb answer) override {
        answer({5180, -50, 3});
        return Void();
    }
    Return<void> isP2pPairedDeviceType(P2pDeviceType, isP2pPairedDeviceType_cb answer) override {
        return done_(answer);
    }
    Return<void> registerCorvidWifiManagerCallback(
        const sp<ICorvidWifiManagerCallback>& callback,
        registerCorvidWifiManagerCallback_cb answer) override {
        use_(callback);
        return done_(answer);
    }
    Return<void> setElnaBypass(uint32_t, setElnaBypass_cb answer) override { return done_(answer); }
    Return<void> setMccTimeAllocation(uint32_t, setMccTimeAllocation_cb answer) override {
        return done_(answer);
    }
    Return<void> setP2pNoa(uint32_t, uint32_t, uint32_t, setP2pNoa_cb answer) override {
        return done_(answer);
    }
    Return<void> setP2pPairedDeviceType(P2pDeviceType, setP2pPairedDeviceType_cb answer) override {
        return done_(answer);
    }
    Return<int32_t> setScsV4(const ScsProfileV4& profile) override {
        return read_(profile.localIp) + read_(profile.remoteIp);
    }
    Return<int32_t> setScsV6(const ScsProfileV6& profile) override {
        return read_(profile.localIp) + read_(profile.remoteIp);
    }
    Return<void> startCsa(uint32_t, uint32_t, startCsa_cb answer) override { return done_(answer); }
    Return<void> unregisterCorvidWifiManagerCallback(
        const sp<ICorvidWifiManagerCallback>& callback,
        unregisterCorvidWifiManagerCallback_cb answer) override {
        use_(callback);
        return done_(answer);
    }
    Return<void> updateTxPowerConfig(bool, updateTxPowerConfig_cb answer) override {
        return done_(answer);
    }

    Return<void> debug(const hidl_handle& handle, const hidl_vec<hidl_string>& options) override {
        for (const hidl_string& option : options) {
            read_(option);
        }
        const native_handle_t* native = handle.getNativeHandle();
        for (int i = 0; native != nullptr && i < native->numFds + native->numInts; ++i) {
            FUZZ_CHECK(i >= native->numFds || fcntl(native->data[i], F_GETFD) != -1);
        }
        return Void();
    }

  private:
    template <typename Answer>
    static Return<void> done_(const Answer& answer) {
        answer(Status{0, ""});
        return Void();
    }

    /** As the daemon uses one that registers: compares, links, calls, lets go. */
    static void use_(const sp<ICorvidWifiManagerCallback>& callback) {
        if (callback == nullptr) {
            return;
        }
        FUZZ_CHECK(android::hardware::interfacesEqual(callback, callback));
        const sp<Deaths> deaths = new Deaths;
        (void)callback->linkToDeath(deaths, 0).isOk();
        (void)callback->onAssocStarted().isOk();
        (void)callback->onRegdomUpdated("USER", "COUNTRY", "US").isOk();
        (void)callback->unlinkToDeath(deaths).isOk();
    }

    static int32_t read_(const hidl_string& text) {
        const std::string copy(text.c_str(), text.size());
        FUZZ_CHECK(text.c_str()[text.size()] == '\0');
        return static_cast<int32_t>(std::count(copy.begin(), copy.end(), '.'));
    }
};

/** What the number in an object's id stands for. */
sp<IBinder> object(const ObjectId& id) {
    static const std::array<sp<IBinder>, 7> objects = {
        nullptr,
        new BnHwCorvidWifiManagerCallback(new test::IdleCallback),
        new BnHwCorvidWifiManagerCallback(new test::IdleCallback),
        new BnHwWifi(new Service),
        new Stranger,
        new Remote(android::DEAD_OBJECT),
        new Remote(android::OK),
    };
    return objects[static_cast<size_t>(id.object % objects.size())];
}

void call(Frame frame) {
    static const sp<BnHwWifi> stub = new BnHwWifi(new Service);
    std::vector<sp<IBinder>> objects;
    for (uint32_t i = 0; i < frame.header.objectCount; ++i) {
        objects.push_back(object(frame.objects()[i]));
    }
    const auto header = frame.header;
    uint8_t* bytes = frame.data();
    Parcel data;
    data.setReceived(std::move(frame.body), bytes, header.dataSize, std::move(objects),
                     std::move(frame.descriptors));
    Parcel reply;
    stub->transact(header.code, data, &reply, header.flags, [](Parcel&) {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
        return true;
    }();
    (void)quiet;
    if (size == 0) {
        return 0;
    }
    const size_t piece = std::max<size_t>(data[0], 1);
    FrameReader reader;
    for (size_t at = 1; at < size;) {
        const size_t count = std::min({piece, reader.wanted(), size - at});
        FUZZ_CHECK(count > 0);
        if (reader.isEmpty()) {
            FrameHeader header{};
            std::memcpy(&header, data + at, count);
            for (size_t i = 0; i < std::min<size_t>(header.descriptorCount, kMostSent); ++i) {
                reader.add(android::base::unique_fd(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)));
            }
        }
        std::memcpy(reader.space(), data + at, count);
        at += count;
        switch (reader.advance(count)) {
            case FrameReader::State::Partial:
                break;
            case FrameReader::State::Malformed:
                FUZZ_CHECK(reader.problem() != nullptr);
                return 0;
            case FrameReader::State::Complete: {
                Frame frame = reader.take();
                if (frame.header.type == FrameType::Call) {
                    call(std::move(frame));
                }
                break;
            }
        }
    }
    return 0;
}
