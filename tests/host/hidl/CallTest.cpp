#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <cutils/native_handle.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>

#include "tests/host/hidl/HidlFixture.h"

using android::sp;
using android::base::unique_fd;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::interfacesEqual;
using android::hardware::Return;
using corvid::test::V1_0::Colour;
using corvid::test::V1_0::Inner;
using corvid::test::V1_0::Outer;

// Sanitizers keep freed memory for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define WITH_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define WITH_SANITIZER 1
#endif
#endif

namespace {

std::string echoText(const sp<corvid::test::V1_0::IEcho>& echo, const std::string& text) {
    std::string answer;
    const Return<void> result = echo->text(text, [&](const hidl_string& reply) { answer = reply; });
    EXPECT_TRUE(result.isOk()) << result.description();
    return answer;
}

uint32_t descriptorsOf(const sp<corvid::test::V1_0::IEcho>& echo) { return echo->descriptors(); }

TEST_F(HidlTest, StringsArriveUnchanged) {
    const sp<IEcho> echo = serve();
    for (const std::string& text : {std::string(), std::string("text"), std::string("\0\xff\n", 3),
                                    std::string(300000, 'x')}) {
        EXPECT_TRUE(echoText(echo, text) == text) << text.size() << " bytes";
    }
}

TEST_F(HidlTest, ScalarsArriveUnchanged) {
    const sp<IEcho> echo = serve();
    bool called = false;
    echo->scalars(true, -8, 65535, INT64_MIN, 1.5F, -0.25,
                  [&](bool a, int8_t b, uint16_t c, int64_t d, float e, double f) {
                      called = true;
                      EXPECT_TRUE(a);
                      EXPECT_EQ(-8, b);
                      EXPECT_EQ(65535, c);
                      EXPECT_EQ(INT64_MIN, d);
                      EXPECT_EQ(1.5F, e);
                      EXPECT_EQ(-0.25, f);
                  })
        .assertOk();
    EXPECT_TRUE(called);
}

TEST_F(HidlTest, StructuresArriveUnchanged) {
    const sp<IEcho> echo = serve();
    Outer outer{};
    outer.flag = true;
    outer.colour = Colour::BLUE;
    outer.inner = Inner{"inner", {1, -2, 3}};
    outer.inners = {Inner{"first", {}}, Inner{"", {4}}};
    outer.choices.resize(3);
    outer.choices[0].number(-5);
    outer.choices[1].text("choice");
    outer.choices[2].inner(Inner{"deep", {6, 7}});
    outer.names[1] = "second";
    outer.bytes[3] = 0xff;
    outer.ratio = 0.1;
    for (const Outer& sent : {outer, Outer{}}) {
        bool called = false;
        echo->outer(sent,
                    [&](const Outer& received) {
                        called = true;
                        EXPECT_EQ(sent, received) << toString(received);
                    })
            .assertOk();
        EXPECT_TRUE(called);
    }
}

TEST_F(HidlTest, TooLargeCallFailsAndTheNextOneWorks) {
    const sp<IEcho> echo = serve();
    const Return<void> result = echo->text(std::string(1'048'576, 'x'), [](const auto&) {});
    EXPECT_FALSE(result.isOk());
    EXPECT_FALSE(result.isDeadObject());
    EXPECT_EQ("again", echoText(echo, "again"));
}

TEST_F(HidlTest, CallsOfSeveralThreadsEachGetTheirOwnReply) {
    const sp<IEcho> echo = serve();
    std::vector<std::thread> threads;
    threads.reserve(8);
    std::atomic<int> wrong{0};
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (int j = 0; j < 100; ++j) {
                wrong += static_cast<int32_t>(echo->add(i, j)) != i + j ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong);
    EXPECT_LE(descriptorsOf(echo), 24u);  // connections of a burst of calls don't stay
}

TEST_F(HidlTest, OnewayCallArrives) {
    const sp<IEcho> echo = serve();
    echo->post(7).assertOk();
    EXPECT_TRUE(eventually([&] { return static_cast<int32_t>(echo->posted()) == 7; }));
}

TEST_F(HidlTest, CallbackDuringACallRunsOnTheWaitingThread) {
    const sp<IEcho> echo = serve();
    const std::thread::id self = std::this_thread::get_id();
    std::thread::id caller;
    const sp<ICallback> callback = new TestCallback([&](int32_t number) {
        caller = std::this_thread::get_id();
        return number + 1;
    });
    EXPECT_EQ(6, static_cast<int32_t>(echo->callBack(callback, 5)));
    EXPECT_EQ(self, caller);
}

TEST_F(HidlTest, NestedCallsAreServedToAnyDepth) {
    const sp<IEcho> echo = serve();
    sp<ICallback> callback;
    // Each level is a call of the server within a call of this process within...
    callback = new TestCallback([&](int32_t number) {
        return number == 0 ? 100 : static_cast<int32_t>(echo->callBack(callback, number - 1)) + 1;
    });
    EXPECT_EQ(120, static_cast<int32_t>(echo->callBack(callback, 20)));
    callback = nullptr;
}

TEST_F(HidlTest, ObjectPassedBackIsTheOriginal) {
    const sp<IEcho> echo = serve();
    const sp<ICallback> callback = new TestCallback;
    EXPECT_FALSE(static_cast<bool>(echo->keep(callback)));
    const sp<ICallback> kept = echo->kept();
    EXPECT_EQ(callback, kept);
    EXPECT_FALSE(kept->isRemote());
}

TEST_F(HidlTest, NullObjectArrivesAsNull) {
    const sp<IEcho> echo = serve();
    EXPECT_TRUE(static_cast<bool>(echo->keep(nullptr)));
    const sp<ICallback> kept = echo->kept();
    EXPECT_EQ(nullptr, kept);
}

TEST_F(HidlTest, TwoProxiesOfOneObjectAreEqual) {
    const sp<IEcho> echo = serve();
    const sp<ICallback> callback = new TestCallback;
    EXPECT_FALSE(static_cast<bool>(echo->keep(callback)));
    EXPECT_TRUE(static_cast<bool>(echo->keep(callback)));
    EXPECT_FALSE(static_cast<bool>(echo->keep(new TestCallback)));

    const sp<IEcho> same = IEcho::tryGetService();
    EXPECT_TRUE(interfacesEqual(echo, same));
    EXPECT_FALSE(interfacesEqual(echo, callback));
    EXPECT_FALSE(interfacesEqual(echo, nullptr));
    EXPECT_TRUE(interfacesEqual(nullptr, nullptr));
}

TEST_F(HidlTest, ObjectOfAThirdProcessIsCalledThere) {
    const sp<IEcho> echo = serve();
    Program owner("hidl-echo-client", "kept");
    ASSERT_EQ("ready", owner.line());
    const sp<ICallback> proxy = echo->kept();
    ASSERT_NE(nullptr, proxy);
    EXPECT_TRUE(proxy->isRemote());
    EXPECT_EQ(9, static_cast<int32_t>(proxy->onCall(9)));
    // Known by the server again, as the one that it has already.
    EXPECT_TRUE(static_cast<bool>(echo->keep(proxy)));
    // Held by this process alone, it stays.
    EXPECT_FALSE(static_cast<bool>(echo->keep(nullptr)));
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(i, static_cast<int32_t>(proxy->onCall(i)));
    }
}

TEST_F(HidlTest, ObjectIsDroppedWhenTheLastHolderDropsIt) {
    const sp<IEcho> echo = serve();
    Signal ended;
    {
        const sp<ICallback> callback =
            new TestCallback([](int32_t n) { return n; }, [&] { ended.set(); });
        ASSERT_FALSE(static_cast<bool>(echo->keep(callback)));
    }
    EXPECT_EQ(
        3, static_cast<int32_t>([&] {
            int32_t answer = 0;
            echo->callKept(3, [&](bool ok, const hidl_string&) { answer = ok ? 3 : 0; }).assertOk();
            return answer;
        }()));
    EXPECT_FALSE(ended.isSet());  // only the server holds it
    EXPECT_FALSE(static_cast<bool>(echo->keep(nullptr)));
    EXPECT_TRUE(ended.wait());
}

TEST_F(HidlTest, ObjectIsDroppedWhenItsHolderDies) {
    const sp<IEcho> echo = serve();
    Signal ended;
    ASSERT_FALSE(static_cast<bool>(
        echo->keep(new TestCallback([](int32_t n) { return n; }, [&] { ended.set(); }))));
    EXPECT_FALSE(ended.isSet());
    server().kill();
    EXPECT_TRUE(ended.wait());
}

TEST_F(HidlTest, ObjectIsKeptWhileItsAcquireIsOnTheWay) {
    const sp<IEcho> echo = serve();
    // Each object becomes unused here while the server's word for the next one is on its way.
    Program client("hidl-echo-client", "keep", "10000");
    EXPECT_EQ(0, client.wait());
    EXPECT_EQ("", client.log());
}

TEST_F(HidlTest, ManyShortLivedClientsLeaveNothingBehind) {
    const sp<IEcho> echo = serve();
    const auto runClients = [](int count) {
        for (int i = 0; i < count; ++i) {
            Program client("hidl-echo-client", "keep", "100");
            ASSERT_EQ(0, client.wait());
            ASSERT_EQ("", client.log());
        }
    };
    runClients(3);
    const uint32_t before = descriptorsOf(echo);
    const long memory = server().status("RssAnon");
    runClients(40);
    // The ends of the last client's connections may still have to be noticed.
    EXPECT_TRUE(eventually([&] { return descriptorsOf(echo) <= before; })) << descriptorsOf(echo);
#ifndef WITH_SANITIZER
    EXPECT_LE(server().status("RssAnon"), memory + 64) << "kB";
#else
    static_cast<void>(memory);
#endif
}

TEST_F(HidlTest, JoinedThreadIsTheOnlyOneThatServes) {
    const sp<IEcho> echo = serve();
    EXPECT_FALSE(static_cast<bool>(echo->keep(new TestCallback)));
    EXPECT_TRUE(static_cast<bool>(echo->watchKept()));
    echo->threads([](uint32_t count, bool onMainThread) {
            EXPECT_EQ(1u, count);
            EXPECT_TRUE(onMainThread);
        })
        .assertOk();
}

TEST_F(HidlTest, IdleServerSleeps) {
    const sp<IEcho> echo = serve();
    EXPECT_FALSE(static_cast<bool>(echo->keep(new TestCallback)));
    EXPECT_TRUE(static_cast<bool>(echo->watchKept()));
    long before = -1;
    // It may still be going to sleep after the last call.
    ASSERT_TRUE(eventually([&] {
        const long now = server().status("voluntary_ctxt_switches");
        const bool same = now == before;
        before = now;
        return same;
    }));
    const long long end = millisecondsNow() + 300;
    while (millisecondsNow() < end) {
        pauseBriefly();
    }
    EXPECT_EQ(before, server().status("voluntary_ctxt_switches"));
}

/** What was written into a pipe, once all its writers have closed it. */
std::string readAll(int pipe) {
    std::string all;
    char part[256];
    for (ssize_t size = 0; (size = read(pipe, part, sizeof(part))) > 0;) {
        all.append(part, static_cast<size_t>(size));
    }
    return all;
}

TEST_F(HidlTest, DebugWritesIntoTheCallersDescriptor) {
    const sp<IEcho> echo = serve();
    const uint32_t before = descriptorsOf(echo);
    for (int i = 0; i < 3; ++i) {
        unique_fd read;
        unique_fd write;
        ASSERT_TRUE(android::base::Pipe(&read, &write));
        native_handle_t* handle = native_handle_create(1, 0);
        handle->data[0] = write.get();
        echo->debug(handle, {"one", "two"}).assertOk();
        native_handle_delete(handle);
        write.reset();
        EXPECT_EQ("one\ntwo\n", readAll(read.get()));
    }
    EXPECT_EQ(before, descriptorsOf(echo));
}

TEST_F(HidlTest, HandleComesBackWithItsDescriptorsAndNumbers) {
    const sp<IEcho> echo = serve();
    unique_fd read;
    unique_fd write;
    ASSERT_TRUE(android::base::Pipe(&read, &write));
    native_handle_t* handle = native_handle_create(2, 1);
    handle->data[0] = STDERR_FILENO;
    handle->data[1] = write.get();
    handle->data[2] = 4711;
    bool answered = false;
    echo->returnHandle(handle,
                       [&](const hidl_handle& same) {
                           answered = true;
                           ASSERT_NE(nullptr, same.getNativeHandle());
                           ASSERT_EQ(2, same->numFds);
                           ASSERT_EQ(1, same->numInts);
                           EXPECT_EQ(4711, same->data[2]);
                           EXPECT_NE(write.get(), same->data[1]);
                           EXPECT_EQ(4, ::write(same->data[1], "text", 4));
                       })
        .assertOk();
    EXPECT_TRUE(answered);
    native_handle_delete(handle);
    write.reset();
    EXPECT_EQ("text", readAll(read.get()));
    echo->returnHandle(nullptr,
                       [](const hidl_handle& same) { EXPECT_EQ(nullptr, same.getNativeHandle()); })
        .assertOk();
}

TEST_F(HidlTest, HandleWithTooManyDescriptorsIsNotSent) {
    const sp<IEcho> echo = serve();
    native_handle_t* handle = native_handle_create(9, 0);
    std::fill(handle->data, handle->data + 9, STDERR_FILENO);
    EXPECT_FALSE(echo->returnHandle(handle, [](const hidl_handle&) {}).isOk());
    native_handle_delete(handle);
    EXPECT_EQ("still", echoText(echo, "still"));
}

TEST_F(HidlTest, BaseMethodsAreAnswered) {
    const sp<IEcho> echo = serve();
    echo->ping().assertOk();
    echo->notifySyspropsChanged().assertOk();
    echo->debug(nullptr, {"option"}).assertOk();
    std::string descriptor;
    echo->interfaceDescriptor([&](const hidl_string& name) { descriptor = name; }).assertOk();
    EXPECT_EQ("corvid.test@1.0::IEcho", descriptor);
    int pid = 0;
    echo->getDebugInfo([&](const auto& info) { pid = info.pid; }).assertOk();
    EXPECT_EQ(server().pid(), pid);
    EXPECT_NE(nullptr,
              static_cast<sp<IEcho>>(IEcho::castFrom(sp<android::hidl::base::V1_0::IBase>(echo))));
    EXPECT_EQ(nullptr, static_cast<sp<ICallback>>(
                           ICallback::castFrom(sp<android::hidl::base::V1_0::IBase>(echo))));
    EXPECT_EQ("still", echoText(echo, "still"));
}

}  // namespace
