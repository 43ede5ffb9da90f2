#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <hidl/HidlInternal.h>
#include <hidl/HidlSupport.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

namespace android::hardware {

/** Whether a call reached its object and came back. */
class Status final {
  public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_TRANSACTION_FAILED = -129,
    };

    Status() = default;
    static Status ok() { return {}; }
    static Status fromExceptionCode(Exception code, const char* message = "");
    static Status fromStatusT(status_t status);

    /** OK is success, anything else EX_TRANSACTION_FAILED with that status. */
    void setFromStatusT(status_t status);
    void setException(Exception code, const char* message);

    bool isOk() const { return exception_ == EX_NONE; }
    Exception exceptionCode() const { return exception_; }
    /** The transport's status when the exception is EX_TRANSACTION_FAILED, else OK. */
    status_t transactionError() const { return transactionError_; }
    const char* exceptionMessage() const { return message_.c_str(); }

    /** For logs, for example "Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '". */
    std::string description() const;

  private:
    Exception exception_ = EX_NONE;
    status_t transactionError_ = OK;
    std::string message_;
};

/** Reads a status from the front of a reply. */
status_t readFromParcel(Status* status, const Parcel& parcel);
status_t writeToParcel(const Status& status, Parcel* parcel);

namespace details {

/**
 * The part of Return<T> that does not depend on T. As on the device, the process aborts, with a log
 * line, if a failure is destroyed that nobody looked at, or the value of a failed call is taken.
 */
class return_status {
  public:
    return_status() = default;
    return_status(Status status) : status_(std::move(status)) {}  // NOLINT
    return_status(return_status&& other) noexcept { *this = std::move(other); }
    return_status& operator=(return_status&& other) noexcept;
    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;
    ~return_status() { abortIfUnchecked_(); }

    /** Whether the call reached its object and came back. */
    bool isOk() const {
        checked_ = true;
        return status_.isOk();
    }

    /** Whether the object's process has gone away. */
    bool isDeadObject() const {
        checked_ = true;
        return status_.transactionError() == DEAD_OBJECT;
    }

    /** Does not count as looking at the result. */
    std::string description() const { return status_.description(); }

    /** Aborts the process when the call failed. */
    void assertOk() const;

  private:
    void abortIfUnchecked_() const;

    Status status_;
    mutable bool checked_ = false;
};

}  // namespace details

/** The result of an interface's method: its value, or that the call failed. */
template <typename T>
class [[nodiscard]] Return : public details::return_status {
  public:
    Return(T value) : value_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
    Return(Status status) : return_status(std::move(status)), value_{} {}  // NOLINT

    /** The value; aborts the process when the call failed. */
    operator T() const {  // NOLINT(google-explicit-constructor)
        assertOk();
        return value_;
    }
    T withDefault(T otherwise) const { return isOk() ? value_ : otherwise; }

  private:
    T value_;
};

template <typename T>
class [[nodiscard]] Return<sp<T>> : public details::return_status {
  public:
    Return(T* value) : value_(value) {}                // NOLINT
    Return(sp<T> value) : value_(std::move(value)) {}  // NOLINT
    template <typename U>
    Return(const sp<U>& value) : value_(value) {}                // NOLINT
    Return(Status status) : return_status(std::move(status)) {}  // NOLINT

    /** The value; aborts the process when the call failed. */
    operator sp<T>() const {  // NOLINT(google-explicit-constructor)
        assertOk();
        return value_;
    }
    sp<T> withDefault(const sp<T>& otherwise) const { return isOk() ? value_ : otherwise; }

  private:
    sp<T> value_;
};

template <>
class [[nodiscard]] Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(Status status) : return_status(std::move(status)) {}  // NOLINT
};

/** What a method without a value returns. */
inline Return<void> Void() { return {}; }

}  // namespace android::hardware
