#pragma once

// The types of the HIDL language in C++, with the layout that generated code asserts and that
// structures have on the wire.

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <hidl/HidlInternal.h>
#include <log/log.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

struct native_handle;
typedef struct native_handle native_handle_t;

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {
struct IBase;
}
}  // namespace base
}  // namespace hidl

namespace hardware {

/** Told when the process of an object it is linked to has gone away. */
struct hidl_death_recipient : public virtual RefBase {
    /**
     * Runs once per link, on the thread that serves the process's calls.
     *
     * @param cookie what linkToDeath was given.
     * @param who the proxy it was linked through.
     */
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};

/** A handle of descriptors. On a host only null handles can be sent to another process. */
struct hidl_handle {
    hidl_handle() = default;
    hidl_handle(const native_handle_t* handle) : mHandle(handle) {}  // NOLINT
    hidl_handle(const hidl_handle&) = delete;
    hidl_handle& operator=(const hidl_handle&) = delete;
    hidl_handle& operator=(const native_handle_t* handle) {
        mHandle = handle;
        return *this;
    }

    const native_handle_t* getNativeHandle() const { return mHandle; }
    const native_handle_t* operator->() const { return mHandle; }
    operator const native_handle_t*() const { return mHandle; }  // NOLINT

  private:
    details::hidl_pointer<const native_handle_t> mHandle;
    [[maybe_unused]] bool mOwnsHandle = false;
    [[maybe_unused]] uint8_t mPadding[7] = {};
};

/** A byte string with a NUL behind it. Copies own their bytes. */
struct hidl_string {
    hidl_string();
    ~hidl_string();
    hidl_string(const char* text);                 // NOLINT(google-explicit-constructor)
    hidl_string(const char* text, size_t length);  // up to 4 GiB; more is fatal
    hidl_string(const std::string& text);          // NOLINT(google-explicit-constructor)
    hidl_string(const hidl_string& other);
    hidl_string(hidl_string&& other) noexcept;
    hidl_string& operator=(const hidl_string& other);
    hidl_string& operator=(hidl_string&& other) noexcept;
    hidl_string& operator=(const char* text);
    hidl_string& operator=(const std::string& text);

    operator std::string() const { return {c_str(), mSize}; }  // NOLINT

    const char* c_str() const { return mBuffer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    void clear();

    /** Refers to bytes of somebody else: `data[size]` is NUL, and both outlive this string. */
    void setToExternal(const char* data, size_t size);

    /** Offset of the pointer to the bytes, for the wire. */
    static const size_t kOffsetOfBuffer;

  private:
    void assign(const char* text, size_t length);
    void takeFrom(hidl_string& other) noexcept;

    details::hidl_pointer<const char> mBuffer;  // never null
    uint32_t mSize;                             // in bytes, without the NUL
    bool mOwnsBuffer;
    [[maybe_unused]] uint8_t mPadding[3] = {};
};

inline bool operator==(const hidl_string& a, const hidl_string& b) {
    return a.size() == b.size() && std::memcmp(a.c_str(), b.c_str(), a.size()) == 0;
}
inline bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }
inline bool operator<(const hidl_string& a, const hidl_string& b) {
    return std::string(a) < std::string(b);
}
inline bool operator==(const hidl_string& a, const char* b) {
    return b != nullptr && std::strcmp(a.c_str(), b) == 0;
}
inline bool operator!=(const hidl_string& a, const char* b) { return !(a == b); }
inline bool operator==(const char* a, const hidl_string& b) { return b == a; }
inline bool operator!=(const char* a, const hidl_string& b) { return !(b == a); }
inline bool operator==(const hidl_string& a, const std::string& b) { return std::string(a) == b; }
inline bool operator!=(const hidl_string& a, const std::string& b) { return !(a == b); }
inline bool operator==(const std::string& a, const hidl_string& b) { return b == a; }
inline std::ostream& operator<<(std::ostream& out, const hidl_string& text) {
    return out << std::string(text);
}

/** Shared memory. Only its layout exists on a host. */
struct hidl_memory {
    const native_handle_t* handle() const { return mHandle; }
    const hidl_string& name() const { return mName; }
    uint64_t size() const { return mSize; }

  private:
    hidl_handle mHandle;
    alignas(8) uint64_t mSize = 0;
    hidl_string mName;
};

/** A sequence of at most 2^32 - 1 elements. Copies own their elements. */
template <typename T>
struct hidl_vec {
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    hidl_vec() = default;
    explicit hidl_vec(size_t size) { resize(size); }
    hidl_vec(std::initializer_list<T> list) { assign(list.begin(), list.end()); }
    hidl_vec(const std::vector<T>& other) {  // NOLINT(google-explicit-constructor)
        assign(other.begin(), other.end());
    }
    template <typename Iterator,
              typename = typename std::iterator_traits<Iterator>::iterator_category>
    hidl_vec(Iterator first, Iterator last) {
        assign(first, last);
    }
    hidl_vec(const hidl_vec& other) { assign(other.begin(), other.end()); }
    hidl_vec(hidl_vec&& other) noexcept { takeFrom(other); }
    ~hidl_vec() { release(); }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) {
            hidl_vec copy(other);
            release();
            takeFrom(copy);
        }
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this != &other) {
            release();
            takeFrom(other);
        }
        return *this;
    }
    hidl_vec& operator=(const std::vector<T>& other) { return *this = hidl_vec(other); }
    hidl_vec& operator=(std::initializer_list<T> list) { return *this = hidl_vec(list); }

    operator std::vector<T>() const { return {begin(), end()}; }  // NOLINT

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    T& operator[](size_t index) { return mBuffer.get()[index]; }
    const T& operator[](size_t index) const { return mBuffer.get()[index]; }
    T* begin() { return mBuffer; }
    T* end() { return mBuffer.get() + mSize; }
    const T* begin() const { return mBuffer; }
    const T* end() const { return mBuffer.get() + mSize; }

    /** Keeps the elements that remain; new ones are value-initialised. */
    void resize(size_t size) {
        hidl_vec other;
        other.allocate(size);
        std::copy(begin(), begin() + std::min<size_t>(mSize, size), other.begin());
        release();
        takeFrom(other);
    }

    /** Refers to elements of somebody else, who keeps them while this vector lives. */
    void setToExternal(T* data, size_t size) {
        release();
        mBuffer = data;
        mSize = checkedSize(size);
    }

    /** Offset of the pointer to the elements, for the wire. */
    static const size_t kOffsetOfBuffer;

  private:
    static uint32_t checkedSize(size_t size) {
        if (size > std::numeric_limits<uint32_t>::max()) {
            details::logAlwaysFatal("a hidl_vec can't have 2^32 elements");
        }
        return static_cast<uint32_t>(size);
    }

    // Only on an empty vector.
    void allocate(size_t size) {
        mSize = checkedSize(size);
        mBuffer = size == 0 ? nullptr : new T[size]();
        mOwnsBuffer = true;
    }

    template <typename Iterator>
    void assign(Iterator first, Iterator last) {
        allocate(static_cast<size_t>(std::distance(first, last)));
        std::copy(first, last, begin());
    }

    void release() {
        if (mOwnsBuffer) {
            delete[] mBuffer.get();
        }
        mBuffer = nullptr;
        mSize = 0;
        mOwnsBuffer = false;
    }

    // Only on an empty vector.
    void takeFrom(hidl_vec& other) noexcept {
        mBuffer = other.mBuffer;
        mSize = other.mSize;
        mOwnsBuffer = other.mOwnsBuffer;
        other.mBuffer = nullptr;
        other.mSize = 0;
        other.mOwnsBuffer = false;
    }

    details::hidl_pointer<T> mBuffer;
    uint32_t mSize = 0;
    bool mOwnsBuffer = false;
    [[maybe_unused]] uint8_t mPadding[3] = {};
};

template <typename T>
const size_t hidl_vec<T>::kOffsetOfBuffer = 0;  // mBuffer is its first member

template <typename T>
bool operator==(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}
template <typename T>
bool operator!=(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return !(a == b);
}

namespace details {

template <typename T, size_t Size, size_t... Rest>
struct ArrayOf {
    using type = std::array<typename ArrayOf<T, Rest...>::type, Size>;
};
template <typename T, size_t Size>
struct ArrayOf<T, Size> {
    using type = std::array<T, Size>;
};

template <size_t... Sizes>
constexpr size_t product() {
    return (Sizes * ...);
}

// A row of an array of more than one dimension.
template <typename T, size_t Size, size_t... Rest>
struct ArrayRow {
    explicit ArrayRow(T* data) : mData(data) {}
    decltype(auto) operator[](size_t index) const {
        if constexpr (sizeof...(Rest) == 0) {
            return mData[index];
        } else {
            return ArrayRow<T, Rest...>(mData + index * product<Rest...>());
        }
    }
    static constexpr size_t size() { return Size; }

  private:
    T* mData;
};

}  // namespace details

/** An array with fixed dimensions, the last one changing fastest. */
template <typename T, size_t Size, size_t... Rest>
struct hidl_array {
    using std_array_type = typename details::ArrayOf<T, Size, Rest...>::type;

    hidl_array() = default;
    hidl_array(const T (&source)[Size]) {  // NOLINT(google-explicit-constructor)
        static_assert(sizeof...(Rest) == 0, "one dimension");
        std::copy(source, source + Size, mBuffer);
    }
    hidl_array(const std_array_type& source) {  // NOLINT(google-explicit-constructor)
        const auto* first = reinterpret_cast<const T*>(source.data());
        std::copy(first, first + elementCount(), mBuffer);
    }

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    static constexpr size_t elementCount() { return details::product<Size, Rest...>(); }
    static constexpr size_t size() { return Size; }

    decltype(auto) operator[](size_t index) {
        return details::ArrayRow<T, Size, Rest...>(mBuffer)[index];
    }
    decltype(auto) operator[](size_t index) const {
        return details::ArrayRow<const T, Size, Rest...>(mBuffer)[index];
    }

    bool operator==(const hidl_array& other) const {
        return std::equal(mBuffer, mBuffer + elementCount(), other.mBuffer);
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

  private:
    T mBuffer[details::product<Size, Rest...>()] = {};
};

/** A set of an enumeration's values. */
template <typename T>
using hidl_bitfield = std::underlying_type_t<T>;

namespace details {

/**
 * The values of an enumeration; generated headers specialise it for each. clang takes these
 * constants for external ones, defined again in each file, unless the template is internal; gcc
 * takes them for internal ones anyway, but does not let them specialise one that is.
 */
#ifdef __clang__
namespace {
#endif
template <typename T>
constexpr std::array<T, 0> hidl_enum_values = {};
#ifdef __clang__
}
#endif

/** Ends the life of a union's member. */
template <typename T>
void destructElement(T* element) {
    element->~T();
}

template <typename T>
std::string toHexString(T value) {
    std::ostringstream out;
    out << "0x" << std::hex << +value;
    return out.str();
}

}  // namespace details

/** Iterates over the values of an enumeration, in the order of its definition. */
template <typename T>
struct hidl_enum_range {
    constexpr auto begin() const { return details::hidl_enum_values<T>.begin(); }
    constexpr auto end() const { return details::hidl_enum_values<T>.end(); }
};

// Texts for people.

template <typename T, typename = std::enable_if_t<std::is_arithmetic<T>::value>>
std::string toString(T value) {
    std::ostringstream out;
    out << std::boolalpha << +value;
    return out.str();
}
inline std::string toString(bool value) { return value ? "true" : "false"; }
inline std::string toString(const hidl_string& text) { return "\"" + std::string(text) + "\""; }
inline std::string toString(const hidl_handle& handle) {
    return handle.getNativeHandle() == nullptr ? "nullptr" : "handle";
}
inline std::string toString(const hidl_memory& memory) {
    return "memory of " + std::to_string(memory.size()) + " bytes";
}
inline std::string toString(const sp<hidl_death_recipient>& recipient) {
    return recipient == nullptr ? "nullptr" : "recipient";
}

namespace details {
template <typename Iterator>
std::string listToString(Iterator first, Iterator last) {
    std::string text = "{";
    for (Iterator element = first; element != last; ++element) {
        text += element == first ? "" : ", ";
        text += toString(*element);
    }
    return text + "}";
}
}  // namespace details

template <typename T>
std::string toString(const hidl_vec<T>& vector) {
    return "[" + std::to_string(vector.size()) + "]" +
           details::listToString(vector.begin(), vector.end());
}
template <typename T, size_t... Sizes>
std::string toString(const hidl_array<T, Sizes...>& array) {
    return details::listToString(array.data(), array.data() + array.elementCount());
}

}  // namespace hardware
}  // namespace android
