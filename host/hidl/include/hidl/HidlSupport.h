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
#include <mutex>  // for generated code
#include <new>
#include <sstream>
#include <string>
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

namespace android::hidl::base::V1_0 {
struct IBase;
}

namespace android::hardware {

/** Notified when the process of a linked object dies. */
struct hidl_death_recipient : public virtual RefBase {
    /**
     * Called once per link, on the thread that serves the process's calls.
     * @param who the proxy whose linkToDeath() was called with `cookie`.
     */
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};

/** Refers to a handle of descriptors, which it does not own. */
struct hidl_handle {
    hidl_handle() = default;
    hidl_handle(const native_handle_t* handle) : handle_(handle) {}  // NOLINT
    hidl_handle(const hidl_handle&) = delete;
    hidl_handle& operator=(const hidl_handle&) = delete;
    hidl_handle& operator=(const native_handle_t* handle) {
        handle_ = handle;
        return *this;
    }

    const native_handle_t* getNativeHandle() const { return handle_; }
    const native_handle_t* operator->() const { return handle_; }
    operator const native_handle_t*() const { return handle_; }  // NOLINT

  private:
    details::hidl_pointer<const native_handle_t> handle_;
    [[maybe_unused]] uint8_t unused_[8] = {};
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

    operator std::string() const { return {c_str(), size_}; }  // NOLINT

    const char* c_str() const { return buffer_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    void clear();

    /** Refers to bytes that outlive this string; `data[size]` is NUL. */
    void setToExternal(const char* data, size_t size);

    /** Offset of the pointer to the bytes, for the wire. */
    static const size_t kOffsetOfBuffer;

  private:
    void assign_(const char* text, size_t length);
    void takeFrom_(hidl_string& other) noexcept;

    details::hidl_pointer<const char> buffer_;  // never null
    uint32_t size_;                             // in bytes, without the NUL
    bool ownsBuffer_;
    [[maybe_unused]] uint8_t padding_[3] = {};
};

inline bool operator==(const hidl_string& a, const hidl_string& b) {
    return a.size() == b.size() && std::memcmp(a.c_str(), b.c_str(), a.size()) == 0;
}
inline bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }
inline std::ostream& operator<<(std::ostream& out, const hidl_string& text) {
    return out << std::string(text);
}

/** Shared memory. Does not exist on a host; generated code asserts the size. */
struct alignas(8) hidl_memory {
    uint8_t opaque[40];
};

/** A sequence of at most 2^32 - 1 elements. Copies own their elements. */
template <typename T>
struct hidl_vec {
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    hidl_vec() = default;
    explicit hidl_vec(size_t size) { resize(size); }
    hidl_vec(std::initializer_list<T> list) { assign_(list.begin(), list.end()); }
    hidl_vec(const std::vector<T>& other) {  // NOLINT(google-explicit-constructor)
        assign_(other.begin(), other.end());
    }
    template <typename Iterator,
              typename = typename std::iterator_traits<Iterator>::iterator_category>
    hidl_vec(Iterator first, Iterator last) {
        assign_(first, last);
    }
    hidl_vec(const hidl_vec& other) { assign_(other.begin(), other.end()); }
    hidl_vec(hidl_vec&& other) noexcept { takeFrom_(other); }
    ~hidl_vec() { release_(); }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) {
            hidl_vec copy(other);
            release_();
            takeFrom_(copy);
        }
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this != &other) {
            release_();
            takeFrom_(other);
        }
        return *this;
    }
    hidl_vec& operator=(const std::vector<T>& other) { return *this = hidl_vec(other); }
    hidl_vec& operator=(std::initializer_list<T> list) { return *this = hidl_vec(list); }

    operator std::vector<T>() const { return {begin(), end()}; }  // NOLINT

    T* data() { return buffer_; }
    const T* data() const { return buffer_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T& operator[](size_t index) { return buffer_.get()[index]; }
    const T& operator[](size_t index) const { return buffer_.get()[index]; }
    T* begin() { return buffer_; }
    T* end() { return buffer_.get() + size_; }
    const T* begin() const { return buffer_; }
    const T* end() const { return buffer_.get() + size_; }

    /** Keeps the elements that remain; new ones are value-initialised. */
    void resize(size_t size) {
        hidl_vec other;
        other.allocate_(size);
        std::copy(begin(), begin() + std::min<size_t>(size_, size), other.begin());
        release_();
        takeFrom_(other);
    }

    /** Refers to elements that outlive this vector. */
    void setToExternal(T* data, size_t size) {
        release_();
        buffer_ = data;
        size_ = checkedSize_(size);
    }

    /** Offset of the pointer to the elements, for the wire. */
    static const size_t kOffsetOfBuffer;

  private:
    static uint32_t checkedSize_(size_t size) {
        if (size > std::numeric_limits<uint32_t>::max()) {
            details::logAlwaysFatal("a hidl_vec can't have 2^32 elements");
        }
        return static_cast<uint32_t>(size);
    }

    // Only on an empty vector.
    void allocate_(size_t size) {
        size_ = checkedSize_(size);
        buffer_ = size == 0 ? nullptr : new T[size]();
        ownsBuffer_ = true;
    }

    template <typename Iterator>
    void assign_(Iterator first, Iterator last) {
        allocate_(static_cast<size_t>(std::distance(first, last)));
        std::copy(first, last, begin());
    }

    void release_() {
        if (ownsBuffer_) {
            delete[] buffer_.get();
        }
        buffer_ = nullptr;
        size_ = 0;
        ownsBuffer_ = false;
    }

    // Only on an empty vector.
    void takeFrom_(hidl_vec& other) noexcept {
        buffer_ = other.buffer_;
        size_ = other.size_;
        ownsBuffer_ = other.ownsBuffer_;
        other.buffer_ = nullptr;
        other.size_ = 0;
        other.ownsBuffer_ = false;
    }

    details::hidl_pointer<T> buffer_;
    uint32_t size_ = 0;
    bool ownsBuffer_ = false;
    [[maybe_unused]] uint8_t padding_[3] = {};
};

template <typename T>
const size_t hidl_vec<T>::kOffsetOfBuffer = 0;  // buffer_ is its first member

template <typename T>
bool operator==(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}
template <typename T>
bool operator!=(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return !(a == b);
}

/** An array of one dimension. */
template <typename T, size_t Size>
struct hidl_array {
    hidl_array() = default;
    hidl_array(const T (&source)[Size]) {  // NOLINT(google-explicit-constructor)
        std::copy(source, source + Size, elements_);
    }

    T* data() { return elements_; }
    const T* data() const { return elements_; }
    static constexpr size_t size() { return Size; }

    T& operator[](size_t index) { return elements_[index]; }
    const T& operator[](size_t index) const { return elements_[index]; }

    bool operator==(const hidl_array& other) const {
        return std::equal(elements_, elements_ + Size, other.elements_);
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

  private:
    T elements_[Size] = {};
};

/** A set of an enumeration's values. */
template <typename T>
using hidl_bitfield = std::underlying_type_t<T>;

namespace details {

/**
 * The values of an enumeration; generated headers specialise it. In an unnamed namespace for clang,
 * which otherwise finds the constants defined in several files; gcc does not allow specialising one
 * that is in an unnamed namespace.
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

// For logs.

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
template <typename T, size_t Size>
std::string toString(const hidl_array<T, Size>& array) {
    return details::listToString(array.data(), array.data() + Size);
}

}  // namespace android::hardware
