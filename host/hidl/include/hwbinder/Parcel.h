#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <android-base/unique_fd.h>
#include <hwbinder/IBinder.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

struct native_handle;
typedef struct native_handle native_handle_t;

namespace android::hardware {

/**
 * The arguments or the results of one call, read in the order in which they were written.
 * Everything that is read is checked; docs/host-platform.md describes the layout. Used by one
 * thread at a time.
 */
class Parcel {
  public:
    struct BufferHeader {
        uint32_t tag;           // kBufferTag
        uint32_t size;          // of the bytes, without padding
        uint32_t parent;        // index of the buffer with the pointer, or kNoParent
        uint32_t parentOffset;  // of the pointer, 0 without a parent
    };
    static constexpr uint32_t kBufferTag = 0x46465542;  // "BUFF"
    static constexpr uint32_t kNoParent = UINT32_MAX;
    static constexpr uint32_t kNoObject = UINT32_MAX;
    /** Of the numbers in a handle. */
    static constexpr uint32_t kMaxHandleInts = 64;

    /** An empty parcel, to be written. */
    Parcel() = default;

    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    /** Makes this a parcel to be read: `data`, at a multiple of 8, which `memory` keeps alive. */
    void setReceived(std::unique_ptr<uint8_t[]> memory, uint8_t* data, size_t size,
                     std::vector<sp<IBinder>> objects,
                     std::vector<base::unique_fd> descriptors = {});

    const uint8_t* data() const { return received_ != nullptr ? received_ : written_.data(); }
    size_t dataSize() const { return received_ != nullptr ? receivedSize_ : written_.size(); }
    /** Bytes read so far. */
    size_t dataPosition() const { return position_; }
    /** Bytes not read yet. */
    size_t dataAvail() const { return dataSize() - position_; }
    const std::vector<sp<IBinder>>& objects() const { return objects_; }
    /** Those that were written; their owners keep them open until the parcel is sent. */
    const std::vector<int>& descriptors() const { return descriptors_; }
    bool hasUnreadDescriptors() const { return nextDescriptor_ < receivedDescriptors_.size(); }

    // The writers return OK, or BAD_VALUE for what can't be sent.
    status_t writeInterfaceToken(const char* interface);
    status_t writeBool(bool value) { return writeValue_(static_cast<uint32_t>(value ? 1 : 0)); }
    status_t writeInt8(int8_t value) { return writeValue_(value); }
    status_t writeUint8(uint8_t value) { return writeValue_(value); }
    status_t writeInt16(int16_t value) { return writeValue_(value); }
    status_t writeUint16(uint16_t value) { return writeValue_(value); }
    status_t writeInt32(int32_t value) { return writeValue_(value); }
    status_t writeUint32(uint32_t value) { return writeValue_(value); }
    status_t writeInt64(int64_t value) { return writeValue_(value); }
    status_t writeUint64(uint64_t value) { return writeValue_(value); }
    status_t writeFloat(float value) { return writeValue_(value); }
    status_t writeDouble(double value) { return writeValue_(value); }
    /** A string with a NUL inside arrives cut off there. */
    status_t writeCString(const char* text);
    status_t writeNativeHandleNoDup(const native_handle_t* handle);
    status_t writeStrongBinder(const sp<IBinder>& binder);
    /** @param handle receives what names the buffer as a parent. */
    status_t writeBuffer(const void* bytes, size_t size, size_t* handle);
    /** @param parentOffset offset of the pointer in the parent; the copy's pointer is zeroed. */
    status_t writeEmbeddedBuffer(const void* bytes, size_t size, size_t* handle, size_t parent,
                                 size_t parentOffset);

    // The readers return OK, NOT_ENOUGH_DATA or BAD_VALUE; what they hand out points into the
    // parcel and lives as long as it does.
    bool enforceInterface(const char* interface) const;
    status_t readBool(bool* value) const;
    status_t readInt8(int8_t* value) const { return readValue_(value); }
    status_t readUint8(uint8_t* value) const { return readValue_(value); }
    status_t readInt16(int16_t* value) const { return readValue_(value); }
    status_t readUint16(uint16_t* value) const { return readValue_(value); }
    status_t readInt32(int32_t* value) const { return readValue_(value); }
    status_t readUint32(uint32_t* value) const { return readValue_(value); }
    status_t readInt64(int64_t* value) const { return readValue_(value); }
    status_t readUint64(uint64_t* value) const { return readValue_(value); }
    status_t readFloat(float* value) const { return readValue_(value); }
    status_t readDouble(double* value) const { return readValue_(value); }
    /** Null when there is no complete string. */
    const char* readCString() const;
    /** Null for a null handle. The parcel closes the handle's descriptors. */
    status_t readNullableNativeHandleNoDup(const native_handle_t** handle) const;
    status_t readNullableStrongBinder(sp<IBinder>* binder) const;
    /** UNEXPECTED_NULL for a null object. */
    status_t readStrongBinder(sp<IBinder>* binder) const;
    status_t readBuffer(size_t size, size_t* handle, const void** bytes) const;
    status_t readEmbeddedBuffer(size_t size, size_t* handle, size_t parent, size_t parentOffset,
                                const void** bytes) const;

  private:
    struct HandleDeleter {
        void operator()(native_handle_t* handle) const;
    };

    // Where a buffer's bytes are in the data.
    struct Buffer {
        size_t offset;
        size_t size;
    };

    template <typename T>
    status_t writeValue_(T value) {
        return append_(&value, sizeof(value));
    }
    template <typename T>
    status_t readValue_(T* value) const {
        return take_(value, sizeof(*value));
    }

    status_t append_(const void* bytes, size_t size);
    status_t take_(void* bytes, size_t size) const;
    status_t appendBuffer_(const void* bytes, size_t size, uint32_t parent, uint32_t parentOffset,
                           size_t* handle);
    status_t takeBuffer_(size_t size, uint32_t parent, uint32_t parentOffset, size_t* handle,
                         const void** bytes) const;

    std::vector<uint8_t> written_;  // 8-aligned: from operator new
    std::unique_ptr<uint8_t[]> memory_;
    uint8_t* received_ = nullptr;
    size_t receivedSize_ = 0;
    std::vector<sp<IBinder>> objects_;
    std::vector<int> descriptors_;
    std::vector<base::unique_fd> receivedDescriptors_;
    // Generated code expects const readers.
    mutable size_t position_ = 0;
    mutable std::vector<Buffer> buffers_;
    mutable size_t nextDescriptor_ = 0;
    mutable std::vector<std::unique_ptr<native_handle_t, HandleDeleter>> handles_;
};

}  // namespace android::hardware
