#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <cutils/native_handle.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>
#include <hwbinder/Parcel.h>

#include "host/hidl/src/Frame.h"

using android::BAD_VALUE;
using android::NOT_ENOUGH_DATA;
using android::OK;
using android::base::unique_fd;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Parcel;
using android::hardware::readEmbeddedFromParcel;
using android::hardware::writeEmbeddedToParcel;
using host::hidl::Frame;
using host::hidl::FrameHeader;
using host::hidl::FrameReader;
using host::hidl::FrameType;
using host::hidl::kFrameMagic;
using host::hidl::kMaxDataSize;
using host::hidl::kMaxDescriptors;
using host::hidl::kMaxObjects;
using host::hidl::ObjectId;
using host::hidl::problemOf;

namespace {

FrameHeader callHeader(uint32_t dataSize, uint32_t objects) {
    FrameHeader header{};
    header.magic = kFrameMagic;
    header.type = FrameType::Call;
    header.dataSize = dataSize;
    header.objectCount = static_cast<uint16_t>(objects);
    return header;
}

// Feeds a reader in pieces of `step` bytes; returns what it says last.
FrameReader::State feed(FrameReader& reader, const std::string& bytes, size_t step) {
    FrameReader::State state = FrameReader::State::Partial;
    for (size_t at = 0; at < bytes.size() && state == FrameReader::State::Partial;) {
        const size_t size = std::min({step, reader.wanted(), bytes.size() - at});
        std::memcpy(reader.space(), bytes.data() + at, size);
        state = reader.advance(size);
        at += size;
    }
    return state;
}

// What arrives when `written` is sent.
void deliver(const Parcel& written, Parcel* received) {
    std::unique_ptr<uint8_t[]> memory(new uint8_t[written.dataSize()]);
    std::memcpy(memory.get(), written.data(), written.dataSize());
    uint8_t* data = memory.get();
    received->setReceived(std::move(memory), data, written.dataSize(), written.objects());
}

void deliver(const std::vector<uint8_t>& bytes, Parcel* received) {
    std::unique_ptr<uint8_t[]> memory(new uint8_t[bytes.size() + 1]);
    std::copy(bytes.begin(), bytes.end(), memory.get());
    uint8_t* data = memory.get();
    received->setReceived(std::move(memory), data, bytes.size(), {});
}

std::vector<uint8_t> bytesOf(const Parcel& parcel) {
    return {parcel.data(), parcel.data() + parcel.dataSize()};
}

// A parcel with a structure that is one string.
void writeString(const hidl_string& text, Parcel* parcel) {
    size_t handle = 0;
    ASSERT_EQ(OK, parcel->writeBuffer(&text, sizeof(text), &handle));
    ASSERT_EQ(OK, writeEmbeddedToParcel(text, parcel, handle, 0));
}

android::status_t readString(const Parcel& parcel, const hidl_string** text) {
    size_t handle = 0;
    const void* bytes = nullptr;
    const android::status_t status = parcel.readBuffer(sizeof(hidl_string), &handle, &bytes);
    if (status != OK) {
        return status;
    }
    *text = static_cast<const hidl_string*>(bytes);
    return readEmbeddedFromParcel(**text, parcel, handle, 0);
}

}  // namespace

TEST(FrameReader, FrameInPiecesOfAnySizeIsPutTogether) {
    const FrameHeader header = callHeader(5, 1);
    const ObjectId object{1, 2};
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
    bytes.append(reinterpret_cast<const char*>(&object), sizeof(object)).append("12345");
    for (const size_t step :
         {size_t{1}, size_t{3}, size_t{39}, size_t{40}, size_t{41}, size_t{99}}) {
        FrameReader reader;
        ASSERT_EQ(FrameReader::State::Complete, feed(reader, bytes, step)) << step;
        const Frame frame = reader.take();
        EXPECT_EQ(2u, frame.objects()[0].object);
        EXPECT_EQ(0, std::memcmp(frame.data(), "12345", 5));
        EXPECT_TRUE(reader.isEmpty());
    }
}

TEST(FrameReader, TwoFramesAreReadOneAfterTheOther) {
    const FrameHeader header = callHeader(0, 0);
    const std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
    FrameReader reader;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(FrameReader::State::Complete, feed(reader, bytes, 40));
        reader.take();
    }
}

TEST(FrameReader, WrongHeaderIsRefusedBeforeItsBodyArrives) {
    FrameHeader header = callHeader(kMaxDataSize + 1, 0);
    FrameReader reader;
    const std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
    EXPECT_EQ(FrameReader::State::Malformed, feed(reader, bytes, 40));
    EXPECT_STREQ("oversized message", reader.problem());
}

TEST(FrameHeader, HeaderWithAWrongFieldIsRefused) {
    EXPECT_EQ(nullptr, problemOf(callHeader(kMaxDataSize, kMaxObjects)));
    FrameHeader header = callHeader(0, 0);
    header.magic = 0;
    EXPECT_STREQ("not a message", problemOf(header));
    EXPECT_STREQ("too many objects", problemOf(callHeader(0, kMaxObjects + 1)));
    header = callHeader(0, 0);
    header.flags = 2;
    EXPECT_STREQ("unknown flags", problemOf(header));
    for (const uint32_t type : {0u, 6u, 0xffffffffu}) {
        header = callHeader(0, 0);
        header.type = static_cast<FrameType>(type);
        EXPECT_STREQ("message of an unknown type", problemOf(header));
    }
    header = callHeader(0, 0);
    header.descriptorCount = kMaxDescriptors;
    EXPECT_EQ(nullptr, problemOf(header));
    header.descriptorCount = kMaxDescriptors + 1;
    EXPECT_STREQ("too many descriptors", problemOf(header));
    header.descriptorCount = 1;
    header.type = FrameType::Acquire;
    EXPECT_STREQ("malformed reference", problemOf(header));
    header.type = FrameType::Done;
    EXPECT_STREQ("malformed acknowledgement", problemOf(header));
    header = callHeader(1, 0);
    header.type = FrameType::Acquire;
    EXPECT_STREQ("malformed reference", problemOf(header));
    header.type = FrameType::Done;
    EXPECT_STREQ("malformed acknowledgement", problemOf(header));
    header.type = FrameType::Reply;
    header.target = 1;
    EXPECT_STREQ("malformed reply", problemOf(header));
}

TEST(Parcel, ValuesAreReadAsTheyWereWritten) {
    Parcel written;
    written.writeInterfaceToken("a@1.0::IB");
    written.writeBool(true);
    written.writeInt8(-1);
    written.writeUint64(1ULL << 63);
    written.writeDouble(0.5);
    written.writeStrongBinder(nullptr);
    writeString("text", &written);

    Parcel parcel;
    deliver(written, &parcel);
    bool flag = false;
    int8_t small = 0;
    uint64_t large = 0;
    double number = 0;
    android::sp<android::hardware::IBinder> binder;
    const hidl_string* text = nullptr;
    EXPECT_TRUE(parcel.enforceInterface("a@1.0::IB"));
    EXPECT_EQ(OK, parcel.readBool(&flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(OK, parcel.readInt8(&small));
    EXPECT_EQ(-1, small);
    EXPECT_EQ(OK, parcel.readUint64(&large));
    EXPECT_EQ(1ULL << 63, large);
    EXPECT_EQ(OK, parcel.readDouble(&number));
    EXPECT_EQ(0.5, number);
    EXPECT_EQ(OK, parcel.readNullableStrongBinder(&binder));
    EXPECT_EQ(OK, readString(parcel, &text));
    EXPECT_EQ("text", *text);
    EXPECT_EQ(0u, parcel.dataAvail());
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readBool(&flag));
}

TEST(Parcel, AddressesAreNotSent) {
    const hidl_string text("text");
    Parcel written;
    writeString(text, &written);
    const std::vector<uint8_t> bytes = bytesOf(written);
    const char* address = text.c_str();
    EXPECT_EQ(nullptr, memmem(bytes.data(), bytes.size(), &address, sizeof(address)));
}

TEST(Parcel, StringCutOffAnywhereIsRefused) {
    Parcel written;
    writeString("some text", &written);
    const std::vector<uint8_t> whole = bytesOf(written);
    for (size_t size = 0; size < whole.size(); ++size) {
        Parcel parcel;
        deliver(std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<long>(size)),
                &parcel);
        const hidl_string* text = nullptr;
        EXPECT_NE(OK, readString(parcel, &text)) << size;
    }
}

TEST(Parcel, StringWithAWrongHeaderIsRefused) {
    Parcel written;
    writeString("some text", &written);
    // The header of the structure, the size in it, and the header of its text.
    for (const size_t offset : {0, 4, 8, 12, 24, 32, 36, 40, 44}) {
        std::vector<uint8_t> bytes = bytesOf(written);
        bytes[offset] ^= 0x20;
        Parcel parcel;
        deliver(bytes, &parcel);
        const hidl_string* text = nullptr;
        EXPECT_EQ(BAD_VALUE, readString(parcel, &text)) << offset;
    }
}

TEST(Parcel, StringWithoutItsNulIsRefused) {
    Parcel written;
    writeString("1234567", &written);
    std::vector<uint8_t> bytes = bytesOf(written);
    bytes[bytes.size() - 1] = 'x';
    Parcel parcel;
    deliver(bytes, &parcel);
    const hidl_string* text = nullptr;
    EXPECT_EQ(BAD_VALUE, readString(parcel, &text));
}

TEST(Parcel, PointerFromTheWireIsNotTaken) {
    Parcel written;
    writeString("text", &written);
    std::vector<uint8_t> bytes = bytesOf(written);
    std::memset(bytes.data() + sizeof(Parcel::BufferHeader), 0x41, 8);
    Parcel parcel;
    deliver(bytes, &parcel);
    const hidl_string* text = nullptr;
    ASSERT_EQ(OK, readString(parcel, &text));
    EXPECT_EQ("text", *text);
}

TEST(Parcel, VectorThatClaimsMoreThanThereIsIsRefused) {
    const hidl_vec<int64_t> numbers = {1, 2, 3};
    Parcel written;
    size_t handle = 0;
    size_t child = 0;
    written.writeBuffer(&numbers, sizeof(numbers), &handle);
    writeEmbeddedToParcel(numbers, &written, handle, 0, &child);
    for (const uint32_t size : {2u, 4u, 0x20000003u, 0xffffffffu}) {
        std::vector<uint8_t> bytes = bytesOf(written);
        std::memcpy(bytes.data() + sizeof(Parcel::BufferHeader) + 8, &size, sizeof(size));
        Parcel parcel;
        deliver(bytes, &parcel);
        const void* vector = nullptr;
        ASSERT_EQ(OK, parcel.readBuffer(sizeof(numbers), &handle, &vector));
        EXPECT_EQ(BAD_VALUE, readEmbeddedFromParcel(*static_cast<const hidl_vec<int64_t>*>(vector),
                                                    parcel, handle, 0, &child))
            << size;
    }
}

TEST(Parcel, ParentWithoutRoomForThePointerIsRefused) {
    Parcel written;
    size_t handle = 0;
    written.writeBuffer("1234", 4, &handle);
    EXPECT_EQ(BAD_VALUE, written.writeEmbeddedBuffer("x", 1, &handle, 0, 0));
    EXPECT_EQ(BAD_VALUE, written.writeEmbeddedBuffer("x", 1, &handle, 1, 0));
}

TEST(Parcel, ObjectThatIsNotThereIsRefused) {
    for (const uint32_t index : {0u, 1u, 0xfffffffeu}) {
        Parcel written;
        written.writeUint32(index);
        Parcel parcel;
        deliver(written, &parcel);
        android::sp<android::hardware::IBinder> binder;
        EXPECT_EQ(BAD_VALUE, parcel.readNullableStrongBinder(&binder));
    }
}

/** A handle with descriptors 5, 6, ... and numbers 100, 101, ... */
std::unique_ptr<native_handle_t, decltype(&native_handle_delete)> makeHandle(int descriptors,
                                                                             int numbers) {
    std::unique_ptr<native_handle_t, decltype(&native_handle_delete)> handle(
        native_handle_create(descriptors, numbers), &native_handle_delete);
    for (int i = 0; i < descriptors; ++i) {
        handle->data[i] = 5 + i;
    }
    for (int i = 0; i < numbers; ++i) {
        handle->data[descriptors + i] = 100 + i;
    }
    return handle;
}

std::vector<unique_fd> openDescriptors(size_t count) {
    std::vector<unique_fd> opened(count);
    for (unique_fd& descriptor : opened) {
        descriptor.reset(open("/dev/null", O_RDWR | O_CLOEXEC));
    }
    return opened;
}

void deliver(const std::vector<uint8_t>& bytes, std::vector<unique_fd> descriptors,
             Parcel* received) {
    std::unique_ptr<uint8_t[]> memory(new uint8_t[bytes.size() + 1]);
    std::copy(bytes.begin(), bytes.end(), memory.get());
    uint8_t* data = memory.get();
    received->setReceived(std::move(memory), data, bytes.size(), {}, std::move(descriptors));
}

TEST(Parcel, HandleArrivesWithItsNumbersAndOtherDescriptors) {
    Parcel written;
    ASSERT_EQ(OK, written.writeNativeHandleNoDup(makeHandle(2, 3).get()));
    ASSERT_EQ(OK, written.writeNativeHandleNoDup(nullptr));
    ASSERT_EQ(OK, written.writeNativeHandleNoDup(makeHandle(1, 0).get()));
    EXPECT_EQ((std::vector<int>{5, 6, 5}), written.descriptors());

    int first = -1;
    {
        std::vector<unique_fd> descriptors = openDescriptors(3);
        first = descriptors[0].get();
        const int third = descriptors[2].get();
        Parcel parcel;
        deliver(bytesOf(written), std::move(descriptors), &parcel);
        const native_handle_t* handle = nullptr;
        ASSERT_EQ(OK, parcel.readNullableNativeHandleNoDup(&handle));
        ASSERT_EQ(2, handle->numFds);
        ASSERT_EQ(3, handle->numInts);
        EXPECT_EQ(first, handle->data[0]);
        EXPECT_EQ(102, handle->data[4]);
        EXPECT_TRUE(parcel.hasUnreadDescriptors());
        ASSERT_EQ(OK, parcel.readNullableNativeHandleNoDup(&handle));
        EXPECT_EQ(nullptr, handle);
        ASSERT_EQ(OK, parcel.readNullableNativeHandleNoDup(&handle));
        EXPECT_EQ(third, handle->data[0]);
        EXPECT_FALSE(parcel.hasUnreadDescriptors());
        EXPECT_NE(-1, fcntl(first, F_GETFD));
    }
    EXPECT_EQ(-1, fcntl(first, F_GETFD)) << "the parcel has left it open";
}

TEST(Parcel, HandleThatClaimsMoreThanThereIsIsRefused) {
    Parcel written;
    written.writeNativeHandleNoDup(makeHandle(1, 2).get());
    const std::vector<uint8_t> whole = bytesOf(written);
    const native_handle_t* handle = nullptr;
    for (size_t size = 0; size < whole.size(); ++size) {
        Parcel parcel;
        deliver({whole.begin(), whole.begin() + static_cast<long>(size)}, openDescriptors(1),
                &parcel);
        EXPECT_NE(OK, parcel.readNullableNativeHandleNoDup(&handle)) << size;
        EXPECT_EQ(nullptr, handle);
    }
    // The descriptors, and the numbers, that it claims.
    for (const size_t offset : {4, 8}) {
        for (const uint32_t count : {2u + 1u, 65u, 0x7fffffffu, 0xffffffffu}) {
            std::vector<uint8_t> bytes = whole;
            std::memcpy(bytes.data() + offset, &count, sizeof(count));
            Parcel parcel;
            deliver(bytes, openDescriptors(1), &parcel);
            EXPECT_NE(OK, parcel.readNullableNativeHandleNoDup(&handle)) << offset << " " << count;
        }
    }
    Parcel without;
    deliver(whole, {}, &without);
    EXPECT_EQ(BAD_VALUE, without.readNullableNativeHandleNoDup(&handle));
}

TEST(Parcel, HandleWithTooManyNumbersIsNotWritten) {
    Parcel written;
    EXPECT_EQ(OK, written.writeNativeHandleNoDup(makeHandle(0, Parcel::kMaxHandleInts).get()));
    EXPECT_EQ(BAD_VALUE,
              written.writeNativeHandleNoDup(makeHandle(0, Parcel::kMaxHandleInts + 1).get()));
}

TEST(FrameReader, DescriptorsThatWereNotAnnouncedAreRefused) {
    for (const uint16_t announced : {uint16_t{0}, uint16_t{1}, uint16_t{3}}) {
        FrameHeader header = callHeader(0, 0);
        header.descriptorCount = announced;
        FrameReader reader;
        for (unique_fd& descriptor : openDescriptors(2)) {
            reader.add(std::move(descriptor));
        }
        const std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
        EXPECT_EQ(FrameReader::State::Malformed, feed(reader, bytes, 40)) << announced;
        EXPECT_STREQ("other descriptors than it announces", reader.problem());
    }
}

TEST(FrameReader, DescriptorsBeyondTheLimitAreRefusedBeforeTheHeaderIsThere) {
    FrameReader reader;
    for (unique_fd& descriptor : openDescriptors(kMaxDescriptors + 1)) {
        reader.add(std::move(descriptor));
    }
    *reader.space() = 0;
    EXPECT_EQ(FrameReader::State::Malformed, reader.advance(1));
    EXPECT_STREQ("too many descriptors", reader.problem());
}

TEST(FrameReader, DescriptorsGoWithTheirFrame) {
    FrameReader reader;
    FrameHeader header = callHeader(0, 0);
    header.descriptorCount = 1;
    for (int i = 0; i < 2; ++i) {
        reader.add(std::move(openDescriptors(1)[0]));
        const std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
        ASSERT_EQ(FrameReader::State::Complete, feed(reader, bytes, 7));
        EXPECT_EQ(1u, reader.take().descriptors.size());
    }
}

TEST(Parcel, BoolThatIsNeitherTrueNorFalseIsRefused) {
    Parcel written;
    written.writeUint32(2);
    Parcel parcel;
    deliver(written, &parcel);
    bool value = false;
    EXPECT_EQ(BAD_VALUE, parcel.readBool(&value));
}
