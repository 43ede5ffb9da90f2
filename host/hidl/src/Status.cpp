#define LOG_TAG "hidl"

#include <hidl/Status.h>
#include <log/log.h>

#include "StatusText.h"

namespace android::hardware {

static const char* exceptionName(Status::Exception exception) {
    switch (exception) {
        case Status::EX_NONE:
            return "EX_NONE";
        case Status::EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case Status::EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case Status::EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case Status::EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
    }
    return "unknown exception";
}

Status Status::fromExceptionCode(Exception code, const char* message) {
    Status status;
    status.setException(code, message);
    return status;
}

Status Status::fromStatusT(status_t error) {
    Status status;
    status.setFromStatusT(error);
    return status;
}

void Status::setFromStatusT(status_t status) {
    exception_ = status == android::OK ? EX_NONE : EX_TRANSACTION_FAILED;
    transactionError_ = status;
    message_.clear();
}

void Status::setException(Exception code, const char* message) {
    exception_ = code;
    transactionError_ = code == EX_TRANSACTION_FAILED ? FAILED_TRANSACTION : android::OK;
    message_ = message;
}

std::string Status::description() const {
    if (isOk()) {
        return "No error";
    }
    std::string text = std::string("Status(") + exceptionName(exception_) + "): '";
    if (exception_ == EX_TRANSACTION_FAILED) {
        text += host::hidl::statusText(transactionError_) + ": ";
    }
    return text + message_ + "'";
}

status_t readFromParcel(Status* status, const Parcel& parcel) {
    int32_t exception = 0;
    if (const status_t error = parcel.readInt32(&exception); error != OK) {
        return error;
    }
    if (exception == Status::EX_NONE) {
        *status = Status::ok();
        return OK;
    }
    const char* message = parcel.readCString();
    if (message == nullptr) {
        return BAD_VALUE;
    }
    *status = Status::fromExceptionCode(static_cast<Status::Exception>(exception), message);
    return OK;
}

status_t writeToParcel(const Status& status, Parcel* parcel) {
    const status_t error = parcel->writeInt32(status.exceptionCode());
    if (error != OK || status.isOk()) {
        return error;
    }
    return parcel->writeCString(status.exceptionMessage());
}

namespace details {

return_status& return_status::operator=(return_status&& other) noexcept {
    if (this != &other) {
        abortIfUnchecked_();
        status_ = std::move(other.status_);
        checked_ = other.checked_;
        other.checked_ = true;
    }
    return *this;
}

void return_status::assertOk() const {
    checked_ = true;
    if (!status_.isOk()) {
        LOG_ALWAYS_FATAL("The value of a failed HIDL call is used: %s", description().c_str());
    }
}

void return_status::abortIfUnchecked_() const {
    if (!checked_ && !status_.isOk()) {
        LOG_ALWAYS_FATAL("A failed HIDL call was not checked: %s", description().c_str());
    }
}

}  // namespace details
}  // namespace android::hardware
