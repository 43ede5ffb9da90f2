#include <algorithm>
#include <cstring>
#include <limits>

#include <cutils/native_handle.h>
#include <hidl/HidlTransportSupport.h>
#include <hwbinder/Parcel.h>

namespace android::hardware {

static constexpr size_t roundUp(size_t size, size_t unit) {
    return (size + unit - 1) / unit * unit;
}

void Parcel::setReceived(std::unique_ptr<uint8_t[]> memory, uint8_t* data, size_t size,
                         std::vector<sp<IBinder>> objects,
                         std::vector<base::unique_fd> descriptors) {
    written_.clear();
    memory_ = std::move(memory);
    received_ = data;
    receivedSize_ = size;
    objects_ = std::move(objects);
    descriptors_.clear();
    receivedDescriptors_ = std::move(descriptors);
    position_ = 0;
    buffers_.clear();
    nextDescriptor_ = 0;
    handles_.clear();
}

status_t Parcel::append_(const void* bytes, size_t size) {
    const size_t start = written_.size();
    written_.resize(start + roundUp(size, 4));  // also zeroes the padding
    if (size > 0) {
        std::memcpy(written_.data() + start, bytes, size);
    }
    return OK;
}

status_t Parcel::take_(void* bytes, size_t size) const {
    const size_t taken = roundUp(size, 4);
    if (dataAvail() < taken) {
        return NOT_ENOUGH_DATA;
    }
    std::memcpy(bytes, data() + position_, size);
    position_ += taken;
    return OK;
}

status_t Parcel::writeInterfaceToken(const char* interface) { return writeCString(interface); }

bool Parcel::enforceInterface(const char* interface) const {
    const char* token = readCString();
    return token != nullptr && std::strcmp(token, interface) == 0;
}

status_t Parcel::writeCString(const char* text) { return append_(text, std::strlen(text) + 1); }

const char* Parcel::readCString() const {
    const char* text = reinterpret_cast<const char*>(data() + position_);
    const void* end = dataAvail() == 0 ? nullptr : std::memchr(text, '\0', dataAvail());
    if (end == nullptr) {
        return nullptr;
    }
    const size_t taken = roundUp(static_cast<const char*>(end) - text + 1, 4);
    if (dataAvail() < taken) {
        return nullptr;
    }
    position_ += taken;
    return text;
}

status_t Parcel::readBool(bool* value) const {
    uint32_t number = 0;
    const status_t status = readUint32(&number);
    if (status == OK && number > 1) {
        return BAD_VALUE;
    }
    *value = number == 1;
    return status;
}

status_t Parcel::writeNativeHandleNoDup(const native_handle_t* handle) {
    if (handle == nullptr) {
        return writeUint32(0);
    }
    if (handle->numFds < 0 || handle->numInts < 0 ||
        static_cast<uint32_t>(handle->numInts) > kMaxHandleInts) {
        return BAD_VALUE;
    }
    const int* ints = handle->data + handle->numFds;
    descriptors_.insert(descriptors_.end(), handle->data, ints);
    writeUint32(1);
    writeInt32(handle->numFds);
    writeInt32(handle->numInts);
    return append_(ints, static_cast<size_t>(handle->numInts) * sizeof(int));
}

status_t Parcel::readNullableNativeHandleNoDup(const native_handle_t** handle) const {
    *handle = nullptr;
    bool isPresent = false;
    if (const status_t status = readBool(&isPresent); status != OK || !isPresent) {
        return status;
    }
    uint32_t descriptorCount = 0;
    uint32_t intCount = 0;
    readUint32(&descriptorCount);
    if (const status_t status = readUint32(&intCount); status != OK) {
        return status;
    }
    if (descriptorCount > receivedDescriptors_.size() - nextDescriptor_ ||
        intCount > kMaxHandleInts) {
        return BAD_VALUE;
    }
    std::unique_ptr<native_handle_t, HandleDeleter> read(
        native_handle_create(static_cast<int>(descriptorCount), static_cast<int>(intCount)));
    if (read == nullptr) {
        return NO_MEMORY;
    }
    for (uint32_t i = 0; i < descriptorCount; ++i) {
        read->data[i] = receivedDescriptors_[nextDescriptor_++].get();
    }
    if (const status_t status = take_(read->data + descriptorCount, intCount * sizeof(int));
        status != OK) {
        return status;
    }
    *handle = handles_.emplace_back(std::move(read)).get();
    return OK;
}

void Parcel::HandleDeleter::operator()(native_handle_t* handle) const {
    native_handle_delete(handle);
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& binder) {
    if (binder == nullptr) {
        return writeUint32(kNoObject);
    }
    objects_.push_back(binder);
    return writeUint32(static_cast<uint32_t>(objects_.size() - 1));
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* binder) const {
    *binder = nullptr;
    uint32_t index = 0;
    if (const status_t status = readUint32(&index); status != OK || index == kNoObject) {
        return status;
    }
    if (index >= objects_.size()) {
        return BAD_VALUE;
    }
    *binder = objects_[index];
    return OK;
}

status_t Parcel::readStrongBinder(sp<IBinder>* binder) const {
    const status_t status = readNullableStrongBinder(binder);
    return status == OK && *binder == nullptr ? UNEXPECTED_NULL : status;
}

status_t Parcel::appendBuffer_(const void* bytes, size_t size, uint32_t parent,
                               uint32_t parentOffset, size_t* handle) {
    if (size > std::numeric_limits<uint32_t>::max()) {
        return BAD_VALUE;
    }
    written_.resize(roundUp(written_.size(), 8));
    const BufferHeader header{kBufferTag, static_cast<uint32_t>(size), parent, parentOffset};
    append_(&header, sizeof(header));
    *handle = buffers_.size();
    buffers_.push_back({written_.size(), size});
    append_(bytes, size);
    written_.resize(roundUp(written_.size(), 8));
    return OK;
}

status_t Parcel::writeBuffer(const void* bytes, size_t size, size_t* handle) {
    return appendBuffer_(bytes, size, kNoParent, 0, handle);
}

status_t Parcel::writeEmbeddedBuffer(const void* bytes, size_t size, size_t* handle, size_t parent,
                                     size_t parentOffset) {
    if (parent >= buffers_.size() || parentOffset > buffers_[parent].size ||
        buffers_[parent].size - parentOffset < sizeof(uint64_t)) {
        return BAD_VALUE;
    }
    // An address of this process means nothing to others.
    std::memset(written_.data() + buffers_[parent].offset + parentOffset, 0, sizeof(uint64_t));
    return appendBuffer_(bytes, size, static_cast<uint32_t>(parent),
                         static_cast<uint32_t>(parentOffset), handle);
}

status_t Parcel::takeBuffer_(size_t size, uint32_t parent, uint32_t parentOffset, size_t* handle,
                             const void** bytes) const {
    const size_t start = roundUp(position_, 8);
    if (start > dataSize() || dataSize() - start < sizeof(BufferHeader)) {
        return NOT_ENOUGH_DATA;
    }
    BufferHeader header;
    std::memcpy(&header, data() + start, sizeof(header));
    if (header.tag != kBufferTag || header.size != size || header.parent != parent ||
        header.parentOffset != parentOffset) {
        return BAD_VALUE;
    }
    const size_t offset = start + sizeof(header);
    if (dataSize() - offset < roundUp(size, 8)) {
        return NOT_ENOUGH_DATA;
    }
    *handle = buffers_.size();
    buffers_.push_back({offset, size});
    *bytes = data() + offset;
    position_ = offset + roundUp(size, 8);
    return OK;
}

status_t Parcel::readBuffer(size_t size, size_t* handle, const void** bytes) const {
    return takeBuffer_(size, kNoParent, 0, handle, bytes);
}

status_t Parcel::readEmbeddedBuffer(size_t size, size_t* handle, size_t parent, size_t parentOffset,
                                    const void** bytes) const {
    if (parent >= buffers_.size() || parentOffset > buffers_[parent].size ||
        buffers_[parent].size - parentOffset < sizeof(uint64_t)) {
        return BAD_VALUE;
    }
    return takeBuffer_(size, static_cast<uint32_t>(parent), static_cast<uint32_t>(parentOffset),
                       handle, bytes);
}

status_t readEmbeddedFromParcel(const hidl_string& string, const Parcel& parcel, size_t parent,
                                size_t parentOffset) {
    const void* text = nullptr;
    size_t handle = 0;
    const size_t size = string.size();  // from the wire: the buffer must be there and match
    const status_t status = parcel.readEmbeddedBuffer(
        size + 1, &handle, parent, parentOffset + hidl_string::kOffsetOfBuffer, &text);
    if (status != OK) {
        return status;
    }
    if (static_cast<const char*>(text)[size] != '\0') {
        return BAD_VALUE;
    }
    // Nothing in the received bytes has been constructed, so nothing is released here.
    auto* received = new (const_cast<hidl_string*>(&string)) hidl_string;
    received->setToExternal(static_cast<const char*>(text), size);
    return OK;
}

status_t writeEmbeddedToParcel(const hidl_string& string, Parcel* parcel, size_t parent,
                               size_t parentOffset) {
    size_t handle = 0;
    return parcel->writeEmbeddedBuffer(string.c_str(), string.size() + 1, &handle, parent,
                                       parentOffset + hidl_string::kOffsetOfBuffer);
}

}  // namespace android::hardware
