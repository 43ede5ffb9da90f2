#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <cutils/native_handle.h>
#include <gtest/gtest.h>
#include <hwbinder/Parcel.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "host/hidl/src/Frame.h"
#include "tests/host/hidl/HidlFixture.h"

using android::sp;
using android::base::unique_fd;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::Parcel;
using host::hidl::FrameHeader;
using host::hidl::FrameType;
using host::hidl::kFrameMagic;
using host::hidl::kMaxDataSize;
using host::hidl::ObjectId;

namespace {

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

FrameHeader headerOf(FrameType type) {
    FrameHeader header{};
    header.magic = kFrameMagic;
    header.type = type;
    header.sender = 1ULL << 32;  // nobody
    return header;
}

std::string bytesOf(const FrameHeader& header) {
    return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

std::string bytesOf(const Parcel& parcel) {
    return {reinterpret_cast<const char*>(parcel.data()), parcel.dataSize()};
}

// A call of the service, which is the first object that its process exports.
std::string callOf(uint32_t code, const std::string& data,
                   const std::vector<ObjectId>& objects = {}, uint64_t target = 1) {
    FrameHeader header = headerOf(FrameType::Call);
    header.code = code;
    header.target = target;
    header.dataSize = static_cast<uint32_t>(data.size());
    header.objectCount = static_cast<uint16_t>(objects.size());
    std::string bytes = bytesOf(header);
    for (const ObjectId& object : objects) {
        bytes.append(reinterpret_cast<const char*>(&object), sizeof(object));
    }
    return bytes + data;
}

std::string token() {
    Parcel parcel;
    parcel.writeInterfaceToken("corvid.test@1.0::IEcho");
    return bytesOf(parcel);
}

std::string textArgument(const std::string& text) {
    Parcel parcel;
    parcel.writeInterfaceToken("corvid.test@1.0::IEcho");
    const hidl_string string(text);
    size_t handle = 0;
    parcel.writeBuffer(&string, sizeof(string), &handle);
    parcel.writeEmbeddedBuffer(string.c_str(), string.size() + 1, &handle, handle, 0);
    return bytesOf(parcel);
}

// Codes of IEcho's methods.
constexpr uint32_t kText = 1;
constexpr uint32_t kAdd = 4;
constexpr uint32_t kKeep = 5;
constexpr uint32_t kHandle = 17;

class HostileTest : public HidlTest {
  protected:
    unique_fd connect() const {
        unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_un address = addressOf(endpoint());
        if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
            0) {
            ADD_FAILURE() << strerror(errno);
        }
        return socket;
    }

    static void sendAll(const unique_fd& socket, const std::string& bytes) {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    // What the server sends until it ends the connection; "open" when it does not within 10 s.
    static std::string readUntilEnd(const unique_fd& socket) {
        std::string all;
        char part[65536];
        for (;;) {
            pollfd ready{socket.get(), POLLIN, 0};
            if (poll(&ready, 1, 10000) != 1) {
                return "open";
            }
            const ssize_t size = recv(socket.get(), part, sizeof(part), 0);
            if (size <= 0) {
                return all;
            }
            all.append(part, static_cast<size_t>(size));
        }
    }
};

TEST_F(HostileTest, MalformedMessageEndsItsConnectionWithOneLine) {
    const sp<IEcho> echo = serve();
    FrameHeader oversized = headerOf(FrameType::Call);
    oversized.dataSize = kMaxDataSize + 1;
    FrameHeader manyObjects = headerOf(FrameType::Call);
    manyObjects.objectCount = 65;
    FrameHeader acquire = headerOf(FrameType::Acquire);
    acquire.target = 4711;
    FrameHeader release = headerOf(FrameType::Release);
    release.target = 1;
    std::string wrongSize = textArgument("0123456789");
    wrongSize[token().size() + 16 + 8] ^= 1;
    std::string badParent = textArgument("0123456789");
    badParent[token().size() + 16 + 16 + 8] ^= 1;
    std::string noNul = textArgument("0123456");
    noNul.back() = 'x';
    const auto index = [](uint32_t number) {
        return token() + std::string(reinterpret_cast<const char*>(&number), sizeof(number));
    };
    const struct {
        const char* what;
        std::string bytes;
        const char* log;
    } cases[] = {
        {"garbage", std::string(100, '\xa5'), "not a message"},
        {"zeroes", std::string(40, '\0'), "not a message"},
        {"an oversized message", bytesOf(oversized), "oversized message"},
        {"too many objects", bytesOf(manyObjects), "too many objects"},
        {"an unknown type", bytesOf(headerOf(static_cast<FrameType>(77))), "unknown type"},
        {"a reply", bytesOf(headerOf(FrameType::Reply)), "replies where nothing was asked"},
        {"an unknown object", callOf(kAdd, token(), {}, 4711), "calls an object that does not"},
        {"to acquire an unknown object", bytesOf(acquire), "acquires an object that does not"},
        {"to release what it does not hold", bytesOf(release), "releases an object that it does"},
        {"an unknown code", callOf(999, token()), "UNKNOWN_TRANSACTION"},
        {"another interface", callOf(kAdd, "xxxxxxx"), "BAD_TYPE"},
        {"no interface", callOf(kAdd, ""), "BAD_TYPE"},
        {"too few arguments", callOf(kAdd, token()), "NOT_ENOUGH_DATA"},
        {"too many arguments", callOf(kAdd, token() + std::string(12, '\0')), "more arguments"},
        {"a wrong size", callOf(kText, wrongSize), "BAD_VALUE"},
        {"a wrong parent", callOf(kText, badParent), "BAD_VALUE"},
        {"a string without its end", callOf(kText, noNul), "BAD_VALUE"},
        {"an object index without objects", callOf(kKeep, index(0)), "BAD_VALUE"},
        {"a huge object index", callOf(kKeep, index(0xfffffffe)), "BAD_VALUE"},
        {"an unknown object of the server itself",
         callOf(kKeep, index(0),
                {{(static_cast<uint64_t>(server().pid()) << 32) |
                      (std::stoull(endpoint().substr(endpoint().size() - 8), nullptr, 16)),
                  4711}}),
         "passes an object that does not exist"},
    };
    for (const auto& test : cases) {
        const int lines = server().countInLog("\n");
        const unique_fd socket = connect();
        sendAll(socket, test.bytes);
        EXPECT_NE("open", readUntilEnd(socket)) << test.what;
        EXPECT_TRUE(server().waitForLog(test.log)) << test.what << ": " << server().log();
        EXPECT_EQ(lines + 1, server().countInLog("\n")) << test.what << ": " << server().log();
        EXPECT_EQ(3, static_cast<int32_t>(echo->add(1, 2))) << test.what;
    }
    EXPECT_EQ(std::size(cases) + 0u, static_cast<size_t>(server().countInLog(" E ")));
}

/** Sends `bytes` with as many copies of a descriptor. */
void sendWith(const unique_fd& socket, const std::string& bytes, size_t count) {
    const std::vector<int> descriptors(count, STDERR_FILENO);
    std::vector<char> control(CMSG_SPACE(count * sizeof(int)));
    iovec part = {const_cast<char*>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(count * sizeof(int));
    std::memcpy(CMSG_DATA(rights), descriptors.data(), count * sizeof(int));
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()), sendmsg(socket.get(), &message, MSG_NOSIGNAL));
}

TEST_F(HostileTest, DescriptorsThatDoNotBelongEndTheConnectionAndAreClosed) {
    const sp<IEcho> echo = serve();
    const auto announcing = [](uint16_t count, std::string bytes) {
        FrameHeader header;
        std::memcpy(&header, bytes.data(), sizeof(header));
        header.descriptorCount = count;
        return bytes.replace(0, sizeof(header), bytesOf(header));
    };
    const auto claiming = [](uint32_t descriptors, uint32_t numbers) {
        Parcel parcel;
        parcel.writeInterfaceToken("corvid.test@1.0::IEcho");
        parcel.writeUint32(1);
        parcel.writeUint32(descriptors);
        parcel.writeUint32(numbers);
        return bytesOf(parcel);
    };
    const struct {
        const char* what;
        std::string bytes;
        size_t descriptors;
        const char* log;
    } cases[] = {
        {"more than announced", callOf(kHandle, claiming(1, 0)), 1, "than it announces"},
        {"fewer than announced", announcing(3, callOf(kHandle, claiming(1, 0))), 2,
         "than it announces"},
        {"too many announced", announcing(9, callOf(kHandle, claiming(1, 0))), 1,
         "too many descriptors"},
        {"too many", announcing(8, callOf(kHandle, claiming(1, 0))), 250, "too many descriptors"},
        {"more than the handle", announcing(2, callOf(kHandle, claiming(1, 0))), 2,
         "more arguments"},
        {"fewer than the handle", announcing(1, callOf(kHandle, claiming(2, 0))), 1, "BAD_VALUE"},
        {"a handle of very many", announcing(1, callOf(kHandle, claiming(UINT32_MAX, 0))), 1,
         "BAD_VALUE"},
        {"a handle with very many numbers", announcing(1, callOf(kHandle, claiming(1, UINT32_MAX))),
         1, "BAD_VALUE"},
        {"numbers that are not there", announcing(1, callOf(kHandle, claiming(1, 3))), 1,
         "NOT_ENOUGH_DATA"},
        {"some for a method without", announcing(1, callOf(kText, textArgument("text"))), 1,
         "more arguments"},
    };
    const uint32_t before = echo->descriptors();
    for (const auto& test : cases) {
        const int lines = server().countInLog("\n");
        const unique_fd socket = connect();
        sendWith(socket, test.bytes, test.descriptors);
        EXPECT_NE("open", readUntilEnd(socket)) << test.what;
        EXPECT_TRUE(server().waitForLog(test.log)) << test.what << ": " << server().log();
        EXPECT_EQ(lines + 1, server().countInLog("\n")) << test.what << ": " << server().log();
        EXPECT_EQ(before, static_cast<uint32_t>(echo->descriptors())) << test.what;
    }
    // Some with each piece of a header that does not end.
    const unique_fd socket = connect();
    for (int i = 0; i < 3; ++i) {
        sendWith(socket, std::string(1, "HDL"[2 - i]), 4);
        EXPECT_LE(static_cast<uint32_t>(echo->descriptors()), before + 1 + 8) << i;
    }
    EXPECT_EQ("", readUntilEnd(socket));
    EXPECT_EQ(before, static_cast<uint32_t>(echo->descriptors()));
}

TEST_F(HostileTest, WithoutRoomForADescriptorTheCallFailsAndTheServerGoesOn) {
    const sp<IEcho> echo = serve();
    const rlimit few{16, 16};
    ASSERT_EQ(0, prlimit(server().pid(), RLIMIT_NOFILE, &few, nullptr));
    ASSERT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
    native_handle_t* handle = native_handle_create(8, 0);
    std::fill(handle->data, handle->data + 8, STDERR_FILENO);
    int failures = 0;
    for (int i = 0; i < 3; ++i) {
        const auto result = echo->returnHandle(handle, [](const hidl_handle&) {});
        failures += result.isOk() ? 0 : 1;
    }
    native_handle_delete(handle);
    EXPECT_EQ(3, failures);
    EXPECT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
    EXPECT_LE(static_cast<uint32_t>(echo->descriptors()), 16u);
}

TEST_F(HostileTest, ObjectOfAnotherTypeArrivesAsNull) {
    const sp<IEcho> echo = serve();
    const uint64_t process = std::stoull(endpoint().substr(endpoint().size() - 16), nullptr, 16);
    EXPECT_FALSE(static_cast<bool>(echo->keep(new TestCallback)));
    const unique_fd socket = connect();
    sendAll(socket, callOf(kKeep, token() + std::string(4, '\0'), {{process, 1}}));
    FrameHeader reply{};
    ASSERT_EQ(static_cast<ssize_t>(sizeof(reply)),
              recv(socket.get(), &reply, sizeof(reply), MSG_WAITALL));
    EXPECT_EQ(0u, reply.code);
    const sp<ICallback> kept = echo->kept();
    EXPECT_EQ(nullptr, kept);
}

TEST_F(HostileTest, ObjectOfAProcessThatDoesNotExistIsDead) {
    const sp<IEcho> echo = serve();
    const unique_fd socket = connect();
    sendAll(socket, callOf(kKeep, token() + std::string(4, '\0'), {{0x123456789abcdefULL, 1}}));
    FrameHeader reply{};
    ASSERT_EQ(static_cast<ssize_t>(sizeof(reply)),
              recv(socket.get(), &reply, sizeof(reply), MSG_WAITALL));
    EXPECT_EQ(0u, reply.code);
    EXPECT_FALSE(static_cast<bool>(echo->watchKept()));
    echo->callKept(1, [](bool ok, const hidl_string&) { EXPECT_FALSE(ok); }).assertOk();
}

TEST_F(HostileTest, ClientThatSendsHalfAMessageHoldsNobodyUp) {
    const sp<IEcho> echo = serve();
    const std::string call = callOf(kText, textArgument("whole"));
    std::vector<unique_fd> sockets;
    for (size_t size = 1; size < call.size(); size += 7) {
        sockets.push_back(connect());
        sendAll(sockets.back(), call.substr(0, size));
        ASSERT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
    }
    // The rest makes it a call like any other.
    sendAll(sockets.front(), call.substr(1));
    FrameHeader reply{};
    ASSERT_EQ(static_cast<ssize_t>(sizeof(reply)),
              recv(sockets.front().get(), &reply, sizeof(reply), MSG_WAITALL));
    EXPECT_EQ(FrameType::Reply, reply.type);
    EXPECT_EQ("", server().log());
    // An end inside a message is one that went wrong.
    sockets.back().reset();
    EXPECT_TRUE(server().waitForLog("ends inside a message"));
    EXPECT_EQ(1, server().countInLog("\n"));
}

TEST_F(HostileTest, ClientThatDoesNotReadHoldsNobodyUp) {
    const sp<IEcho> echo = serve();
    const std::string text(900'000, 'x');
    const std::string call = callOf(kText, textArgument(text));
    const unique_fd socket = connect();
    sendAll(socket, call);
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
    }
    // The reply waits for it, whole.
    FrameHeader reply{};
    ASSERT_EQ(static_cast<ssize_t>(sizeof(reply)),
              recv(socket.get(), &reply, sizeof(reply), MSG_WAITALL));
    std::string data(reply.dataSize, '\0');
    ASSERT_EQ(static_cast<ssize_t>(data.size()),
              recv(socket.get(), data.data(), data.size(), MSG_WAITALL));
    EXPECT_NE(std::string::npos, data.find(text));
    // And the connection serves on.
    sendAll(socket, callOf(kText, textArgument("again")));
    ASSERT_EQ(static_cast<ssize_t>(sizeof(reply)),
              recv(socket.get(), &reply, sizeof(reply), MSG_WAITALL));
}

TEST_F(HostileTest, IdleConnectionsBeyondTheLimitAreClosed) {
    const sp<IEcho> echo = serve();
    std::vector<unique_fd> sockets;
    for (int i = 0; i < 300; ++i) {
        sockets.push_back(connect());
        ASSERT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
    }
    EXPECT_LE(static_cast<uint32_t>(echo->descriptors()), 280u);
    EXPECT_TRUE(server().waitForLog("it was silent for the longest"));
    EXPECT_EQ("", readUntilEnd(sockets.front()));
}

TEST_F(HostileTest, WithoutDescriptorsConnectionsAreRefusedAndLaterAcceptedAgain) {
    const sp<IEcho> echo = serve();
    // The server's own limit: this process has descriptors of the tests before.
    const rlimit few{40, 40};
    ASSERT_EQ(0, prlimit(server().pid(), RLIMIT_NOFILE, &few, nullptr));
    ASSERT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
    {
        std::vector<unique_fd> sockets(60);
        for (unique_fd& socket : sockets) {
            socket = connect();
        }
        EXPECT_TRUE(server().waitForLog("Refusing a connection"));
        EXPECT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
    }
    EXPECT_TRUE(eventually([&] { return static_cast<uint32_t>(echo->descriptors()) < 20; }));
}

TEST_F(HostileTest, ConnectionOfAnotherUserIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const sp<IEcho> echo = serve();
    // So that permissions of the file system don't keep it out.
    for (std::filesystem::path path = endpoint(); path != path.root_path();
         path = path.parent_path()) {
        if (path.string().compare(0, root_.path("").size(), root_.path("")) == 0) {
            chmod(path.c_str(), 0777);
        }
    }
    const std::string call = callOf(kText, textArgument("text"));
    const std::string path = endpoint();
    const pid_t child = fork();
    if (child == 0) {
        const sockaddr_un address = addressOf(path);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (setuid(65534) != 0 ||
            ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            _exit(2);
        }
        send(socket, call.data(), call.size(), MSG_NOSIGNAL);
        char byte;
        _exit(recv(socket, &byte, 1, 0) > 0 ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_TRUE(server().waitForLog("belongs to user 65534"));
    EXPECT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
}

}  // namespace
