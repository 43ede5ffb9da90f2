#include "tools/Debug.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include <android-base/unique_fd.h>
#include <cutils/native_handle.h>

namespace Ursa::OS::Wifi::Tools {

using ::android::sp;
using ::android::base::unique_fd;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;

namespace {

/** Makes the call on a thread of its own, which a service that hangs may keep for ever. */
std::future<bool> callDebug(const sp<IWifi>& service, std::vector<std::string> options,
                            unique_fd output) {
    std::promise<bool> promise;
    std::future<bool> answered = promise.get_future();
    std::thread([service, options = std::move(options), output = std::move(output),
                 promise = std::move(promise)]() mutable {
        std::vector<hidl_string> words(options.begin(), options.end());
        const std::unique_ptr<native_handle_t, decltype(&native_handle_delete)> handle(
            native_handle_create(1, 0), &native_handle_delete);
        handle->data[0] = output.get();
        const bool ok =
            service->debug(hidl_handle(handle.get()), hidl_vec<hidl_string>(words)).isOk();
        output.reset();  // with the service's copy, the reader's end of file
        promise.set_value(ok);
    }).detach();
    return answered;
}

}  // namespace

std::string askDebug(const sp<IWifi>& service, const std::vector<std::string>& options) {
    unique_fd input;
    unique_fd output;
    if (!::android::base::Pipe(&input, &output)) {
        throw std::runtime_error(std::string("no pipe: ") + strerror(errno));
    }
    std::future<bool> answered = callDebug(service, options, std::move(output));
    std::string text;
    std::array<char, 4096> part;
    while (true) {
        const ssize_t size = read(input.get(), part.data(), part.size());
        if (size == 0) {
            break;
        }
        if (size > 0) {
            text.append(part.data(), static_cast<size_t>(size));
        }
    }
    if (!answered.get()) {
        throw ServiceDied("the service died while it was asked");
    }
    return text;
}

}  // namespace Ursa::OS::Wifi::Tools
