// The other side of the HIDL runtime's tests: serves IEcho "default" on its main thread, as the
// daemon does. Prints "ready", or "failed STATUS" and ends with status 1.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include <corvid/test/1.0/IEcho.h>
#include <cutils/native_handle.h>
#include <hidl/HidlTransportSupport.h>
#include <sys/syscall.h>

#include "tests/support/Emulated.h"

using android::sp;
using android::wp;
using android::hardware::hidl_death_recipient;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::interfacesEqual;
using android::hardware::Return;
using android::hardware::Void;
using android::hidl::base::V1_0::IBase;
using corvid::test::V1_0::ICallback;
using corvid::test::V1_0::IEcho;
using corvid::test::V1_0::Outer;

namespace {

// The number of entries, or very many when the folder can't be read.
uint32_t entriesOf(const char* folder) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(folder, error);
    return error ? UINT32_MAX : static_cast<uint32_t>(std::distance(begin(entries), end(entries)));
}

class Echo : public IEcho {
  public:
    Return<void> text(const hidl_string& text, text_cb reply) override {
        reply(text);
        return Void();
    }

    Return<void> outer(const Outer& outer, outer_cb reply) override {
        reply(Outer(outer));  // a copy, so that the answer is not what has arrived
        return Void();
    }

    Return<void> scalars(bool a, int8_t b, uint16_t c, int64_t d, float e, double f,
                         scalars_cb reply) override {
        reply(a, b, c, d, e, f);
        return Void();
    }

    Return<int32_t> add(int32_t a, int32_t b) override { return a + b; }

    Return<bool> keep(const sp<ICallback>& callback) override {
        const bool equal = interfacesEqual(callback, mKept);
        mKept = callback;
        return equal;
    }

    Return<sp<ICallback>> kept() override { return mKept; }

    Return<int32_t> callBack(const sp<ICallback>& callback, int32_t number) override {
        const Return<int32_t> answer = callback->onCall(number);
        return answer.isOk() ? static_cast<int32_t>(answer) : -1;
    }

    Return<void> callKept(int32_t number, callKept_cb reply) override {
        const Return<int32_t> answer = mKept->onCall(number);
        reply(answer.isOk(), answer.description());
        return Void();
    }

    Return<bool> watchKept() override { return mKept->linkToDeath(mDeath, ++mLastCookie); }

    Return<void> deaths(deaths_cb reply) override {
        std::lock_guard<std::mutex> lock(mDeath->mutex);
        reply(mDeath->cookies);
        return Void();
    }

    Return<void> hang() override {
        for (;;) {
            pause();
        }
    }

    Return<void> die() override { _exit(3); }

    Return<void> threads(threads_cb reply) override {
        reply(entriesOf("/proc/self/task") - test::kEmulatorThreads,
              syscall(SYS_gettid) == getpid());
        return Void();
    }

    Return<uint32_t> descriptors() override { return entriesOf("/proc/self/fd"); }

    Return<void> post(int32_t number) override {
        mPosted = number;
        return Void();
    }

    Return<int32_t> posted() override { return mPosted; }

    Return<void> returnHandle(const hidl_handle& handle, returnHandle_cb reply) override {
        reply(handle);
        return Void();
    }

    Return<void> debug(const hidl_handle& handle, const hidl_vec<hidl_string>& options) override {
        std::string text;
        for (const hidl_string& option : options) {
            text += std::string(option) + "\n";
        }
        for (int i = 0; handle.getNativeHandle() != nullptr && i < handle->numFds; ++i) {
            if (write(handle->data[i], text.data(), text.size()) < 0) {
                std::perror("write");
            }
        }
        return Void();
    }

  private:
    struct Death : hidl_death_recipient {
        void serviceDied(uint64_t cookie, const wp<IBase>& who) override {
            std::lock_guard<std::mutex> lock(mutex);
            // The cookie's upper half tells whether `who` is there and on which thread it is told.
            const bool right = who.promote() != nullptr && syscall(SYS_gettid) == getpid();
            cookies.push_back(right ? cookie : cookie | 1ULL << 32);
        }
        std::mutex mutex;
        std::vector<uint64_t> cookies;
    };

    sp<ICallback> mKept;
    uint64_t mLastCookie = 0;
    const sp<Death> mDeath = new Death;
    int32_t mPosted = 0;
};

}  // namespace

int main(int argc, char** argv) {
    android::hardware::configureRpcThreadpool(1, true);
    const sp<IEcho> echo = new Echo;
    const android::status_t status = echo->registerAsService(argc > 1 ? argv[1] : "default");
    if (status != android::OK) {
        std::printf("failed %d\n", status);
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    android::hardware::joinRpcThreadpool();
}
