#include <corvid/test/1.0/ICallback.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>

#include "host/hidl/src/Exports.h"
#include "tests/host/hidl/HidlFixture.h"

using android::sp;
using android::hardware::BHwBinder;
using host::hidl::Exports;

namespace {

sp<BHwBinder> stubOf(const sp<TestCallback>& object) {
    return android::hardware::getOrCreateCachedBinder(object.get())->localBinder();
}

TEST(Exports, ObjectKeepsItsNumberWhileUsedAndGetsAnotherLater) {
    Exports exports;
    const sp<TestCallback> object = new TestCallback;
    uint64_t number = 0;
    {
        const Exports::Pin first = exports.pin(stubOf(object));
        const Exports::Pin second = exports.pin(stubOf(object));
        number = first.object();
        EXPECT_EQ(number, second.object());
        EXPECT_EQ(stubOf(object), exports.find(number));
    }
    exports.collect(exports.lastUnused());
    EXPECT_EQ(nullptr, exports.find(number));
    EXPECT_FALSE(exports.acquire(number));
    EXPECT_NE(number, exports.pin(stubOf(object)).object());
}

TEST(Exports, ObjectInUseAgainIsNotCollected) {
    Exports exports;
    const sp<TestCallback> object = new TestCallback;
    const uint64_t number = exports.pin(stubOf(object)).object();
    ASSERT_TRUE(exports.acquire(number));
    exports.collect(exports.lastUnused());
    EXPECT_EQ(0u, exports.lastUnused());
    EXPECT_TRUE(exports.acquire(number));
    exports.release(number, 2);
    exports.collect(exports.lastUnused());
    EXPECT_FALSE(exports.acquire(number));
}

TEST(Exports, ObjectUnusedSinceALaterMomentIsNotCollected) {
    Exports exports;
    const sp<TestCallback> object = new TestCallback;
    const sp<TestCallback> other = new TestCallback;
    const uint64_t number = exports.pin(stubOf(object)).object();
    const uint64_t moment = exports.lastUnused();
    // Sent to somebody once more, who has said so on a link that is not read yet.
    static_cast<void>(exports.pin(stubOf(object)));
    const uint64_t otherNumber = exports.pin(stubOf(other)).object();
    exports.collect(moment);
    EXPECT_TRUE(exports.acquire(number));
    EXPECT_TRUE(exports.acquire(otherNumber));
}

}  // namespace
