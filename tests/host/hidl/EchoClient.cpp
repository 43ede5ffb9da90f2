// A short-lived client for the HIDL runtime's tests.
//   hidl-echo-client keep COUNT   passes COUNT objects to be kept, and drops them
//   hidl-echo-client kept         leaves an object behind and prints "ready", then waits
//   hidl-echo-client hung         the same, with an object that never answers

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <corvid/test/1.0/IEcho.h>
#include <hidl/HidlTransportSupport.h>

using android::sp;
using android::hardware::Return;
using corvid::test::V1_0::ICallback;
using corvid::test::V1_0::IEcho;

namespace {

class Callback : public ICallback {
  public:
    explicit Callback(bool hangs) : mHangs(hangs) {}
    Return<int32_t> onCall(int32_t number) override {
        while (mHangs) {
            pause();
        }
        return number;
    }

  private:
    const bool mHangs;
};

}  // namespace

int main(int argc, char** argv) {
    const sp<IEcho> echo = IEcho::tryGetService();
    if (echo == nullptr || argc < 2) {
        std::puts("no service");
        return 3;
    }
    const std::string what = argv[1];
    if (what == "keep") {
        for (int i = std::atoi(argv[2]); i > 0; --i) {
            if (!echo->keep(new Callback(false)).isOk() || !echo->keep(nullptr).isOk()) {
                return 1;
            }
        }
        return 0;
    }
    if (!echo->keep(new Callback(what == "hung")).isOk()) {
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        pause();
    }
}
