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

namespace android {
namespace hardware {

/** How a call went: not the callee's answer, but whether there is one. */
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

    bool isOk() const { return mException == EX_NONE; }
    Exception exceptionCode() const { return mException; }
    /** The transport's status when the exception is EX_TRANSACTION_FAILED, else OK. */
    status_t transactionError() const { return mTransactionError; }
    const char* exceptionMessage() const { return mMessage.c_str(); }

    /** For people, for example "Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '". */
    std::string description() const;

  private:
    Exception mException = EX_NONE;
    status_t mTransactionError = OK;
    std::string mMessage;
};

/** Reads a status from the front of a reply. */
status_t readFromParcel(Status* status, const Parcel& parcel);
status_t writeToParcel(const Status& status, Parcel* parcel);

namespace details {

/**
 * The part of Return<T> that does not depend on T.
 *
 * As on the device, a failure that nobody looked at is fatal: the destructor logs it and aborts
 * the process, and so does taking the value of a failed call. A host shows the bug early that
 * would end the daemon on the headset.
 */
class return_status {
  public:
    return_status() = default;
    return_status(Status status) : mStatus(std::move(status)) {}  // NOLINT
    return_status(return_status&& other) noexcept { *this = std::move(other); }
    return_status& operator=(return_status&& other) noexcept;
    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;
    ~return_status() { abortIfUnchecked(); }

    /** Whether the call reached its object and came back. */
    bool isOk() const {
        mChecked = true;
        return mStatus.isOk();
    }

    /** Whether the object's process has gone away. */
    bool isDeadObject() const {
        mChecked = true;
        return mStatus.transactionError() == DEAD_OBJECT;
    }

    /** For people. Does not count as looking at the result. */
    std::string description() const { return mStatus.description(); }

    /** Aborts the process when the call failed. */
    void assertOk() const;

  private:
    void abortIfUnchecked() const;

    Status mStatus;
    mutable bool mChecked = false;
};

}  // namespace details

/** What a call of an interface's method returns: its value, or that the call failed. */
template <typename T>
class [[nodiscard]] Return : public details::return_status {
  public:
    Return(T value) : mValue(std::move(value)) {}  // NOLINT(google-explicit-constructor)
    Return(Status status) : return_status(std::move(status)), mValue{} {}  // NOLINT

    /** The value; aborts the process when the call failed. */
    operator T() const {  // NOLINT(google-explicit-constructor)
        assertOk();
        return mValue;
    }
    T withDefault(T otherwise) const { return isOk() ? mValue : otherwise; }

  private:
    T mValue;
};

template <typename T>
class [[nodiscard]] Return<sp<T>> : public details::return_status {
  public:
    Return(T* value) : mValue(value) {}                // NOLINT
    Return(sp<T> value) : mValue(std::move(value)) {}  // NOLINT
    template <typename U>
    Return(const sp<U>& value) : mValue(value) {}                // NOLINT
    Return(Status status) : return_status(std::move(status)) {}  // NOLINT

    /** The value; aborts the process when the call failed. */
    operator sp<T>() const {  // NOLINT(google-explicit-constructor)
        assertOk();
        return mValue;
    }
    sp<T> withDefault(const sp<T>& otherwise) const { return isOk() ? mValue : otherwise; }

  private:
    sp<T> mValue;
};

template <>
class [[nodiscard]] Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(Status status) : return_status(std::move(status)) {}  // NOLINT
};

/** What a method without a value returns. */
inline Return<void> Void() { return {}; }

}  // namespace hardware
}  // namespace android
