#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/host/hidl/HidlFixture.h"

using android::sp;

namespace {

TEST_F(HidlTest, RegistrationFailsWhenTheFolderIsMissing) {
    std::filesystem::remove(folder());
    Program server("hidl-echo-server");
    EXPECT_EQ("failed " + std::to_string(android::NAME_NOT_FOUND), server.line());
    EXPECT_EQ(1, server.wait());
    EXPECT_EQ(1, server.countInLog("there is no such folder"));
    EXPECT_FALSE(std::filesystem::exists(folder()));
}

TEST_F(HidlTest, ObjectWhoseRegistrationFailedIsNotHeld) {
    std::filesystem::remove(folder());
    Signal ended;
    sp<ICallback> object =
        new TestCallback([](int32_t number) { return number; }, [&] { ended.set(); });
    EXPECT_EQ(android::NAME_NOT_FOUND, object->registerAsService("mine"));
    object = nullptr;
    EXPECT_TRUE(ended.isSet());
}

TEST_F(HidlTest, RegistrationFailsWhenALiveProcessHasTheName) {
    serve();
    Program second("hidl-echo-server");
    EXPECT_EQ("failed " + std::to_string(android::ALREADY_EXISTS), second.line());
    EXPECT_EQ(1, second.wait());
    Program other("hidl-echo-server", "other");
    EXPECT_EQ("ready", other.line());
}

TEST_F(HidlTest, NameOfADeadProcessIsFreeAgain) {
    for (int i = 0; i < 3; ++i) {
        const sp<IEcho> echo = serve();
        ASSERT_NE(nullptr, echo);
        EXPECT_EQ(3, static_cast<int32_t>(echo->add(1, 2)));
        server().kill();
        EXPECT_EQ(nullptr, IEcho::tryGetService());
    }
    serve();
    // What the killed ones have left is cleaned up by the one that follows.
    EXPECT_EQ(1, countEndpoints());
}

TEST_F(HidlTest, OneOfManySimultaneousRegistrationsSucceeds) {
    std::vector<std::unique_ptr<Program>> programs;
    for (int i = 0; i < 12; ++i) {
        programs.push_back(std::make_unique<Program>("hidl-echo-server"));
    }
    int ready = 0;
    for (const auto& program : programs) {
        ready += program->line() == "ready" ? 1 : 0;
    }
    EXPECT_EQ(1, ready);
}

TEST_F(HidlTest, BadInstanceNameIsRefused) {
    for (const char* name : {"", "a/b", "../x", "a b"}) {
        Program server("hidl-echo-server", name);
        EXPECT_EQ("failed " + std::to_string(android::BAD_VALUE), server.line()) << name;
        EXPECT_EQ(nullptr, IEcho::tryGetService(name));
    }
}

TEST_F(HidlTest, UnregisteredServiceIsNull) {
    EXPECT_EQ(nullptr, IEcho::tryGetService());
    EXPECT_EQ(nullptr, IEcho::getService());  // nobody would end the wait
    std::filesystem::remove(folder());
    EXPECT_EQ(nullptr, IEcho::tryGetService());
}

TEST_F(HidlTest, ServiceWhoseRegistrationIsNotCompleteIsNull) {
    const std::string file = "/dev/hwbinder/corvid.test@1.0::IEcho,default";
    for (const char* content : {"", "0", "0000000000000001 0000000000000001", "garbage\n",
                                "0000000000000001 0000000000000001\nmore"}) {
        root_.write(file, content);
        EXPECT_EQ(nullptr, IEcho::tryGetService()) << content;
    }
}

TEST_F(HidlTest, FolderWithALongPathWorks) {
    const std::string root = root_.path("/" + std::string(100, 'a') + "/" + std::string(100, 'b'));
    std::filesystem::create_directories(root + "/dev/hwbinder");
    setenv("CORVID_WIFI_ROOT", root.c_str(), 1);
    const sp<IEcho> echo = serve();
    ASSERT_NE(nullptr, echo);
    EXPECT_EQ(5, static_cast<int32_t>(echo->add(2, 3)));
    EXPECT_EQ(8, static_cast<int32_t>(echo->callBack(
                     new TestCallback([](int32_t number) { return 2 * number; }), 4)));
}

TEST_F(HidlTest, ServiceOfTheSameProcessIsTheObjectItself) {
    // Not IEcho: this process has no implementation of it.
    const sp<ICallback> object = new TestCallback;
    ASSERT_EQ(android::OK, object->registerAsService("mine"));
    EXPECT_EQ(object, ICallback::tryGetService("mine"));
    EXPECT_EQ(android::ALREADY_EXISTS, object->registerAsService("mine"));
}

TEST_F(HidlTest, CleanExitLeavesNoSocketBehind) {
    serve();
    Program client("hidl-echo-client", "keep", "1");
    EXPECT_EQ(0, client.wait());
    EXPECT_EQ(1, countEndpoints());
}

}  // namespace
